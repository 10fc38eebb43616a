/// What must be known of a pair to write its settings, and how it is asked for.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <nlohmann/ordered_map.hpp>

namespace CLI
{
class App;
}

namespace velarix::ctl
{

struct Context;

/// The two nodes; which is which is the operator's choice.
inline constexpr std::array kNodes{"a", "b"};

inline std::string otherOf(const std::string& node)
{
	return kNodes[node == kNodes[0] ? 1 : 0];
}

/// Keys of keeper.ini and their values, in the order of the options.
using Service = nlohmann::ordered_map<std::string, std::string>;

struct Answers
{
	/// On the communication network (eth1). Empty until it is answered.
	std::string addressA;
	std::string addressB;
	/// Answers pings as long as a node's own network works; the same for both.
	std::string gateway;
	/// Reachability targets; with them the gateway is the keeper's own address.
	std::vector<std::string> targets;
	int needed = 1;
	/// With its prefix: "198.51.100.10/24". The keeper takes it without one as well.
	std::string virtualIP;
	/// Either services by their names, left to the keeper with the address ...
	nlohmann::ordered_map<std::string, Service> services;
	/// ... or absolute paths of programs, beside commands for the address.
	std::vector<std::string> programs;

	std::string master = "a";
	int port = 7000;
	/// Seconds.
	int interval = 1;
	int receivingTime = 2;
	int waitingTime = 1;
	int checkCycle = 1;
	std::string log = "/usr/velarix/log/velarix.log";
	std::string purgeAge = "30 days";

	/// Heartbeats go through a WireGuard tunnel over the communication network.
	bool wireguard = false;
	/// Of the nodes in the tunnel: link-local, as for other tunnels between two hosts.
	std::string tunnelA = "169.254.127.1";
	std::string tunnelB = "169.254.127.2";
	/// UDP, on both nodes; not 51820, which a WireGuard of the operator has.
	int tunnelPort = 51871;
	/// Public key of the partner of the node that the files are made on; empty: not known yet.
	std::string partnerKey;

	/// @return where the node's agent listens
	const std::string& heartbeatAddress(const std::string& node) const
	{
		const std::string& inTunnel = node == kNodes[0] ? tunnelA : tunnelB;
		return wireguard ? inTunnel : wireAddress(node);
	}
	/// @return the virtual address without its prefix
	std::string bareVirtualIP() const { return virtualIP.substr(0, virtualIP.find('/')); }
	/// @return the node's address on eth1
	const std::string& wireAddress(const std::string& node) const { return node == kNodes[0] ? addressA : addressB; }
};

/// Adds the options for the answers to a verb.
void addAnswers(CLI::App& verb, Answers& answers);

/// @return whether nothing is known of the pair yet
bool nothingAnswered(const Answers& answers);

/// Fills in what follows from the other answers, and asks for what is missing then, one answer a line. A wrong one is
/// asked for again.
/// @throws Failure usage for an option whose answer is wrong, when nobody is there to be asked, and when the input
///         ends before
void complete(Answers& answers, const Context& context);

} // namespace velarix::ctl
