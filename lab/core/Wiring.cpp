#include "lab/core/Wiring.h"

#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

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

Wiring::~Wiring()
{
	for (std::array<Port, 2>& ports : m_ports)
	{
		for (Port& one : ports)
		{
			endRelay(one);
		}
	}
}

std::string Wiring::hardwareAddress(HostId id, Network network)
{
	char text[18];
	std::snprintf(text, sizeof text, "02:00:00:00:%02x:%02x", static_cast<unsigned>(network),
	              static_cast<unsigned>(id) + 1);
	return text;
}

void Wiring::plugIn(HostId id, const Host& host)
{
	std::string outside;
	std::string inside = "link set lo up\n";
	for (const Network network : networks)
	{
		port(id, network).bridged = true; // also one that was frozen when it was switched off
		if (onNetwork(id, network))
		{
			const std::string interface = interfaceName(network);
			outside += "link add " + portName(id, network) + " type veth peer name " + interface + " address " +
			           hardwareAddress(id, network) + " netns " + std::to_string(host.pid()) + "\nlink set " +
			           portName(id, network) + " master " + bridgeName(network) + " up\n" + isolationLine(id, network);
			inside += std::string("addr add ") + plan::addressOf(id, network) + "/" +
			          std::to_string(plan::prefixLength) + " dev " + interface + "\nlink set " + interface + " up\n";
		}
	}
	batch(outside);
	for (const Network network : networks)
	{
		port(id, network).plugged = onNetwork(id, network);
		if (port(id, network).impairment)
		{
			insertRelay(id, network);
		}
	}
	runOrThrow({{"ip", "-batch", "-"}, inside, host.insideNetwork()});
}

void Wiring::unplug(HostId id)
{
	std::string lines;
	for (const Network network : networks)
	{
		lines += onNetwork(id, network) ? "link del " + portName(id, network) + "\n" : "";
		lines += endRelay(port(id, network)) ? "link del " + bridgeEnd(id, network) + "\n" : "";
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

void Wiring::setBridged(HostId id, bool bridged)
{
	std::string lines;
	for (const Network network : networks)
	{
		port(id, network).bridged = bridged;
		const std::string line = "link set " + bridgeSide(id, network);
		lines += bridged ? line + " master " + bridgeName(network) + "\n" + isolationLine(id, network)
		                 : line + " nomaster\n";
	}
	batch(lines);
}

void Wiring::isolateNodes(Network network, bool isolated)
{
	m_isolated[indexOf(network)] = isolated;
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
	unimpair(id, network);
	Port& bad = port(id, network);
	bad.impairment = impairment;
	if (bad.plugged)
	{
		insertRelay(id, network);
	}
}

void Wiring::unimpair(HostId id, Network network)
{
	Port& good = port(id, network);
	good.impairment.reset();
	if (good.relay < 0)
	{
		return;
	}
	siginfo_t ended{};
	::waitid(P_PID, static_cast<id_t>(good.relay), &ended, WEXITED | WNOHANG | WNOWAIT);
	endRelay(good);
	good.bridged = true;
	batch("link del " + bridgeEnd(id, network) + "\nlink set " + portName(id, network) + " master " +
	      bridgeName(network) + "\n" + isolationLine(id, network));
	if (ended.si_pid != 0)
	{
		throw LabError("the relay of " + placeText(id, network) + " had ended by itself");
	}
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
	const auto number = [](auto value) { return std::to_string(value); };
	std::vector<std::string> words{"python3",
	                               "-B",
	                               VELARIX_LAB_RELAY,
	                               portName(id, network),
	                               relaySide,
	                               number(impairment.lossPercent),
	                               number(impairment.delay.count()),
	                               number(impairment.jitter.count()),
	                               number(impairment.seed)};
	if (impairment.peer)
	{
		words.push_back(hardwareAddress(*impairment.peer, network));
	}
	int ends[2];
	if (::pipe2(ends, O_CLOEXEC) != 0)
	{
		throwErrno("cannot make a pipe");
	}
	const Descriptor said(ends[0]);
	Descriptor theirs(ends[1]);
	bad.relay =
	    spawn({.argv = words, .inside = m_rootHost.insideNetwork(), .output = theirs.get(), .error = theirs.get()});
	theirs.close();
	char text[1024];
	const ssize_t count = ::read(said.get(), text, sizeof text);
	if (const std::string answer(text, count > 0 ? static_cast<std::size_t>(count) : 0); answer != "ready\n")
	{
		endRelay(bad);
		bad.impairment.reset();
		batch("link del " + bridgeSideName + "\n");
		throw LabError("the relay did not start: " + (answer.empty() ? "it said nothing (is there python3?)" : answer));
	}
	bad.bridged = true;
	batch("link set " + portName(id, network) + " nomaster\nlink set " + bridgeSideName + " master " +
	      bridgeName(network) + " up\n" + isolationLine(id, network));
}

bool Wiring::endRelay(Port& port)
{
	if (port.relay < 0)
	{
		return false;
	}
	::kill(port.relay, SIGKILL);
	::waitpid(port.relay, nullptr, 0);
	port.relay = -1;
	return true;
}

std::string Wiring::bridgeSide(HostId id, Network network)
{
	return port(id, network).relay > 0 ? bridgeEnd(id, network) : portName(id, network);
}

std::string Wiring::isolationLine(HostId id, Network network)
{
	return isNode(id) && port(id, network).bridged
	           ? "link set " + bridgeSide(id, network) + " type bridge_slave isolated " +
	                 (m_isolated[indexOf(network)] ? "on" : "off") + "\n"
	           : "";
}

void Wiring::batch(const std::string& lines) const
{
	runOrThrow({{"ip", "-batch", "-"}, lines, m_rootHost.insideNetwork()});
}

} // namespace velarix::lab
