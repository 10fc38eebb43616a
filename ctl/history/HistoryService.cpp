// Address and programs, and the table of what is done at which message.

#include <algorithm>

#include "ctl/history/History.h"

namespace velarix::ctl
{

namespace
{

constexpr std::string_view kBegin = "command(";
constexpr std::string_view kEnd = ") : ";
constexpr std::string_view kServiceCarrier = "cat /sys/class/net/eth0/carrier";
constexpr std::string_view kCommunicationCarrier = "cat /sys/class/net/eth1/carrier";

struct CommandLine
{
	std::string_view command;
	std::string_view output;
};

/// Where the command ends is reported by the ones that are known: its output and the
/// command itself may hold anything.
CommandLine split(std::string_view text, const Commands& known)
{
	text.remove_prefix(text.starts_with(kBegin) ? kBegin.size() : 0);
	for (const std::string& command : {known.stop, known.start})
	{
		if (!command.empty() && text.starts_with(command + std::string(kEnd)))
		{
			return {text.substr(0, command.size()), text.substr(command.size() + kEnd.size())};
		}
	}
	const std::size_t end = text.find(kEnd);
	return end == std::string_view::npos ? CommandLine{text, {}}
	                                     : CommandLine{text.substr(0, end), text.substr(end + kEnd.size())};
}

/// 1, 10, 100, ...: an endless failure is reported now and then.
bool isRound(int count)
{
	while (count > 1 && count % 10 == 0)
	{
		count /= 10;
	}
	return count == 1;
}

} // namespace

void History::commandRun()
{
	const auto [command, output] = split(m_line->text, m_commands);
	if (command == kServiceCarrier || command == kCommunicationCarrier)
	{
		const Fault interface = command == kServiceCarrier ? Fault::serviceInterface : Fault::communicationInterface;
		output.find('1') != std::string_view::npos ? gone(interface) : found(interface);
		return;
	}
	if (m_agent.doing == Cause::agentStart && m_agent.awaited == Awaited::stop)
	{
		m_commands.stop = command;
		m_agent.awaited = Awaited::kill;
	}
	const bool isKill = !m_commands.kill.empty() && command.starts_with(m_commands.kill + " ");
	const bool killNext =
	    m_agent.awaited == Awaited::kill || (m_agent.awaited == Awaited::killThenStop && m_commands.kill.empty());
	const bool stopNext = m_agent.awaited == Awaited::stop || m_agent.awaited == Awaited::killThenStop;
	if (command == m_commands.stop || (stopNext && !killNext && !isKill))
	{
		m_commands.stop = command;
		dropped(oneLine(output));
	}
	else if (isKill || killNext)
	{
		if (!isKill)
		{
			m_commands.kill = command.substr(0, command.rfind(' '));
		}
		m_agent.killedFor = m_agent.doing;
		const std::size_t program = std::min(command.size(), m_commands.kill.size() + 1);
		emit(EventKind::programKilled, m_agent.doing, std::string(command.substr(program)), oneLine(output));
	}
	else if (m_agent.awaited == Awaited::start)
	{
		m_commands.start = command;
	}
	if (m_agent.awaited == Awaited::stop || m_agent.awaited == Awaited::start)
	{
		m_agent.awaited = Awaited::notKnown;
	}
}

/// Each start of the address begins with a stop: that tells something only when
/// the address may have been there.
void History::dropped(const std::string& output)
{
	const AddressState before = std::exchange(m_snapshot.address, AddressState::dropped);
	if (m_agent.doing != Cause::takeOver || (before != AddressState::unknown && before != AddressState::dropped))
	{
		emit(EventKind::addressDropped, m_agent.doing, {}, output);
	}
	m_agent.addressBegun.reset();
}

void History::scriptWasRun()
{
	m_agent.killedFor = Cause::none;
	emit(EventKind::programsStarted, m_snapshot.takeOver ? m_snapshot.takeOver->cause : Cause::notLogged, {}, {},
	     lasted(m_agent.scriptBegun));
	endTakeOver(EventKind::takeOverDone);
	m_agent.doing = Cause::none;
}

void History::addressNotListed()
{
	m_agent.awaited = Awaited::start;
	if (!m_agent.addressBegun)
	{
		m_agent.addressBegun = m_now;
		m_snapshot.failedStarts = 0;
		m_snapshot.address = AddressState::starting;
		emit(EventKind::addressStarting, m_agent.doing);
	}
}

void History::addressPinged()
{
	if (behind("ping: ") != "0")
	{
		addressUp("answers");
		return;
	}
	if (std::exchange(m_snapshot.address, AddressState::waiting) != AddressState::waiting)
	{
		emit(EventKind::addressWaiting);
	}
}

void History::addressFailed()
{
	const std::string tries = std::to_string(++m_snapshot.failedStarts);
	m_snapshot.address = AddressState::starting;
	m_snapshot.startOutput = oneLine(behind("can't start virtual ip: "));
	const std::string error = std::exchange(m_agent.addressError, {});
	if (isRound(m_snapshot.failedStarts))
	{
		const std::string why = !m_snapshot.startOutput.empty()
		                            ? "the start command printed \"" + m_snapshot.startOutput + "\""
		                        : error.empty() ? "the wait for the address failed"
		                                        : error;
		emit(EventKind::addressFailed, Cause::none, {}, "try " + tries + ": " + why);
	}
}

void History::addressUp(const std::string& how)
{
	const std::optional<Milliseconds> duration = lasted(m_agent.addressBegun);
	const int failed = std::exchange(m_snapshot.failedStarts, 0);
	const bool news = std::exchange(m_snapshot.address, AddressState::up) != AddressState::up;
	if (duration || news)
	{
		const std::string starts = std::to_string(failed) + (failed == 1 ? " failed start" : " failed starts");
		emit(EventKind::addressUp, Cause::none, {}, how + (failed == 0 ? "" : ", after " + starts), duration);
	}
}

void History::programsCounted()
{
	const bool running = m_line->text.ends_with('1');
	const std::optional<Reported<bool>> before = m_snapshot.programsRun;
	tell(m_snapshot.programsRun, running);
	if (before && before->value != running)
	{
		emit(running ? EventKind::programsRunning : EventKind::programsStopped,
		     running       ? Cause::none
		     : isPlanned() ? Cause::switchover
		                   : m_agent.killedFor,
		     {}, {}, since(before->since));
	}
	const bool master = m_snapshot.role && m_snapshot.role->value == Role::master;
	// One cycle without them is usual while they are being started.
	const bool missing = master && !running && !m_snapshot.takeOver;
	m_agent.cyclesWithoutPrograms = missing ? m_agent.cyclesWithoutPrograms + 1 : 0;
	if (m_agent.cyclesWithoutPrograms >= 2)
	{
		found(Fault::programs);
	}
	else if (running)
	{
		gone(Fault::programs);
	}
}

/// What is done at which message, by the line's number in each source file.
struct HistoryTable
{
	using M = History;

