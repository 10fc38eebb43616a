/// The fixed plan of a lab: addresses, interface names, paths. Every lab uses the
/// same ones, since each lives in namespaces of its own.
///
/// Service network 192.0.2.0/24 (eth0): both nodes, gateway, client, virtual IP.
/// Communication network 198.51.100.0/24 (eth1): both nodes and the gateway.
///
/// The gateway stands on the communication network too, and that address is the
/// one the nodes ping: the agent's check of its "own communication IP" is a ping
/// of the configured gateway, so it fails when the communication interface is pulled
/// and goes on answering while only the path between the two nodes is cut. With the keeper
/// both addresses of the gateway are reachability targets, of which one is enough.
#pragma once

#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab
{

enum class Network
{
	service,
	communication
};

namespace plan
{

inline constexpr const char* virtualAddress = "192.0.2.100";
inline constexpr int prefixLength = 24;
inline constexpr int heartbeatPort = 15001;
inline constexpr int servicePort = 8080;

inline constexpr const char* serviceInterface = "eth0";
inline constexpr const char* communicationInterface = "eth1";

/// The managed service inside a node. Its file name stays below 16 characters:
/// the agent knows a program by the short name the kernel keeps.
inline constexpr const char* serviceProgram = "/usr/velarix/app/labhttpd";
inline constexpr const char* serviceProgramName = "labhttpd";

/// The keeper, the links that the agent starts, and the process names of these.
inline constexpr const char* keeperProgram = "/usr/libexec/velarix-ha/keeper";
inline constexpr const char* addressLink = "/usr/velarix/run/ha-address";
inline constexpr const char* serviceLink = "/usr/velarix/run/ha-web";
inline constexpr const char* addressKeeper = "ha-address";
inline constexpr const char* serviceKeeper = "ha-web";
inline constexpr const char* reachKeeper = "ha-reach";
/// On lo of each node while a target answers: with the keeper, what the agent pings.
inline constexpr const char* reachAddress = "192.0.0.8";
inline constexpr const char* reachKey = "/usr/velarix/bin/ini/reachability.key";
inline constexpr const char* keeperSettings = "/usr/velarix/bin/ini/keeper.ini";

inline constexpr const char* tunnelProgram = "/usr/libexec/velarix-ha/tunnel";
inline constexpr const char* tunnelInterface = "wg-ha";
inline constexpr const char* tunnelKey = "/usr/velarix/bin/ini/tunnel.key";
inline constexpr const char* tunnelPublicKey = "/usr/velarix/bin/ini/tunnel.pub";
inline constexpr const char* partnerKey = "/usr/velarix/bin/ini/partner.pub";
inline constexpr const char* firewallFile = "/usr/velarix/bin/ini/firewall.nft";

inline constexpr const char* agentProgram = "/usr/velarix/bin/VelarixHA";
inline constexpr const char* agentName = "VelarixHA";
inline constexpr const char* settingsFile = "/usr/velarix/bin/ini/config.ini";
inline constexpr const char* runInfoFile = "/usr/velarix/bin/log/runinfo.txt";
inline constexpr const char* logFile = "/usr/velarix/log/velarix.log";
/// Preloaded into an agent whose wall clock is to be stepped, and the file with
/// the difference in seconds.
inline constexpr const char* clockShim = "/usr/velarix/app/liblabclock.so";
inline constexpr const char* clockDifferenceFile = "/usr/velarix/app/clock-difference";
/// Standard output and error of the agent.
inline constexpr const char* consoleFile = "/usr/velarix/log/console.txt";

/// @return the host's address on that network; null when it is not on it
constexpr const char* addressOf(HostId host, Network network)
{
	const bool service = network == Network::service;
	switch (host)
	{
	case HostId::a:
		return service ? "192.0.2.11" : "198.51.100.11";
	case HostId::b:
		return service ? "192.0.2.12" : "198.51.100.12";
	case HostId::gateway:
		return service ? "192.0.2.1" : "198.51.100.1";
	case HostId::client:
		return service ? "192.0.2.50" : nullptr;
	case HostId::third:
		return service ? "192.0.2.66" : "198.51.100.66";
	}
	return nullptr;
}

/// The commands that an operator sets.
enum class SetCommand
{
	start, ///< of the virtual address
	stop,  ///< of the virtual address
	kill   ///< of the managed programs
};

/// A piece of shell on the node's disk, which the command includes first. There is none until a
/// fault puts one there.
inline std::string hookPath(SetCommand command)
{
	const char* name = command == SetCommand::start ? "start" : (command == SetCommand::stop ? "stop" : "kill");
	return std::string("/usr/velarix/app/on-") + name;
}

/// @return the node's address in the tunnel, as "velarixctl init" chooses it
constexpr const char* tunnelAddressOf(HostId node)
{
	return node == HostId::a ? "169.254.127.1" : "169.254.127.2";
}

} // namespace plan

} // namespace velarix::lab
