#include "lab/core/Wiring.h"

#include <array>
#include <cstdio>

#include <arpa/inet.h>

namespace velarix::lab
{

namespace
{

constexpr std::array<Network, 2> networks{Network::service, Network::communication};

std::string bridgeName(Network network)
{
	return network == Network::service ? "vlx-svc" : "vlx-com";
}

std::string interfaceName(Network network)
{
	return network == Network::service ? plan::serviceInterface : plan::communicationInterface;
}

/// At most 15 characters, the kernel's limit.
std::string interfaceName(const char* kind, HostId id, Network network)
{
	return std::string(kind) + nameOf(id) + (network == Network::service ? "-svc" : "-com");
}

/// The other end of a host's interface.
std::string portName(HostId id, Network network)
{
	return interfaceName("vlx-", id, network);
}

/// The virtual cable between the relay of a bad port and the bridge.
std::string relayEnd(HostId id, Network network)
{
	return interfaceName("vlr-", id, network);
}

std::string bridgeEnd(HostId id, Network network)
{
	return interfaceName("vlb-", id, network);
}

/// An interface keeps its hardware address when its host is switched off and on.
std::array<std::uint8_t, 6> hardwareAddress(HostId id, Network network)
{
	return {2, 0, 0, 0, static_cast<std::uint8_t>(network), static_cast<std::uint8_t>(static_cast<int>(id) + 1)};
}

std::string hardwareText(HostId id, Network network)
{
	char text[18];
	const std::array<std::uint8_t, 6> bytes = hardwareAddress(id, network);
	std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
	              bytes[5]);
	return text;
}

InterfaceAddress interfaceAddress(HostId id, Network network)
{
	InterfaceAddress interface;
	interface.hardware = hardwareAddress(id, network);
	::inet_pton(AF_INET, plan::addressOf(id, network), interface.internet.data());
	return interface;
}

bool onNetwork(HostId id, Network network)
{
	return plan::addressOf(id, network) != nullptr;
}

std::string upOrDown(bool up)
{
	return up ? "up" : "down";
}

std::string placeText(HostId id, Network network)
{
	return std::string(nameOf(id)) + " on the " + (network == Network::service ? "service" : "communication") +
	       " network";
}

} // namespace

Wiring::Wiring(const Host& rootHost) : m_rootHost(rootHost)
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

void Wiring::connect(const Host& host, const std::vector<Plug>& plugs)
{
	std::string outside;
	std::string inside = "link set lo up\n";
	for (const Plug& plug : plugs)
	{
		const std::string interface = interfaceName(plug.network);
		outside += "link add " + plug.port + " type veth peer name " + interface + " address " + plug.hardware +
		           " netns " + std::to_string(host.pid()) + "\nlink set " + plug.port + " master " +
		           bridgeName(plug.network) + " up\n" + (plug.id ? isolationLine(*plug.id, plug.network) : "");
		inside += "addr add " + plug.address + "/" + std::to_string(plan::prefixLength) + " dev " + interface +
		          "\nlink set " + interface + " up\n";
	}
	batch(outside);
	for (const Plug& plug : plugs)
	{
		if (plug.id)
		{
			port(*plug.id, plug.network).plugged = true;
		}
		if (plug.id && port(*plug.id, plug.network).impairment)
		{
			insertRelay(*plug.id, plug.network);
		}
	}
	runOrThrow({{"ip", "-batch", "-"}, inside, host.insideNetwork()});
}

void Wiring::plugIn(HostId id, const Host& host)
{
	std::vector<Plug> plugs;
	for (const Network network : networks)
	{
		if (onNetwork(id, network))
		{
			plugs.push_back(
			    {network, portName(id, network), plan::addressOf(id, network), hardwareText(id, network), id});
		}
	}
	connect(host, plugs);
}

void Wiring::plugInAttacker(const Host& host)
{
	connect(host, {{Network::service, "vlx-str-svc", plan::attackerServiceAddress, "02:00:00:00:00:66"},
	               {Network::communication, "vlx-str-com", plan::attackerAddress, "02:00:00:00:01:66"}});
}

