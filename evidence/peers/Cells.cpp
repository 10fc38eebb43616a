#include "evidence/peers/Cells.h"

#include <csignal>

#include "evidence/peers/Attacker.h"
#include "lab/campaigns/Filter.h"
#include "lab/core/Plan.h"

namespace velarix::evidence::peers
{

namespace
{

using Seed = std::uint64_t;

void powerOff(Pair& pair, HostId node, Seed /*seed*/)
{
	pair.powerOff(node);
}

void powerOn(Pair& pair, HostId node)
{
	pair.powerOn(node);
}

void powerOnOther(Pair& pair, HostId node)
{
	pair.powerOn(otherNode(node));
}

void reboot(Pair& pair, HostId node, Seed /*seed*/)
{
	pair.powerOff(node);
	pair.powerOn(node);
}

/// The one that does not hold the address first: it must not take over meanwhile.
/// One that is off already stays so.
void bothOff(Pair& pair)
{
	const HostId owner = pair.lab().owners() == nameOf(HostId::b) ? HostId::b : HostId::a;
	for (const HostId node : {otherNode(owner), owner})
	{
		if (pair.lab().node(node).isOn())
		{
			pair.powerOff(node);
		}
	}
}

void coldStart(Pair& pair, HostId /*node*/, Seed /*seed*/)
{
	bothOff(pair);
	for (const HostId node : nodes)
	{
		pair.powerOn(node);
	}
}

void coldStartAlone(Pair& pair, HostId node, Seed /*seed*/)
{
	bothOff(pair);
	pair.powerOn(node);
}

void endPeer(Pair& pair, HostId node, int number, bool all)
{
	pair.signal(node, number, all);
	if (!waitFor([&] { return !pair.isRunning(node); }, Millis(10000), "the peer to be gone"))
	{
		throw LabError("the peer of " + nodeText(node) + " does not end");
	}
}

void terminate(Pair& pair, HostId node, Seed /*seed*/)
{
	endPeer(pair, node, SIGTERM, false);
}

void killAll(Pair& pair, HostId node, Seed /*seed*/)
{
	endPeer(pair, node, SIGKILL, true);
}

void startAgain(Pair& pair, HostId node)
{
	pair.startPeer(node);
}

void freeze(Pair& pair, HostId node, Seed /*seed*/)
{
	pair.signal(node, SIGSTOP, true);
}

void thaw(Pair& pair, HostId node)
{
	pair.signal(node, SIGCONT, true);
}

void killProgram(Pair& pair, HostId node, Seed /*seed*/)
{
	pair.killProgram(node);
}

void startProgram(Pair& pair, HostId node)
{
	pair.startProgram(node);
}

template <Network network> void pull(Pair& pair, HostId node, Seed /*seed*/)
{
	pair.lab().wiring().setPort(node, network, false);
}

template <Network network> void plug(Pair& pair, HostId node)
{
	pair.lab().wiring().setPort(node, network, true);
}

template <Network network> void cut(Pair& pair, HostId /*node*/, Seed /*seed*/)
{
	pair.lab().wiring().isolateNodes(network, true);
}

template <Network network> void join(Pair& pair, HostId /*node*/)
{
	pair.lab().wiring().isolateNodes(network, false);
}

void loseGateway(Pair& pair, HostId /*node*/, Seed /*seed*/)
{
	pair.lab().wiring().setAllPorts(HostId::gateway, false);
}

void findGateway(Pair& pair, HostId /*node*/)
{
	pair.lab().wiring().setAllPorts(HostId::gateway, true);
}

void removeAddress(Pair& pair, HostId node, Seed /*seed*/)
{
	runOrThrow({{"ip", "addr", "del", std::string(plan::virtualAddress) + "/" + std::to_string(plan::prefixLength),
	             "dev", plan::serviceCard},
	            {},
	            pair.lab().node(node).host().inside()});
}

template <Network network, int percent> void lose(Pair& pair, HostId node, Seed seed)
{
	Impairment impairment;
	impairment.lossPercent = percent;
	impairment.seed = seed;
	pair.lab().wiring().impair(node, network, impairment);
}

template <Network network> void delay(Pair& pair, HostId node, Seed seed)
{
	Impairment impairment;
	impairment.delay = Millis(200);
	impairment.jitter = Millis(50);
	impairment.seed = seed;
	pair.lab().wiring().impair(node, network, impairment);
}

template <Network network> void repairWire(Pair& pair, HostId node)
{
	pair.lab().wiring().unimpair(node, network);
}

void cutOneWay(Pair& pair, HostId from)
{
	Impairment impairment;
	impairment.lossPercent = 100;
	impairment.direction = Direction::toHost;
	impairment.peer = from;
	pair.lab().wiring().impair(otherNode(from), Network::service, impairment);
}

void makeDeaf(Pair& pair, HostId node, Seed /*seed*/)
{
	cutOneWay(pair, otherNode(node));
}

void makeMute(Pair& pair, HostId node, Seed /*seed*/)
{
	cutOneWay(pair, node);
}

void repairDeaf(Pair& pair, HostId node)
{
	pair.lab().wiring().unimpair(node, Network::service);
}

void repairMute(Pair& pair, HostId node)
{
	pair.lab().wiring().unimpair(otherNode(node), Network::service);
}

template <int hours> void stepClock(Pair& pair, HostId node, Seed /*seed*/)
{
	pair.lab().node(node).setClock(std::chrono::hours(hours));
}

void setClockRight(Pair& pair, HostId node)
{
	pair.lab().node(node).setClock(std::chrono::seconds(0));
}

template <AttackerOutput words> void speak(Pair& pair, HostId /*node*/, Seed /*seed*/)
{
	startAttacker(pair, words);
}

void fallSilent(Pair& pair, HostId /*node*/)
{
	stopAttacker(pair);
}

constexpr Network service = Network::service;
constexpr Network communication = Network::communication;
constexpr const char* wireWell = "wire repaired";

} // namespace

const std::vector<PeerFault>& peerFaults()
{
	static const std::vector<PeerFault> faults{
	    {"power-off", true, true, "host powered off", "host powered on", powerOff, powerOn},
	    {"reboot", true, true, "host rebooted", nullptr, reboot, nullptr},
	    {"cold-start", false, false, "both hosts off, and on at once", nullptr, coldStart, nullptr},
	    {"cold-start-alone", true, false, "both hosts off, only this one on", "the other host on", coldStartAlone,
	     powerOnOther},
	    {"agent-term", true, true, "peer terminated", "peer started", terminate, startAgain},
	    {"agent-kill", true, true, "peer killed", "peer started", killAll, startAgain},
	    {"agent-freeze", true, true, "peer frozen", "peer thawed", freeze, thaw},
	    {"program-kill", true, true, "managed program killed", "managed program started", killProgram, startProgram},
	    {"service-card", true, true, "service card: cable pulled", "service card: cable plugged in", pull<service>,
	     plug<service>},
	    {"communication-card", true, true, "communication card: cable pulled", "communication card: cable plugged in",
	     pull<communication>, plug<communication>},
	    {"communication-cut", false, false, "communication network cut between the nodes",
	     "communication network joined", cut<communication>, join<communication>},
	    {"service-cut", false, false, "service network cut between the nodes", "service network joined", cut<service>,
	     join<service>},
	    {"deaf", true, false, "does not get what the other node sends", wireWell, makeDeaf, repairDeaf},
	    {"mute", true, false, "the other node does not get what it sends", wireWell, makeMute, repairMute},
	    {"gateway", false, false, "gateway gone", "gateway back", loseGateway, findGateway},
	    {"address-removed", true, false, "virtual address removed by hand", nullptr, removeAddress, nullptr},
	    {"service-loss-10", true, true, "service card: 10 % lost", wireWell, lose<service, 10>, repairWire<service>},
	    {"service-loss-30", true, true, "service card: 30 % lost", wireWell, lose<service, 30>, repairWire<service>},
	    {"service-loss-50", true, true, "service card: 50 % lost", wireWell, lose<service, 50>, repairWire<service>},
	    {"service-delay", true, true, "service card: 200 ms late", wireWell, delay<service>, repairWire<service>},
	    {"clock-ahead", true, true, "peer's clock two hours ahead", "peer's clock set right", stepClock<2>,
	     setClockRight, true},
	    {"clock-behind", true, true, "peer's clock two hours behind", "peer's clock set right", stepClock<-2>,
	     setClockRight, true},
	    {"garbage", false, false, "an attacker sends garbage", "the attacker is silent", speak<AttackerOutput::garbage>,
	     fallSilent},
	    {"replay-master", false, false, "an attacker replays the master's advertisement", "the attacker is silent",
	     speak<AttackerOutput::replay>, fallSilent},
	};
	return faults;
}

std::vector<Cell> peerCells(const std::vector<std::string>& only)
{
	std::vector<Cell> cells;
	for (const PeerFault& fault : peerFaults())
	{
		const std::string name = std::string(fault.name) + "/";
		for (const HostId node : nodes)
		{
			cells.push_back({name + nameOf(node) + "/master", &fault, node, node});
			if (fault.onStandby)
			{
				cells.push_back({name + nameOf(node) + "/standby", &fault, node, otherNode(node)});
			}
		}
	}
	return filtered(cells, only);
}

} // namespace velarix::evidence::peers
