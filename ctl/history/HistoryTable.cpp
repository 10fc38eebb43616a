#include <algorithm>
#include <array>
#include <span>

#include "ctl/history/History.h"

namespace velarix::ctl
{

/// What is done at which message, ascending by the line's number in each source file.
struct HistoryTable
{
	using M = History;

	struct Row
	{
		int number;
		Handler handler;
	};

	static constexpr std::array kAgent{
	    Row{25, [](M& m) { m.expectStop(Cause::agentStart); }},
	};

	static constexpr std::array kReceiver{
	    Row{79, [](M& m) { m.serverError(); }},
	    Row{94, [](M& m) { m.passBegins(); }},
	    Row{99, [](M& m) { m.tell(m.m_snapshot.networkOk, false); }},
	    Row{106, [](M& m) { m.givesUpWithoutPrograms(); }},
	    Row{146, [](M& m) { m.nobodyConnected(); }},
	    Row{150, [](M& m) { m.m_snapshot.silences = 0; }},
	    Row{164, [](M& m) { m.heartbeatReceived(); }},
	    Row{182, [](M& m) { m.found(Fault::communicationInterface); }},
	    Row{185, [](M& m) { m.gone(Fault::communicationInterface); }},
	    Row{189, [](M& m) { m.countSilence(m.behind("Reciver : nReceiveFailCount[").starts_with('1') ? 1 : 2); }},
	    Row{192, [](M& m) { m.countSilence(3); }},
	    Row{196, [](M& m) { m.found(Fault::communicationInterface); }},
	    Row{201, [](M& m) { m.found(Fault::heartbeats); }},
	    Row{215, [](M& m) { m.takesOver(Cause::partnerSilent); }},
	    Row{218, [](M& m) { m.takesOver(Cause::partnerSilent); }},
	    Row{246, [](M& /*said at 164*/) {}},
	    Row{252, [](M& /*said at 164*/) {}},
	    Row{278, [](M& m) { m.judged(true); }},
	    Row{282, [](M& m) { m.bothMasters(true); }},
	    Row{287, [](M& m) { m.judged(true); }},
	    Row{319, [](M& m) { m.judged(false); }},
	    Row{324, [](M& m) { m.bothMasters(false); }},
	    Row{329, [](M& m) { m.judged(true); }},
	    Row{350, [](M& m) { m.answerSeen(); }},
	    Row{368, [](M& m) { m.tell(m.m_snapshot.networkOk, true), m.endAsk(EventKind::askAnswered); }},
	    Row{389, [](M& m) { m.tell(m.m_snapshot.networkOk, false), m.endAsk(EventKind::askAnswered); }},
	    Row{403, [](M& m) { m.judged(true); }},
	    // The ask field of a standby's heartbeat is looked at only when this node does not
	    // ask, or has counted the last heartbeat that it waits for.
	    Row{411, [](M& m) { m.judged(true), m.endAsk(EventKind::askUnanswered); }},
	    Row{414, [](M& m) { m.takesOver(Cause::partnerAsked, M::Awaited::stop); }},
	    Row{418, [](M& m) { m.bothSlaves(); }},
	    Row{429, [](M& m) { m.judged(false); }},
	    Row{434, [](M& m) { m.judged(false), m.endAsk(EventKind::askUnanswered); }},
	    Row{440, [](M& m) { m.judged(false); }},
	    Row{443, [](M& m) { m.takesOver(Cause::partnerAsked, M::Awaited::stop); }},
	    Row{447, [](M& m) { m.bothSlaves(); }},
	    Row{470, [](M& m) { m.takesOver(m.m_agent.resetCause); }},
	    Row{473, [](M& m) { m.takesOver(m.m_agent.resetCause); }},
	    Row{480, [](M& m) { m.leavesForConfiguredRole(); }},
	    Row{505, [](M& m) { m.judgedAs(Role::master); }},
	    Row{508, [](M& m) { m.lost(Fault::gateway, Cause::gatewaySilent); }},
	    Row{509, [](M& m) { m.givesUp(); }},
	    Row{516, [](M& m) { m.lost(Fault::serviceAddress, Cause::serviceAddressSilent); }},
	    Row{517, [](M& m) { m.givesUp(); }},
	    Row{524, [](M& m) { m.lost(Fault::serviceInterface, Cause::serviceInterfaceDown); }},
	    Row{525, [](M& m) { m.givesUpAndAsks(); }},
	    Row{538, [](M& m) { m.judgedAs(Role::slave); }},
	    Row{549, [](M& m) { m.takesOver(Cause::partnerAndServiceSilent); }},
	    Row{564, [](M& m) { m.gone(Fault::programs); }},
	    Row{567, [](M& m) { m.found(Fault::programs); }},
	};

	static constexpr std::array kSender{
	    Row{79, [](M& m) { m.partnerRefuses(); }},
	    Row{124, [](M& m) { m.heartbeatSent(); }},
	};

	static constexpr std::array kChecker{
	    Row{103, [](M& m) { m.programsCounted(); }},
	};

	static constexpr std::array kService{
	    Row{48, [](M& m) { m.expectStop(Cause::takeOver); }},
	    Row{62, [](M& m) { m.m_agent.scriptBegun = m.m_now; }},
	    Row{78, [](M& m) { m.scriptWasRun(); }},
	    Row{432, [](M& m) { m.addressFailed(); }},
	    Row{496, [](M& m) { m.addressPinged(); }},
	    Row{504, [](M& m) { m.m_agent.addressError = oneLine(m.behind("set virtual ip failed: ")); }},
	    Row{573, [](M& m) { m.commandRun(); }},
	    Row{668, [](M& m) { m.addressUp("listed"); }},
	    Row{680, [](M& m) { m.addressNotListed(); }},
	    Row{760, [](M& m) { m.gone(Fault::partnerAddress); }},
	    Row{766, [](M& m) { m.probeError(); }},
	    Row{768, [](M& m) { m.unanswered(Fault::partnerAddress); }},
	    Row{783, [](M& m) { m.gone(Fault::gateway); }},
	    Row{789, [](M& m) { m.probeError(); }},
	    Row{791, [](M& m) { m.unanswered(Fault::gateway); }},
	    Row{807, [](M& m) { m.gone(Fault::serviceAddress); }},
	    Row{814, [](M& m) { m.probeError(); }},
	    Row{817, [](M& m) { m.unanswered(Fault::serviceAddress); }},
	};

	/// The rows of one source file of the agent, by its label.
	struct Source
	{
		std::string_view label;
		std::span<const Row> rows;
	};
	static constexpr std::array kSources{
	    Source{"CAgent", kAgent},           Source{"CHeartReciver", kReceiver}, Source{"CHeartSender", kSender},
	    Source{"ProcessChecker", kChecker}, Source{"Utill", kService},
	};
};

Handler handlerOf(std::string_view label, int number)
{
	const auto* const source = std::ranges::find(HistoryTable::kSources, label, &HistoryTable::Source::label);
	if (source == HistoryTable::kSources.end())
	{
		return nullptr;
	}
	const auto row = std::ranges::lower_bound(source->rows, number, {}, &HistoryTable::Row::number);
	return row != source->rows.end() && row->number == number ? row->handler : nullptr;
}

} // namespace velarix::ctl