	struct Row
	{
		std::string_view label;
		/// 0 stands for none.
		std::array<int, 4> numbers;
		Handler handler;
	};

	static constexpr std::string_view kAgent = "CAgent";
	static constexpr std::string_view kReceiver = "CHeartReciver";
	static constexpr std::string_view kSender = "CHeartSender";
	static constexpr std::string_view kChecker = "ProcessChecker";
	static constexpr std::string_view kService = "Utill";

	static constexpr std::array kRows{
	    Row{kAgent, {25}, [](M& m) { m.begins(Cause::agentStart, M::Awaited::stop); }},
	    Row{kReceiver, {79}, [](M& m) { m.serverError(); }},
	    Row{kReceiver, {94}, [](M& m) { m.passBegins(); }},
	    Row{kReceiver, {99}, [](M& m) { m.tell(m.m_snapshot.networkOk, false); }},
	    Row{kReceiver, {106}, [](M& m) { m.givesUpWithoutPrograms(); }},
	    Row{kReceiver, {146}, [](M& m) { m.nobodyConnected(); }},
	    Row{kReceiver, {150}, [](M& m) { m.m_snapshot.silences = 0; }},
	    Row{kReceiver, {164}, [](M& m) { m.heartbeatReceived(); }},
	    Row{kReceiver, {182, 196}, [](M& m) { m.found(Fault::communicationInterface); }},
	    Row{kReceiver, {185}, [](M& m) { m.gone(Fault::communicationInterface); }},
	    Row{kReceiver,
	        {189},
	        [](M& m) { m.countSilence(m.behind("Reciver : nReceiveFailCount[").starts_with('1') ? 1 : 2); }},
	    Row{kReceiver, {192}, [](M& m) { m.countSilence(3); }},
	    Row{kReceiver, {201}, [](M& m) { m.found(Fault::heartbeats); }},
	    Row{kReceiver, {215, 218}, [](M& m) { m.takesOver(Cause::partnerSilent); }},
	    Row{kReceiver, {246, 252}, [](M& /*said at 164*/) {}},
	    Row{kReceiver, {278, 287, 329, 403}, [](M& m) { m.judged(true); }},
	    Row{kReceiver, {282}, [](M& m) { m.bothMasters(true); }},
	    Row{kReceiver, {319, 429, 440}, [](M& m) { m.judged(false); }},
	    Row{kReceiver, {324}, [](M& m) { m.bothMasters(false); }},
	    Row{kReceiver, {350}, [](M& m) { m.answerSeen(); }},
	    Row{kReceiver, {368}, [](M& m) { m.tell(m.m_snapshot.networkOk, true), m.endAsk(EventKind::askAnswered); }},
	    Row{kReceiver, {389}, [](M& m) { m.tell(m.m_snapshot.networkOk, false), m.endAsk(EventKind::askAnswered); }},
	    // The ask field of a standby's heartbeat is looked at only when this node does not
	    // ask, or has counted the last heartbeat that it waits for.
	    Row{kReceiver, {411}, [](M& m) { m.judged(true), m.endAsk(EventKind::askUnanswered); }},
	    Row{kReceiver, {414, 443}, [](M& m) { m.takesOver(Cause::partnerAsked, M::Awaited::stop); }},
	    Row{kReceiver, {418, 447}, [](M& m) { m.bothSlaves(); }},
	    Row{kReceiver, {434}, [](M& m) { m.judged(false), m.endAsk(EventKind::askUnanswered); }},
	    Row{kReceiver, {470, 473}, [](M& m) { m.takesOver(m.m_agent.resetCause); }},
	    Row{kReceiver, {480}, [](M& m) { m.leavesForConfiguredRole(); }},
	    Row{kReceiver, {505}, [](M& m) { m.judgedAs(Role::master); }},
	    Row{kReceiver, {508}, [](M& m) { m.lost(Fault::gateway, Cause::gatewaySilent); }},
	    Row{kReceiver, {509, 517}, [](M& m) { m.givesUp(M::Awaited::kill); }},
	    Row{kReceiver, {516}, [](M& m) { m.lost(Fault::serviceAddress, Cause::serviceAddressSilent); }},
	    Row{kReceiver, {524}, [](M& m) { m.lost(Fault::serviceInterface, Cause::serviceInterfaceDown); }},
	    Row{kReceiver, {525}, [](M& m) { m.givesUpAndAsks(M::Awaited::killThenStop); }},
	    Row{kReceiver, {538}, [](M& m) { m.judgedAs(Role::slave); }},
	    Row{kReceiver, {549}, [](M& m) { m.takesOver(Cause::partnerAndServiceSilent); }},
	    Row{kReceiver, {564}, [](M& m) { m.gone(Fault::programs); }},
	    Row{kReceiver, {567}, [](M& m) { m.found(Fault::programs); }},
	    Row{kSender, {79}, [](M& m) { m.partnerRefuses(); }},
	    Row{kSender, {124}, [](M& m) { m.heartbeatSent(); }},
	    Row{kChecker, {103}, [](M& m) { m.programsCounted(); }},
	    Row{kService, {48}, [](M& m) { m.begins(Cause::takeOver, M::Awaited::stop); }},
	    Row{kService, {62}, [](M& m) { m.m_agent.scriptBegun = m.m_now; }},
	    Row{kService, {78}, [](M& m) { m.scriptWasRun(); }},
	    Row{kService, {432}, [](M& m) { m.addressFailed(); }},
	    Row{kService, {496}, [](M& m) { m.addressPinged(); }},
	    Row{kService, {504}, [](M& m) { m.m_agent.addressError = oneLine(m.behind("set virtual ip failed: ")); }},
	    Row{kService, {573}, [](M& m) { m.commandRun(); }},
	    Row{kService, {668}, [](M& m) { m.addressUp("listed"); }},
	    Row{kService, {680}, [](M& m) { m.addressNotListed(); }},
	    Row{kService, {760}, [](M& m) { m.gone(Fault::partnerAddress); }},
	    Row{kService, {766, 789, 814}, [](M& m) { m.probeError(); }},
	    Row{kService, {768}, [](M& m) { m.unanswered(Fault::partnerAddress); }},
	    Row{kService, {783}, [](M& m) { m.gone(Fault::gateway); }},
	    Row{kService, {791}, [](M& m) { m.unanswered(Fault::gateway); }},
	    Row{kService, {807}, [](M& m) { m.gone(Fault::serviceAddress); }},
	    Row{kService, {817}, [](M& m) { m.unanswered(Fault::serviceAddress); }},
	};
};

Handler handlerOf(std::string_view label, int number)
{
	const auto knows = [&](const HistoryTable::Row& row)
	{ return number != 0 && std::ranges::find(row.numbers, number) != row.numbers.end() && row.label == label; };
	const auto* const row = std::ranges::find_if(HistoryTable::kRows, knows);
	return row == HistoryTable::kRows.end() ? nullptr : row->handler;
}

} // namespace velarix::ctl
