#include "lab/core/Fault.h"

#include <array>

#include "lab/core/FaultActions.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

using namespace action;
using enum SetCommand;

constexpr auto serviceInterfaces = Network::service;
constexpr auto communicationInterfaces = Network::communication;

constexpr const char* wireWell = "wire is good again";

// Actions that differ by a value only.

/// @param hours  ahead of the machine's clock
template <int hours> void stepClock(Lab& lab, HostId node)
{
	lab.node(node).stepClock(std::chrono::hours(hours));
}

template <Network network, bool up> void setInterface(Lab& lab, HostId node)
{
	lab.wiring().setPort(node, network, up);
}

template <bool isolated, Network... networks> void setCut(Lab& lab, HostId /*node*/)
{
	(lab.wiring().isolateNodes(networks, isolated), ...);
}

template <bool up> void setGateway(Lab& lab, HostId /*node*/)
{
	lab.wiring().setAllPorts(HostId::gateway, up);
}

/// Frames of the node's interface are lost, each way.
template <Network network, int percent> void lose(Lab& lab, HostId node)
{
	Impairment impairment;
	impairment.lossPercent = percent;
	impairment.seed = lab.seed();
	lab.wiring().impair(node, network, impairment);
}

/// 200 ms with 50 ms of jitter, each way.
template <Network network> void delay(Lab& lab, HostId node)
{
	Impairment impairment;
	impairment.delay = Millis(200);
	impairment.jitter = Millis(50);
	impairment.seed = lab.seed();
	lab.wiring().impair(node, network, impairment);
}

template <Network network> void repairWire(Lab& lab, HostId node)
{
	lab.wiring().unimpair(node, network);
}

template <SetCommand command, void (*spoil)(const Node&, SetCommand)> void spoilCommand(Lab& lab, HostId node)
{
	spoil(lab.node(node), command);
}

template <SetCommand command> void repairCommand(Lab& lab, HostId node)
{
	repair(lab.node(node), command);
}

template <SetCommand command> void commandWhole(Lab& lab, HostId node)
{
	requireWhole(lab.node(node), command);
}

/// What attackers send, for printf. Nothing, too little, another prefix, binary, longer than one read.
constexpr const char* garbage = "'' '/process/' '/other/1/1/20260101000000/1/' '\\000\\377\\001\\n' "
                                "'/process/1/1' '%0300d'";
constexpr const char* mastersHeartbeat = "'/process/1/1/20260101000000/0/'";
constexpr const char* ask = "'/process/0/2/20260101000000/1/'";

template <FaultKind kind, const char* const& messages> void attack(Lab& lab, HostId node)
{
	sendMessages(lab, {kind, node}, messages);
}

template <FaultKind kind> void endAttack(Lab& lab, HostId node)
{
	endMessages(lab, {kind, node});
}

template <const char* const& program, void (*act)(Lab&, HostId, const char*)> void keeperOf(Lab& lab, HostId node)
{
	act(lab, node, program);
}

