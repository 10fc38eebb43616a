#include "Wiring.h"

#include <array>

namespace velarix::lab
{

namespace
{

constexpr std::array<Network, 2> networks{Network::service, Network::communication};

std::string bridgeName(Network network)
{
	return network == Network::service ? "vlx-svc" : "vlx-com";
}

std::string cardName(Network network)
{
	return network == Network::service ? plan::serviceCard : plan::communicationCard;
}

/// At most 15 characters, the kernel's limit.
std::string portName(HostId id, Network network)
{
	const std::string suffix = network == Network::service ? "-svc" : "-com";
	return std::string("vlx-") + nameOf(id) + suffix;
}

bool onNetwork(HostId id, Network network)
{
	return plan::addressOf(id, network) != nullptr;
}

std::string upOrDown(bool up)
{
	return up ? "up" : "down";
}

} // namespace

Wiring::Wiring(const Host& rack) : m_rack(rack)
{
	std::string lines;
	for (const Network network : networks)
	{
		const std::string bridge = bridgeName(network);
		lines.append("link add ").append(bridge).append(" type bridge stp_state 0 forward_delay 0\n");
		lines.append("link set ").append(bridge).append(" up\n");
	}
	try
	{
		batch(lines);
	}
	catch (const LabError& error)
	{
		throw NamespacesUnavailable(std::string("namespaces unavailable: no bridge can be made: ") + error.what());
	}
}

void Wiring::plugIn(HostId id, const Host& host)
{
	std::string outside;
	std::string inside = "link set lo up\n";
	for (const Network network : networks)
	{
		if (!onNetwork(id, network))
		{
			continue;
		}
		const std::string port = portName(id, network);
		const std::string card = cardName(network);
		outside.append("link add ").append(port).append(" type veth peer name ").append(card);
		outside.append(" netns ").append(std::to_string(host.pid())).append("\n");
		outside.append("link set ").append(port).append(" master ").append(bridgeName(network)).append(" up\n");
		inside.append("addr add ").append(plan::addressOf(id, network)).append("/");
		inside.append(std::to_string(plan::prefixLength)).append(" dev ").append(card).append("\n");
		inside.append("link set ").append(card).append(" up\n");
	}
	batch(outside);
	runOrThrow({{"ip", "-batch", "-"}, inside, host.insideNetwork()});
}

void Wiring::unplug(HostId id)
{
	std::string lines;
	for (const Network network : networks)
	{
		lines += onNetwork(id, network) ? "link del " + portName(id, network) + "\n" : "";
	}
	// The kernel may be removing the cards of a dead host at the same time:
	// each line is tried, and one that finds its port gone is none to report.
	run({{"ip", "-force", "-batch", "-"}, lines, m_rack.insideNetwork()});
}

void Wiring::setPort(HostId id, Network network, bool up)
{
	batch("link set " + portName(id, network) + " " + upOrDown(up) + "\n");
}

void Wiring::setAllPorts(HostId id, bool up)
{
	std::string lines;
	for (const Network network : networks)
	{
		lines += onNetwork(id, network) ? "link set " + portName(id, network) + " " + upOrDown(up) + "\n" : "";
	}
	batch(lines);
}

void Wiring::isolateNodes(Network network, bool isolated)
{
	std::string lines;
	for (const HostId node : nodes)
	{
		lines +=
		    "link set " + portName(node, network) + " type bridge_slave isolated " + (isolated ? "on" : "off") + "\n";
	}
	batch(lines);
}

void Wiring::batch(const std::string& lines) const
{
	runOrThrow({{"ip", "-batch", "-"}, lines, m_rack.insideNetwork()});
}

} // namespace velarix::lab
