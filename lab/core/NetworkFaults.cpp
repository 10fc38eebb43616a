/// Faults of the wires, and what a third host does.

#include "lab/core/FaultTables.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

using enum Network;

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

/// The gateway answers everybody but this node: it sends its answers to an interface that nobody has.
template <bool lost> void loseGateway(Lab& lab, HostId node)
{
	std::string commands;
	for (const auto& [network, interface] :
	     {std::pair(service, plan::serviceInterface), std::pair(communication, plan::communicationInterface)})
	{
		commands += std::string("ip neigh ") + (lost ? "replace " : "del ") + plan::addressOf(node, network) +
		            (lost ? " lladdr 02:00:00:00:00:77 nud permanent" : "") + " dev " + interface + "; ";
	}
	shell(lab.host(HostId::gateway), commands);
}

/// Each way.
/// @param percent  of the frames are lost
/// @param ms       late, with a quarter of it as jitter
template <Network network, int percent, int ms = 0> void spoilWire(Lab& lab, HostId node)
{
	lab.wiring().impair(node, network,
	                    {.lossPercent = percent, .delay = Millis(ms), .jitter = Millis(ms / 4), .seed = lab.seed()});
}

template <Network network> void repairWire(Lab& lab, HostId node)
{
	lab.wiring().unimpair(node, network);
}

/// The node does not get what the other one sends.
void makeDeaf(Lab& lab, HostId node)
{
	lab.wiring().impair(node, communication, {.lossPercent = 100, .peer = otherNode(node)});
}

template <FaultInfo::Step step> void ofTheOther(Lab& lab, HostId node)
{
	step(lab, otherNode(node));
}

/// A third host on the service network announces the address once, and answers for it.
void raiseRogue(Lab& lab, HostId /*node*/)
{
	const std::string address = plan::virtualAddress;
	const std::string interface = plan::serviceInterface;
	shell(lab.host(HostId::third), "ip addr replace " + address + "/32 dev " + interface +
	                                   "; arping -q -A -c 1 -w 1 -I " + interface + " " + address);
}

void dropRogue(Lab& lab, HostId /*node*/)
{
	shell(lab.host(HostId::third),
	      std::string("ip addr flush dev ") + plan::serviceInterface + " to " + plan::virtualAddress);
}

// What attackers send, for printf: one connection after the other, each with the next of them.

/// Nothing, too little, another prefix, binary, longer than one read.
constexpr char garbage[] = "'' '/process/' '/other/1/1/20260101000000/1/' '\\000\\377\\001\\n' "
                           "'/process/1/1' '%0300d'";
constexpr char mastersHeartbeat[] = "'/process/1/1/20260101000000/0/'";
constexpr char ask[] = "'/process/0/2/20260101000000/1/'";

template <const char* messages> std::string attackOn(HostId node)
{
	const std::string name = messages == garbage ? "garbage" : (messages == ask ? "replay-ask" : "replay-master");
	return name + "-" + nameOf(node);
}

/// The attacker is the gateway: it is on the communication network and no node. A node that
/// refuses one message gets the next one.
template <const char* messages> void attack(Lab& lab, HostId node)
{
	const std::string loop = std::string("while :; do for text in ") + messages + "; do printf \"$text\" >/dev/tcp/" +
	                         plan::addressOf(node, communication) + "/" + std::to_string(plan::heartbeatPort) +
	                         "; sleep 0.5 || exit; done; done";
	startJob(lab.host(HostId::gateway), attackOn<messages>(node), {"bash", "-c", loop});
}

template <const char* messages> void endAttack(Lab& lab, HostId node)
{
	endJob(lab.host(HostId::gateway), attackOn<messages>(node));
}

constexpr const char* well = "wire is good again";
constexpr const char* silent = "the attacker is silent";

constexpr FaultInfo table[]{
    {"service-interface", true, "service interface: cable pulled", "service interface: cable plugged in",
     setInterface<service, false>, setInterface<service, true>, nodeOn},
    {"communication-interface", true, "communication interface: cable pulled",
     "communication interface: cable plugged in", setInterface<communication, false>, setInterface<communication, true>,
     nodeOn},
    {"service-cut", false, "service network cut between the nodes", "service network joined", setCut<true, service>,
     setCut<false, service>},
    {"communication-cut", false, "communication network cut between the nodes", "communication network joined",
     setCut<true, communication>, setCut<false, communication>},
    {"both-cut", false, "both networks cut between the nodes", "both networks joined",
     setCut<true, service, communication>, setCut<false, service, communication>},
    {"gateway", false, "gateway gone", "gateway back", setGateway<false>, setGateway<true>},
    {"gateway-for", true, "gateway does not answer the node", "gateway answers the node", loseGateway<true>,
     loseGateway<false>, nodeOn},
    {"service-loss-10", true, "service interface: 10 % lost", well, spoilWire<service, 10>, repairWire<service>},
    {"service-loss-30", true, "service interface: 30 % lost", well, spoilWire<service, 30>, repairWire<service>},
    {"service-loss-50", true, "service interface: 50 % lost", well, spoilWire<service, 50>, repairWire<service>},
    {"service-delay", true, "service interface: 200 ms late", well, spoilWire<service, 0, 200>, repairWire<service>},
    {"communication-loss-10", true, "communication interface: 10 % lost", well, spoilWire<communication, 10>,
     repairWire<communication>},
    {"communication-loss-30", true, "communication interface: 30 % lost", well, spoilWire<communication, 30>,
     repairWire<communication>},
    {"communication-loss-50", true, "communication interface: 50 % lost", well, spoilWire<communication, 50>,
     repairWire<communication>},
    {"communication-delay", true, "communication interface: 200 ms late", well, spoilWire<communication, 0, 200>,
     repairWire<communication>},
    {"deaf", true, "does not get what the other node sends", well, makeDeaf, repairWire<communication>},
    {"mute", true, "the other node does not get what it sends", well, ofTheOther<makeDeaf>,
     ofTheOther<repairWire<communication>>},
    {"rogue-address", false, "a third host raises the virtual address", "the third host drops the address", raiseRogue,
     dropRogue},
    {"garbage", true, "an attacker sends garbage", silent, attack<garbage>, endAttack<garbage>},
    {"replay-master", true, "an attacker replays a master's heartbeat", silent, attack<mastersHeartbeat>,
     endAttack<mastersHeartbeat>},
    {"replay-ask", true, "an attacker replays an ask", silent, attack<ask>, endAttack<ask>},
};

} // namespace

std::span<const FaultInfo> networkFaults()
{
	return table;
}

} // namespace velarix::lab
