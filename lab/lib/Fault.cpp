#include "Fault.h"

#include "FaultActions.h"

namespace velarix::lab
{

namespace
{

using namespace action;

constexpr auto service = Network::service;
constexpr auto communication = Network::communication;

constexpr const char* wireWell = "wire is good again";

} // namespace

const std::vector<FaultInfo>& allFaults()
{
	using enum SetCommand;
	static const std::vector<FaultInfo> faults{
	    {FaultKind::powerOff, "power-off", true, "host powered off", "host powered on", powerOff, powerOn},
	    {FaultKind::reboot, "reboot", true, "host rebooted", nullptr, reboot, nullptr},
	    {FaultKind::agentKilled, "agent-kill", true, "agent killed", "agent started", killAgent, startAgent},
	    {FaultKind::agentFrozen, "agent-freeze", true, "agent frozen", "agent thawed", freezeAgent, thawAgent},
	    {FaultKind::programKilled, "program-kill", true, "managed program killed", nullptr, killProgram, nullptr},
	    {FaultKind::serviceCardPulled, "service-card", true, "service card: cable pulled",
	     "service card: cable plugged in", setCard<service, false>, setCard<service, true>},
	    {FaultKind::communicationCardPulled, "communication-card", true, "communication card: cable pulled",
	     "communication card: cable plugged in", setCard<communication, false>, setCard<communication, true>},
	    {FaultKind::communicationCut, "communication-cut", false, "communication network cut between the nodes",
	     "communication network joined", setCut<true>, setCut<false>},
	    {FaultKind::gatewayGone, "gateway", false, "gateway gone", "gateway back", setGateway<false>, setGateway<true>},
	    {FaultKind::agentTerminated, "agent-term", true, "agent terminated", "agent started", terminateAgent,
	     startAgent},
	    {FaultKind::programCrashes, "program-crash", true, "managed program crashes again and again",
	     "managed program is well", crashProgram, endCrashing},
	    {FaultKind::programCrashesEverywhere, "program-crash-both", false,
	     "managed program crashes again and again on both nodes", "managed program is well", crashEverywhere,
	     endCrashingEverywhere},
	    {FaultKind::programZombie, "program-zombie", true, "managed program is a zombie", "zombie reaped", makeZombie,
	     reapZombie},
	    {FaultKind::gatewayGoneForOne, "gateway-for", true, "gateway does not answer the node",
	     "gateway answers the node", loseGateway, findGateway},
	    {FaultKind::addressRemoved, "address-removed", true, "virtual address removed by hand", nullptr, removeAddress,
	     nullptr},
	    {FaultKind::startHangs, "start-hangs", true, "start command hangs", "start command goes on",
	     spoilCommand<start, makeHang>, repairCommand<start>},
	    {FaultKind::startFails, "start-fails", true, "start command fails silently", "start command repaired",
	     spoilCommand<start, makeFail>, repairCommand<start>},
	    {FaultKind::startPrints, "start-prints", true, "start command prints", "start command is silent",
	     spoilCommand<start, makePrint>, repairCommand<start>},
	    {FaultKind::stopFails, "stop-fails", true, "stop command fails", "stop command repaired",
	     spoilCommand<stop, makeFail>, repairCommand<stop>},
	    {FaultKind::killFails, "kill-fails", true, "kill command fails", "kill command repaired",
	     spoilCommand<SetCommand::kill, makeFail>, repairCommand<SetCommand::kill>},
	    {FaultKind::runInfoMissing, "run-info-missing", true, "run-info record removed", "run-info record restored",
	     removeRunInfo, restoreRunInfo},
	    {FaultKind::runInfoReadOnly, "run-info-read-only", true, "run-info record read-only",
	     "run-info record writable", protectRunInfo, freeRunInfo},
	    {FaultKind::diskFull, "disk-full", true, "disk full", "disk has room", fillDisk, freeDisk},
	    {FaultKind::clockAhead, "clock-ahead", true, "agent's clock two hours ahead", "agent's clock set right",
	     stepClock<2>, stepClock<0>, wantClockShim},
	    {FaultKind::clockBehind, "clock-behind", true, "agent's clock two hours behind", "agent's clock set right",
	     stepClock<-2>, stepClock<0>, wantClockShim},
	    {FaultKind::coldStart, "cold-start", false, "both hosts off, and on at once", nullptr, coldStart, nullptr},
	    {FaultKind::coldStartAlone, "cold-start-alone", true, "both hosts off, only this one on",
	     "the other host on, too", coldStartAlone, powerOnOther},
	    {FaultKind::heartbeatGarbage, "garbage", true, "a stranger sends garbage", "the stranger is silent",
	     sendGarbage, endGarbage},
	    {FaultKind::heartbeatReplay, "replay-master", true, "a stranger replays a master's heartbeat",
	     "the stranger is silent", replayMaster, endReplayMaster},
	    {FaultKind::askReplay, "replay-ask", true, "a stranger replays an ask", "the stranger is silent", replayAsk,
	     endReplayAsk},
	    {FaultKind::serviceLoss10, "service-loss-10", true, "service card: 10 % lost", wireWell, lose<service, 10>,
	     repairWire<service>},
	    {FaultKind::serviceLoss30, "service-loss-30", true, "service card: 30 % lost", wireWell, lose<service, 30>,
	     repairWire<service>},
	    {FaultKind::serviceLoss50, "service-loss-50", true, "service card: 50 % lost", wireWell, lose<service, 50>,
	     repairWire<service>},
	    {FaultKind::serviceDelay, "service-delay", true, "service card: 200 ms late", wireWell, delay<service>,
	     repairWire<service>},
	    {FaultKind::communicationLoss10, "communication-loss-10", true, "communication card: 10 % lost", wireWell,
	     lose<communication, 10>, repairWire<communication>},
	    {FaultKind::communicationLoss30, "communication-loss-30", true, "communication card: 30 % lost", wireWell,
	     lose<communication, 30>, repairWire<communication>},
	    {FaultKind::communicationLoss50, "communication-loss-50", true, "communication card: 50 % lost", wireWell,
	     lose<communication, 50>, repairWire<communication>},
	    {FaultKind::communicationDelay, "communication-delay", true, "communication card: 200 ms late", wireWell,
	     delay<communication>, repairWire<communication>},
	    {FaultKind::communicationDeaf, "deaf", true, "does not get what the other node sends", wireWell, makeDeaf,
	     repairWire<communication>},
	    {FaultKind::communicationMute, "mute", true, "the other node does not get what it sends", wireWell, makeMute,
	     [](Lab& lab, HostId node) { repairWire<communication>(lab, otherNode(node)); }},
	};
	return faults;
}

const FaultInfo& infoOf(FaultKind kind)
{
	return allFaults().at(static_cast<std::size_t>(kind));
}

std::optional<FaultKind> faultNamed(std::string_view name)
{
	for (const FaultInfo& info : allFaults())
	{
		if (name == info.name)
		{
			return info.kind;
		}
	}
	return std::nullopt;
}

std::string toText(const Fault& fault)
{
	const FaultInfo& info = infoOf(fault.kind);
	return std::string(info.name) + (info.onNode ? std::string(" of node ") + nameOf(fault.node) : std::string());
}

std::string toName(const Fault& fault)
{
	const FaultInfo& info = infoOf(fault.kind);
	return std::string(info.name) + (info.onNode ? std::string(":") + nameOf(fault.node) : std::string());
}

Fault faultFrom(std::string_view text)
{
	const std::size_t colon = text.find(':');
	const std::optional<FaultKind> kind = faultNamed(text.substr(0, colon));
	if (!kind)
	{
		throw LabError("there is no fault \"" + std::string(text.substr(0, colon)) + "\"");
	}
	Fault fault{*kind};
	const bool nodeGiven = colon != std::string_view::npos;
	if (nodeGiven != infoOf(*kind).onNode)
	{
		throw LabError(std::string(infoOf(*kind).name) +
		               (nodeGiven ? " strikes no single node" : " needs a node, for example ") +
		               (nodeGiven ? "" : std::string(infoOf(*kind).name) + ":a"));
	}
	if (nodeGiven)
	{
		const std::optional<HostId> node = hostNamed(text.substr(colon + 1));
		if (!node || !isNode(*node))
		{
			throw LabError("\"" + std::string(text) + "\" names no node (a or b)");
		}
		fault.node = *node;
	}
	return fault;
}

} // namespace velarix::lab