void Wiring::unplug(HostId id)
{
	std::string lines;
	for (const Network network : networks)
	{
		lines += onNetwork(id, network) ? "link del " + portName(id, network) + "\n" : "";
		lines += port(id, network).relay ? "link del " + bridgeEnd(id, network) + "\n" : "";
		port(id, network).relay.reset();
		port(id, network).plugged = false;
	}
	// The kernel may be removing the interfaces of a dead host at the same time:
	// each line is tried, and one that finds its port gone is none to report.
	run({{"ip", "-force", "-batch", "-"}, lines, m_rootHost.insideNetwork()});
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
	m_isolated[static_cast<std::size_t>(network)] = isolated;
	std::string lines;
	for (const HostId node : nodes)
	{
		lines += port(node, network).plugged ? isolationLine(node, network) : "";
	}
	batch(lines);
}

void Wiring::impair(HostId id, Network network, const Impairment& impairment)
{
	if (!onNetwork(id, network) || (impairment.peer && !onNetwork(*impairment.peer, network)))
	{
		throw LabError("there is no " + placeText(onNetwork(id, network) ? *impairment.peer : id, network));
	}
	Port& bad = port(id, network);
	bad.impairment = impairment;
	if (bad.relay)
	{
		bad.relay->change(impairment, interfaceAddress(impairment.peer.value_or(id), network));
	}
	else if (bad.plugged)
	{
		insertRelay(id, network);
	}
}

void Wiring::unimpair(HostId id, Network network)
{
	Port& good = port(id, network);
	good.impairment.reset();
	if (good.relay)
	{
		good.relay.reset();
		batch("link del " + bridgeEnd(id, network) + "\nlink set " + portName(id, network) + " master " +
		      bridgeName(network) + "\n" + isolationLine(id, network));
	}
}

std::optional<Impairment> Wiring::impairmentOf(HostId id, Network network) const
{
	return port(id, network).impairment;
}

RelayCounts Wiring::relayCounts(HostId id, Network network) const
{
	const Port& asked = port(id, network);
	return asked.relay ? asked.relay->counts() : RelayCounts{};
}

Wiring::Port& Wiring::port(HostId id, Network network)
{
	return m_ports[indexOf(id)][static_cast<std::size_t>(network)];
}

const Wiring::Port& Wiring::port(HostId id, Network network) const
{
	return m_ports[indexOf(id)][static_cast<std::size_t>(network)];
}

/// The relay works before the bridge has its end of the cable: a frame goes one
/// way or the other or is lost, and none comes twice.
void Wiring::insertRelay(HostId id, Network network)
{
	Port& bad = port(id, network);
	const Impairment& impairment = bad.impairment.value();
	const std::string bridgeSideName = bridgeEnd(id, network);
	const std::string relaySide = relayEnd(id, network);
	batch("link add " + bridgeSideName + " type veth peer name " + relaySide + "\nlink set " + bridgeSideName +
	      " addrgenmode none\nlink set " + relaySide + " addrgenmode none up\n");
	bad.relay = std::make_unique<Relay>(m_rootHost, RelayPlan{portName(id, network), relaySide, impairment,
	                                                          interfaceAddress(impairment.peer.value_or(id), network)});
	batch("link set " + portName(id, network) + " nomaster\nlink set " + bridgeSideName + " master " +
	      bridgeName(network) + " up\n" + isolationLine(id, network));
}

std::string Wiring::bridgeSide(HostId id, Network network) const
{
	return port(id, network).relay ? bridgeEnd(id, network) : portName(id, network);
}

std::string Wiring::isolationLine(HostId id, Network network) const
{
	return isNode(id) ? "link set " + bridgeSide(id, network) + " type bridge_slave isolated " +
	                        (m_isolated[static_cast<std::size_t>(network)] ? "on" : "off") + "\n"
	                  : "";
}

void Wiring::batch(const std::string& lines) const
{
	runOrThrow({{"ip", "-batch", "-"}, lines, m_rootHost.insideNetwork()});
}

} // namespace velarix::lab
