/// What must be known of a pair to write its settings, and how it is asked for.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velarix::ctl
{

/// The two nodes; which is which is the operator's choice.
enum class NodeName
{
	a,
	b
};

constexpr NodeName otherOf(NodeName node)
{
	return node == NodeName::a ? NodeName::b : NodeName::a;
}

/// @return "a" or "b"
std::string_view textOf(NodeName node);

/// A service that the keeper runs. What is empty is not written.
struct ServiceAnswer
{
	std::string name;
	std::string command;
	std::string unit;
	std::string user;
	std::string check;
};

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
	/// Either services, left to the keeper with the address ...
	std::vector<ServiceAnswer> services;
	/// ... or absolute paths of programs, beside commands for the address.
	std::vector<std::string> programs;

	NodeName master = NodeName::a;
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
	const std::string& heartbeatAddress(NodeName node) const
	{
		const std::string& inTunnel = node == NodeName::a ? tunnelA : tunnelB;
		return wireguard ? inTunnel : wireAddress(node);
	}
	/// @return the virtual address without its prefix
	std::string bareVirtualIP() const { return virtualIP.substr(0, virtualIP.find('/')); }
	/// @return the node's address on eth1
	const std::string& wireAddress(NodeName node) const { return node == NodeName::a ? addressA : addressB; }
};

/// The gateway of a pair with reachability targets: nobody's, and never routed (RFC 7600).
inline constexpr const char* kReachAddress = "192.0.0.8";

/// One thing that has no default.
struct Question
{
	/// The option that answers it, without "--".
	const char* option;
	const char* text;
	std::string Answers::*answer;
	/// @return what is wrong with an answer; empty when nothing is
	std::string (*fault)(const std::string& answer);
};

/// All but services and programs.
const std::vector<Question>& questions();

/// An option NAME=VALUE for the services.
struct ServiceOption
{
	/// Without "--".
	const char* option;
	/// Of the value.
	const char* type;
	const char* text;
	std::string ServiceAnswer::*answer;
	/// Of keeper.ini.
	const char* key;
};

/// Those that add a service come before those that say more of one.
const std::vector<ServiceOption>& serviceOptions();

/// Takes one "NAME=VALUE".
/// @return what is wrong with it; empty when nothing is
std::string addService(Answers& answers, const ServiceOption& option, const std::string& given);

/// Fills in what follows from the other answers.
void complete(Answers& answers);

/// @return the options whose answer is still missing, "--address-a" and so on
std::vector<std::string> missingOptions(const Answers& answers);

/// @return what is wrong with the answers that were given, as "--OPTION: why"
std::vector<std::string> faults(const Answers& answers);

/// Without services and programs asks for services. Asks on `out` for what is missing and reads the answers from `in`,
/// one a line. A wrong answer is asked for again.
/// @throws Failure usage when the input ends before
void askFor(Answers& answers, std::istream& in, std::ostream& out);

} // namespace velarix::ctl
