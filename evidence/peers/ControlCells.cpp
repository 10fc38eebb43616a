#include "evidence/peers/ControlCells.h"

#include <csignal>

#include "evidence/peers/ControlStranger.h"
#include "lab/campaigns/matrix/Wishes.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

using Seed = std::uint64_t;

void powerOff(ControlPair& pair, HostId node, Seed /*seed*/)
{
	pair.powerOff(node);
}

void powerOn(ControlPair& pair, HostId node)
{
	pair.powerOn(node);
}

void powerOnOther(ControlPair& pair, HostId node)
{
	pair.powerOn(otherNode(node));
}

void reboot(ControlPair& pair, HostId node, Seed /*seed*/)
{
	pair.powerOff(node);
	pair.powerOn(node);
}

/// The one that does not hold the address first: it must not take over meanwhile.
/// One that is off already stays so.
void bothOff(ControlPair& pair)
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

void coldStart(ControlPair& pair, HostId /*node*/, Seed /*seed*/)
{
	bothOff(pair);
	for (const HostId node : nodes)
	{
		pair.powerOn(node);
	}
}

void coldStartAlone(ControlPair& pair, HostId node, Seed /*seed*/)
{
	bothOff(pair);
	pair.powerOn(node);
}

void endControl(ControlPair& pair, HostId node, int number, bool all)
{
	pair.signal(node, number, all);
	if (!waitFor([&] { return !pair.controlRuns(node); }, Millis(10000), "the control to be gone"))
	{
		throw LabError("the control of " + nodeText(node) + " does not end");
	}
}

void terminate(ControlPair& pair, HostId node, Seed /*seed*/)
{
	endControl(pair, node, SIGTERM, false);
}

void killAll(ControlPair& pair, HostId node, Seed /*seed*/)
{
	endControl(pair, node, SIGKILL, true);
}

void startAgain(ControlPair& pair, HostId node)
{
	pair.startControl(node);
}

void freeze(ControlPair& pair, HostId node, Seed /*seed*/)
{
	pair.signal(node, SIGSTOP, true);
}

void thaw(ControlPair& pair, HostId node)
{
	pair.signal(node, SIGCONT, true);
}

void killProgram(ControlPair& pair, HostId node, Seed /*seed*/)
{
	pair.killProgram(node);
}

void startProgram(ControlPair& pair, HostId node)
{
	pair.startProgram(node);
}

template <Network network> void pull(ControlPair& pair, HostId node, Seed /*seed*/)
{
	pair.lab().wiring().setPort(node, network, false);
}

template <Network network> void plug(ControlPair& pair, HostId node)
{
	pair.lab().wiring().setPort(node, network, true);
}

template <Network network> void cut(ControlPair& pair, HostId /*node*/, Seed /*seed*/)
{
	pair.lab().wiring().isolateNodes(network, true);
}

template <Network network> void join(ControlPair& pair, HostId /*node*/)
{
	pair.lab().wiring().isolateNodes(network, false);
}

void loseGateway(ControlPair& pair, HostId /*node*/, Seed /*seed*/)
{
	pair.lab().wiring().setAllPorts(HostId::gateway, false);
}

void findGateway(ControlPair& pair, HostId /*node*/)
{
	pair.lab().wiring().setAllPorts(HostId::gateway, true);
}

void removeAddress(ControlPair& pair, HostId node, Seed /*seed*/)
{
	runOrThrow({{"ip", "addr", "del", std::string(plan::virtualAddress) + "/" + std::to_string(plan::prefixLength),
	             "dev", plan::serviceCard},
	            {},
	            pair.lab().node(node).host().inside()});
}

template <Network network, int percent> void lose(ControlPair& pair, HostId node, Seed seed)
{
	Impairment impairment;
	impairment.lossPercent = percent;
	impairment.seed = seed;
	pair.lab().wiring().impair(node, network, impairment);
}

template <Network network> void delay(ControlPair& pair, HostId node, Seed seed)
{
	Impairment impairment;
	impairment.delay = Millis(200);
	impairment.jitter = Millis(50);
	impairment.seed = seed;
	pair.lab().wiring().impair(node, network, impairment);
}

template <Network network> void repairWire(ControlPair& pair, HostId node)
{
	pair.lab().wiring().unimpair(node, network);
}

void cutOneWay(ControlPair& pair, HostId from)
{
	Impairment impairment;
	impairment.lossPercent = 100;
	impairment.direction = Direction::toHost;
	impairment.peer = from;
	pair.lab().wiring().impair(otherNode(from), Network::service, impairment);
}

