#include "lab/campaigns/hostile/Attacks.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>
#include <sstream>
#include <vector>

#include "inspect/Pattern.h"
#include "lab/core/Basics.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

constexpr std::array<const char*, 5> names{"none", "port", "firewall", "neighbours", "tunnel"};

std::string onCommunication(HostId host)
{
	return plan::addressOf(host, Network::communication);
}

std::string shippedFile(const char* name)
{
	return contentOf(std::filesystem::path(VELARIX_LAB_FIREWALL) / name);
}

void replace(std::string& text, const std::string& pattern, const std::string& replacement)
{
	const inspect::Pattern line(pattern);
	if (line.found(text).empty())
	{
		throw LabError("the rules do not have " + pattern);
	}
	text = line.replaced(text, replacement);
}

struct Value
{
	const char* nft;
	const char* iptables;
	std::string value;
};

std::vector<Value> valuesOf(HostId node)
{
	return {{"interface", "INTERFACE", plan::communicationInterface},
	        {"port", "PORT", std::to_string(plan::heartbeatPort)},
	        {"address", "ADDRESS", onCommunication(node)},
	        {"partner", "PARTNER", onCommunication(otherNode(node))},
	        {"gateway", "GATEWAY", onCommunication(HostId::gateway)},
	        {"virtual_ip", "VIRTUAL_IP", plan::virtualAddress}};
}

/// Removes the "#" of the rule for that address of the example.
void enableHardwareRule(std::string& rules, const std::string& example, const std::string& address,
                        const std::string& hardware)
{
	if (!hardware.empty())
	{
		replace(rules, "#(iifname .* )" + example + "( ether saddr != )\\S+", "$1" + address + "$2" + hardware);
	}
}

} // namespace

const char* nameOf(Mitigation mitigation)
{
	return names.at(static_cast<std::size_t>(mitigation));
}

Mitigation mitigationNamed(const std::string& name)
{
	const auto* found = std::ranges::find(names, name);
	if (found == names.end())
	{
		throw LabError("there is no mitigation \"" + name + "\"");
	}
	return static_cast<Mitigation>(found - names.begin());
}

std::string nftRules(HostId node, const HardwareAddresses& hardware)
{
	std::string rules = shippedFile("velarix-ha.nft");
	for (const auto& [name, unused, value] : valuesOf(node))
	{
		replace(rules, std::string("(define ") + name + " = )\\S+", "$1" + value);
	}
	enableHardwareRule(rules, "192\\.0\\.2\\.2", onCommunication(otherNode(node)), hardware.partner);
	enableHardwareRule(rules, "192\\.0\\.2\\.254", onCommunication(HostId::gateway), hardware.gateway);
	return rules;
}

std::string iptablesRules(HostId node, const HardwareAddresses& hardware)
{
	std::string rules = shippedFile("velarix-ha.iptables");
	for (const auto& [unused, name, value] : valuesOf(node))
	{
		replace(rules, std::string("(\n") + name + "=)\\S+", "$1" + value);
	}
	replace(rules, "(PARTNER_MAC=)\n", "$1" + hardware.partner + "\n");
	replace(rules, "(GATEWAY_MAC=)\n", "$1" + hardware.gateway + "\n");
	return rules;
}

void fixNeighbours(Lab& lab, HostId host)
{
	for (const HostId other : {HostId::a, HostId::b, HostId::gateway})
	{
		if (other != host)
		{
			shell(lab.host(host), "ip neigh replace " + onCommunication(other) + " lladdr " + hardwareOf(other) +
			                          " nud permanent dev " + plan::communicationInterface);
		}
	}
}

void applyMitigation(Lab& lab, Mitigation mitigation)
{
	// The lab has brought up the tunnel with its rules.
	if (mitigation == Mitigation::none || mitigation == Mitigation::tunnel)
	{
		return;
	}
	const bool fixed = mitigation == Mitigation::neighbours;
	for (const HostId node : nodes)
	{
		const HardwareAddresses hardware =
		    fixed ? HardwareAddresses{hardwareOf(otherNode(node)), hardwareOf(HostId::gateway)} : HardwareAddresses{};
		const std::string portAlone = mitigation == Mitigation::port ? "flush chain inet velarix probes\n" : "";
		runOrThrow({{"nft", "-f", "-"}, nftRules(node, hardware) + portAlone, lab.host(node).inside()});
	}
	for (const HostId host : {HostId::a, HostId::b, HostId::gateway})
	{
		if (fixed)
		{
			fixNeighbours(lab, host);
		}
	}
}

long droppedByFirewall(Lab& lab, HostId node)
{
	std::istringstream counters(
	    shell(lab.host(node), R"(nft list ruleset | sed -n 's/.*counter packets \([0-9]*\).*/\1/p')"));
	const std::vector<long> found{std::istream_iterator<long>(counters), {}};
	if (found.empty())
	{
		throw LabError("the firewall of " + nodeText(node) + " has no counter");
	}
	return std::accumulate(found.begin(), found.end(), 0L);
}

} // namespace velarix::lab::hostile
