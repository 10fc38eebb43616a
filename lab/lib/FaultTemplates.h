/// The rows of FaultActions.h that differ by a value only.
#pragma once

#include "FaultActions.h"
#include "Lab.h"

namespace velarix::lab::action
{

template <int hours> void stepClock(Lab& lab, HostId node)
{
	lab.node(node).stepClock(std::chrono::hours(hours));
}

template <Network network, bool up> void setCard(Lab& lab, HostId node)
{
	lab.node(node).host();
	lab.wiring().setPort(node, network, up);
}

template <bool isolated> void setCut(Lab& lab, HostId /*node*/)
{
	lab.wiring().isolateNodes(Network::communication, isolated);
}

template <bool up> void setGateway(Lab& lab, HostId /*node*/)
{
	lab.wiring().setAllPorts(HostId::gateway, up);
}

template <Network network, int percent> void lose(Lab& lab, HostId node)
{
	Impairment impairment;
	impairment.lossPercent = percent;
	impairment.seed = lab.seed();
	lab.wiring().impair(node, network, impairment);
}

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

} // namespace velarix::lab::action