void makeDeaf(ControlPair& pair, HostId node, Seed /*seed*/)
{
	cutOneWay(pair, otherNode(node));
}

void makeMute(ControlPair& pair, HostId node, Seed /*seed*/)
{
	cutOneWay(pair, node);
}

void healDeaf(ControlPair& pair, HostId node)
{
	pair.lab().wiring().unimpair(node, Network::service);
}

void healMute(ControlPair& pair, HostId node)
{
	pair.lab().wiring().unimpair(otherNode(node), Network::service);
}

template <int hours> void stepClock(ControlPair& pair, HostId node, Seed /*seed*/)
{
	pair.lab().node(node).setClock(std::chrono::hours(hours));
}

void setClockRight(ControlPair& pair, HostId node)
{
	pair.lab().node(node).setClock(std::chrono::seconds(0));
}

template <StrangersWords words> void speak(ControlPair& pair, HostId /*node*/, Seed /*seed*/)
{
	letStrangerSpeak(pair, words);
}

void fallSilent(ControlPair& pair, HostId /*node*/)
{
	silenceStranger(pair);
}

constexpr Network service = Network::service;
constexpr Network communication = Network::communication;
constexpr const char* wireWell = "wire repaired";

} // namespace

const std::vector<ControlFault>& controlFaults()
{
	static const std::vector<ControlFault> faults{
	    {"power-off", true, true, "host powered off", "host powered on", powerOff, powerOn},
	    {"reboot", true, true, "host rebooted", nullptr, reboot, nullptr},
	    {"cold-start", false, false, "both hosts off, and on at once", nullptr, coldStart, nullptr},
	    {"cold-start-alone", true, false, "both hosts off, only this one on", "the other host on", coldStartAlone,
	     powerOnOther},
	    {"agent-term", true, true, "control terminated", "control started", terminate, startAgain},
	    {"agent-kill", true, true, "control killed", "control started", killAll, startAgain},
	    {"agent-freeze", true, true, "control frozen", "control thawed", freeze, thaw},
	    {"program-kill", true, true, "managed program killed", "managed program started", killProgram, startProgram},
	    {"service-card", true, true, "service card: cable pulled", "service card: cable plugged in", pull<service>,
	     plug<service>},
	    {"communication-card", true, true, "communication card: cable pulled", "communication card: cable plugged in",
	     pull<communication>, plug<communication>},
	    {"communication-cut", false, false, "communication network cut between the nodes",
	     "communication network joined", cut<communication>, join<communication>},
	    {"service-cut", false, false, "service network cut between the nodes", "service network joined", cut<service>,
	     join<service>},
	    {"deaf", true, false, "does not get what the other node sends", wireWell, makeDeaf, healDeaf},
	    {"mute", true, false, "the other node does not get what it sends", wireWell, makeMute, healMute},
	    {"gateway", false, false, "gateway gone", "gateway back", loseGateway, findGateway},
	    {"address-removed", true, false, "virtual address removed by hand", nullptr, removeAddress, nullptr},
	    {"service-loss-10", true, true, "service card: 10 % lost", wireWell, lose<service, 10>, repairWire<service>},
	    {"service-loss-30", true, true, "service card: 30 % lost", wireWell, lose<service, 30>, repairWire<service>},
	    {"service-loss-50", true, true, "service card: 50 % lost", wireWell, lose<service, 50>, repairWire<service>},
	    {"service-delay", true, true, "service card: 200 ms late", wireWell, delay<service>, repairWire<service>},
	    {"clock-ahead", true, true, "control's clock two hours ahead", "control's clock set right", stepClock<2>,
	     setClockRight, true},
	    {"clock-behind", true, true, "control's clock two hours behind", "control's clock set right", stepClock<-2>,
	     setClockRight, true},
	    {"garbage", false, false, "a stranger sends garbage", "the stranger is silent", speak<StrangersWords::garbage>,
	     fallSilent},
	    {"replay-master", false, false, "a stranger replays the master's advertisement", "the stranger is silent",
	     speak<StrangersWords::replay>, fallSilent},
	};
	return faults;
}

std::vector<ControlCell> controlCells(const std::vector<std::string>& only)
{
	std::vector<ControlCell> cells;
	for (const ControlFault& fault : controlFaults())
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
	return wished(cells, only);
}

} // namespace velarix::lab