/// All faults, in the order of the enumerators.
constexpr std::array<FaultInfo, 48> faults{{
    {FaultKind::powerOff, "power-off", true, "host powered off", "host powered on",
     [](Lab& lab, HostId node) { lab.powerOff(node); }, [](Lab& lab, HostId node) { lab.powerOn(node); }, nodeOn},
    {FaultKind::reboot, "reboot", true, "host rebooted", nullptr, reboot, nullptr, nodeOn},
    {FaultKind::agentKilled, "agent-kill", true, "agent killed", "agent started",
     [](Lab& lab, HostId node) { lab.killAgent(node); }, [](Lab& lab, HostId node) { lab.startAgent(node); },
     agentRuns},
    {FaultKind::agentFrozen, "agent-freeze", true, "agent frozen", "agent thawed",
     [](Lab& lab, HostId node) { lab.freezeAgent(node); }, [](Lab& lab, HostId node) { lab.thawAgent(node); },
     agentNotFrozen},
    {FaultKind::programKilled, "program-kill", true, "managed program killed", nullptr, killProgram, nullptr,
     programRuns},
    {FaultKind::serviceInterfacePulled, "service-interface", true, "service interface: cable pulled",
     "service interface: cable plugged in", setInterface<serviceInterfaces, false>,
     setInterface<serviceInterfaces, true>, nodeOn},
    {FaultKind::communicationInterfacePulled, "communication-interface", true, "communication interface: cable pulled",
     "communication interface: cable plugged in", setInterface<communicationInterfaces, false>,
     setInterface<communicationInterfaces, true>, nodeOn},
    {FaultKind::communicationCut, "communication-cut", false, "communication network cut between the nodes",
     "communication network joined", setCut<true, communicationInterfaces>, setCut<false, communicationInterfaces>},
    {FaultKind::gatewayGone, "gateway", false, "gateway gone", "gateway back", setGateway<false>, setGateway<true>},
    {FaultKind::agentTerminated, "agent-term", true, "agent terminated", "agent started",
     [](Lab& lab, HostId node) { lab.killAgent(node, SIGTERM); }, [](Lab& lab, HostId node) { lab.startAgent(node); },
     agentRuns},
    {FaultKind::programCrashes, "program-crash", true, "managed program crashes again and again",
     "managed program is well", crashProgram, endCrashing, noCrashing},
    {FaultKind::programCrashesEverywhere, "program-crash-both", false,
     "managed program crashes again and again on both nodes", "managed program is well", crashEverywhere,
     endCrashingEverywhere, noCrashingAnywhere},
    {FaultKind::programZombie, "program-zombie", true, "managed program is a zombie", "zombie reaped", makeZombie,
     reapZombie, programNoZombie},
    {FaultKind::gatewayGoneForOne, "gateway-for", true, "gateway does not answer the node", "gateway answers the node",
     loseGateway, findGateway, nodeOn},
    {FaultKind::addressRemoved, "address-removed", true, "virtual address removed by hand", nullptr, removeAddress,
     nullptr, addressHeld},
    {FaultKind::startHangs, "start-hangs", true, "start command hangs", "start command goes on",
     spoilCommand<start, makeHang>, repairCommand<start>, commandWhole<start>},
    {FaultKind::startFails, "start-fails", true, "start command fails silently", "start command repaired",
     spoilCommand<start, makeFail>, repairCommand<start>, commandWhole<start>},
    {FaultKind::startPrints, "start-prints", true, "start command prints", "start command is silent",
     spoilCommand<start, makePrint>, repairCommand<start>, commandWhole<start>},
    {FaultKind::stopFails, "stop-fails", true, "stop command fails", "stop command repaired",
     spoilCommand<stop, makeFail>, repairCommand<stop>, commandWhole<stop>},
    {FaultKind::killFails, "kill-fails", true, "kill command fails", "kill command repaired",
     spoilCommand<SetCommand::kill, makeFail>, repairCommand<SetCommand::kill>, commandWhole<SetCommand::kill>},
    {FaultKind::runInfoMissing, "run-info-missing", true, "run-info record removed", "run-info record restored",
     removeRunInfo, restoreRunInfo, runInfoThere},
    {FaultKind::runInfoReadOnly, "run-info-read-only", true, "run-info record read-only", "run-info record writable",
     protectRunInfo, freeRunInfo, runInfoWritable},
    {FaultKind::diskFull, "disk-full", true, "disk full", "disk has room", fillDisk,
     [](Lab& lab, HostId node) { lab.node(node).setDiskFull(false); }},
    {FaultKind::clockAhead, "clock-ahead", true, "agent's clock two hours ahead", "agent's clock set right",
     stepClock<2>, stepClock<0>, clockSteppable, [](LabOptions& options) { options.clockShim = true; }},
    {FaultKind::clockBehind, "clock-behind", true, "agent's clock two hours behind", "agent's clock set right",
     stepClock<-2>, stepClock<0>, clockSteppable, [](LabOptions& options) { options.clockShim = true; }},
    {FaultKind::coldStart, "cold-start", false, "both hosts off, and on at once", nullptr, coldStart, nullptr},
    {FaultKind::coldStartAlone, "cold-start-alone", true, "both hosts off, only this one on", "the other host on, too",
     coldStartAlone, [](Lab& lab, HostId node) { lab.powerOn(otherNode(node)); }},
    {FaultKind::heartbeatGarbage, "garbage", true, "an attacker sends garbage", "the attacker is silent",
     attack<FaultKind::heartbeatGarbage, garbage>, endAttack<FaultKind::heartbeatGarbage>},
    {FaultKind::heartbeatReplay, "replay-master", true, "an attacker replays a master's heartbeat",
     "the attacker is silent", attack<FaultKind::heartbeatReplay, mastersHeartbeat>,
     endAttack<FaultKind::heartbeatReplay>},
    {FaultKind::askReplay, "replay-ask", true, "an attacker replays an ask", "the attacker is silent",
     attack<FaultKind::askReplay, ask>, endAttack<FaultKind::askReplay>},
    {FaultKind::serviceLoss10, "service-loss-10", true, "service interface: 10 % lost", wireWell,
     lose<serviceInterfaces, 10>, repairWire<serviceInterfaces>},
    {FaultKind::serviceLoss30, "service-loss-30", true, "service interface: 30 % lost", wireWell,
     lose<serviceInterfaces, 30>, repairWire<serviceInterfaces>},
    {FaultKind::serviceLoss50, "service-loss-50", true, "service interface: 50 % lost", wireWell,
     lose<serviceInterfaces, 50>, repairWire<serviceInterfaces>},
    {FaultKind::serviceDelay, "service-delay", true, "service interface: 200 ms late", wireWell,
     delay<serviceInterfaces>, repairWire<serviceInterfaces>},
    {FaultKind::communicationLoss10, "communication-loss-10", true, "communication interface: 10 % lost", wireWell,
     lose<communicationInterfaces, 10>, repairWire<communicationInterfaces>},
    {FaultKind::communicationLoss30, "communication-loss-30", true, "communication interface: 30 % lost", wireWell,
     lose<communicationInterfaces, 30>, repairWire<communicationInterfaces>},
    {FaultKind::communicationLoss50, "communication-loss-50", true, "communication interface: 50 % lost", wireWell,
     lose<communicationInterfaces, 50>, repairWire<communicationInterfaces>},
    {FaultKind::communicationDelay, "communication-delay", true, "communication interface: 200 ms late", wireWell,
     delay<communicationInterfaces>, repairWire<communicationInterfaces>},
    {FaultKind::communicationDeaf, "deaf", true, "does not get what the other node sends", wireWell, makeDeaf,
     repairWire<communicationInterfaces>},
    {FaultKind::communicationMute, "mute", true, "the other node does not get what it sends", wireWell,
     [](Lab& lab, HostId node) { makeDeaf(lab, otherNode(node)); },
     [](Lab& lab, HostId node) { repairWire<communicationInterfaces>(lab, otherNode(node)); }},
    {FaultKind::hostFrozen, "host-freeze", true, "host stands still", "host goes on",
     [](Lab& lab, HostId node) { lab.freezeHost(node); }, [](Lab& lab, HostId node) { lab.thawHost(node); },
     hostNotFrozen},
    {FaultKind::programHangs, "program-hang", true, "managed program hangs", "managed program goes on",
     [](Lab& lab, HostId node) { lab.node(node).signalAll(plan::serviceProgramName, SIGSTOP); },
     [](Lab& lab, HostId node) { lab.node(node).signalAll(plan::serviceProgramName, SIGCONT); }, programRuns},
    {FaultKind::serviceCut, "service-cut", false, "service network cut between the nodes", "service network joined",
     setCut<true, serviceInterfaces>, setCut<false, serviceInterfaces>},
    {FaultKind::bothCut, "both-cut", false, "both networks cut between the nodes", "both networks joined",
     setCut<true, serviceInterfaces, communicationInterfaces>,
     setCut<false, serviceInterfaces, communicationInterfaces>},
    {FaultKind::rogueAddress, "rogue-address", false, "a third host raises the virtual address",
     "the third host drops the address", raiseRogue, dropRogue},
    {FaultKind::addressKeeperKilled, "keeper-kill-address", true, "the keeper of the address killed", nullptr,
     keeperOf<plan::addressKeeper, killKeeper>, nullptr, keeperOf<plan::addressKeeper, keeperRuns>},
    {FaultKind::serviceKeeperKilled, "keeper-kill-service", true, "the keeper of the service killed", nullptr,
     keeperOf<plan::serviceKeeper, killKeeper>, nullptr, keeperOf<plan::serviceKeeper, keeperRuns>},
    {FaultKind::markerMissing, "marker-missing", true, "the keeper's marker removed", "the marker is back",
     removeMarker, restoreMarker, hasKeeper},
}};

} // namespace

std::span<const FaultInfo> allFaults()
{
	return faults;
}

const FaultInfo& infoOf(FaultKind kind)
{
	return faults.at(static_cast<std::size_t>(kind));
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
		               (nodeGiven ? " is on no single node" : " needs a node, for example ") +
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
