#include <algorithm>
#include <array>
#include <span>

#include "ctl/history/HistoryMachine.h"

namespace velarix::ctl
{

/// Names the class whose members the table needs.
struct HistoryTable
{
	using M = HistoryMachine;

	struct Row
	{
		int number;
		Handler handler;
	};

	static constexpr std::array kAgent{
	    Row{25, &M::agentCleans},
	};

	static constexpr std::array kReceiver{
	    Row{79, &M::serverError},
	    Row{94, &M::passBegins},
	    Row{99, &M::networkFailed},
	    Row{106, &M::givesUpWithoutPrograms},
	    Row{146, &M::nobodyConnected},
	    Row{150, &M::partnerConnects},
	    Row{164, &M::heartbeatReceived},
	    Row{182, &M::communicationCardDown},
	    Row{185, &M::communicationCardUp},
	    Row{189, &M::silenceCounted},
	    Row{192, &M::thirdSilence},
	    Row{196, &M::communicationCardDown},
	    Row{201, &M::hostWithoutHeartbeats},
	    Row{215, &M::takesOverFromSilence},
	    Row{218, &M::takesOverFromSilence},
	    Row{246, &M::nothing},
	    Row{252, &M::nothing},
	    Row{278, &M::statusOK},
	    Row{282, &M::bothMasters},
	    Row{287, &M::statusOK},
	    Row{319, &M::statusNotOK},
	    Row{324, &M::bothMasters},
	    Row{329, &M::statusOK},
	    Row{350, &M::answerSeen},
	    Row{368, &M::askAnswered},
	    Row{389, &M::askAnswered},
	    Row{403, &M::statusOK},
	    Row{411, &M::askComparedAmongSlaves},
	    Row{414, &M::takesOverAsAsked},
	    Row{418, &M::bothSlaves},
	    Row{429, &M::statusNotOK},
	    Row{434, &M::askUnanswered},
	    Row{440, &M::statusNotOK},
	    Row{443, &M::takesOverAsAsked},
	    Row{447, &M::bothSlaves},
	    Row{470, &M::takesConfiguredRole},
	    Row{473, &M::takesConfiguredRole},
	    Row{480, &M::leavesForConfiguredRole},
	    Row{505, &M::judgedAsMaster},
	    Row{508, &M::gatewayLost},
	    Row{509, &M::givesUp},
	    Row{516, &M::serviceAddressLost},
	    Row{517, &M::givesUp},
	    Row{524, &M::serviceCardLost},
	    Row{525, &M::givesUpAndAsks},
	    Row{538, &M::judgedAsSlave},
	    Row{549, &M::takesOverFromProbes},
	    Row{564, &M::programsThere},
	    Row{567, &M::programsMissing},
	};

	static constexpr std::array kSender{
	    Row{79, &M::partnerRefuses},
	    Row{124, &M::heartbeatSent},
	};

	static constexpr std::array kChecker{
	    Row{103, &M::programsCounted},
	};

	static constexpr std::array kService{
	    Row{48, &M::startsPrograms},    Row{62, &M::runsScript},
	    Row{78, &M::scriptWasRun},      Row{432, &M::addressFailed},
	    Row{496, &M::addressPinged},    Row{504, &M::addressError},
	    Row{573, &M::commandRun},       Row{668, &M::addressListed},
	    Row{680, &M::addressNotListed}, Row{760, &M::partnerAddressAnswers},
	    Row{766, &M::probeError},       Row{768, &M::partnerAddressSilent},
	    Row{783, &M::gatewayAnswers},   Row{789, &M::probeError},
	    Row{791, &M::gatewaySilent},    Row{807, &M::serviceAddressAnswers},
	    Row{814, &M::probeError},       Row{817, &M::serviceAddressSilent},
	};

	static std::span<const Row> rowsOf(std::string_view label)
	{
		if (label == "CHeartReciver")
		{
			return kReceiver;
		}
		if (label == "Utill")
		{
			return kService;
		}
		if (label == "CHeartSender")
		{
			return kSender;
		}
		if (label == "ProcessChecker")
		{
			return kChecker;
		}
		return label == "CAgent" ? std::span<const Row>(kAgent) : std::span<const Row>();
	}
};

Handler handlerOf(std::string_view label, int number)
{
	const std::span<const HistoryTable::Row> rows = HistoryTable::rowsOf(label);
	const auto row = std::lower_bound(rows.begin(), rows.end(), number,
	                                  [](const HistoryTable::Row& one, int wanted) { return one.number < wanted; });
	return row != rows.end() && row->number == number ? row->handler : nullptr;
}

} // namespace velarix::ctl
