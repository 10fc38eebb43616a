#include "Fault.h"

#include "Lab.h"

namespace velarix::lab
{

namespace
{

void powerOff(Lab& lab, HostId node)
{
	lab.powerOff(node);
}

void powerOn(Lab& lab, HostId node)
{
	lab.powerOn(node);
}

void reboot(Lab& lab, HostId node)
{
	lab.powerOff(node);
	lab.powerOn(node);
}

void killAgent(Lab& lab, HostId node)
{
	lab.killAgent(node);
}

void startAgent(Lab& lab, HostId node)
{
	lab.startAgent(node);
}

void freezeAgent(Lab& lab, HostId node)
{
	lab.freezeAgent(node);
}

void thawAgent(Lab& lab, HostId node)
{
	lab.thawAgent(node);
}

void killProgram(Lab& lab, HostId node)
{
	if (lab.node(node).killService() == 0)
	{
		throw LabError("no managed program runs on node " + std::string(nameOf(node)));
	}
}

template <Network network, bool up> void setCard(Lab& lab, HostId node)
{
	lab.node(node).host();
	lab.wiring().setPort(node, network, up);
}

template <bool isolated> void setCut(Lab& lab, HostId)
{
	lab.wiring().isolateNodes(Network::communication, isolated);
}

template <bool up> void setGateway(Lab& lab, HostId)
{
	lab.wiring().setAllPorts(HostId::gateway, up);
}

} // namespace

const std::vector<FaultInfo>& allFaults()
{
	static const std::vector<FaultInfo> faults{
	    {FaultKind::powerOff, "power-off", true, "host powered off", "host powered on", powerOff, powerOn},
	    {FaultKind::reboot, "reboot", true, "host rebooted", nullptr, reboot, nullptr},
	    {FaultKind::agentKilled, "agent-kill", true, "agent killed", "agent started", killAgent, startAgent},
	    {FaultKind::agentFrozen, "agent-freeze", true, "agent frozen", "agent thawed", freezeAgent, thawAgent},
	    {FaultKind::programKilled, "program-kill", true, "managed program killed", nullptr, killProgram, nullptr},
	    {FaultKind::serviceCardPulled, "service-card", true, "service card: cable pulled",
	     "service card: cable plugged in", setCard<Network::service, false>, setCard<Network::service, true>},
	    {FaultKind::communicationCardPulled, "communication-card", true, "communication card: cable pulled",
	     "communication card: cable plugged in", setCard<Network::communication, false>,
	     setCard<Network::communication, true>},
	    {FaultKind::communicationCut, "communication-cut", false, "communication network cut between the nodes",
	     "communication network joined", setCut<true>, setCut<false>},
	    {FaultKind::gatewayGone, "gateway", false, "gateway gone", "gateway back", setGateway<false>, setGateway<true>},
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

} // namespace velarix::lab
