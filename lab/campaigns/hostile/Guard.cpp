#include "lab/campaigns/hostile/Guard.h"

#include <sstream>
#include <vector>

#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

/// What stands in the documents' examples.
constexpr const char* examplePort = "7000";
constexpr const char* examplePartner = "192.0.2.2";
constexpr const char* exampleGateway = "192.0.2.254";
constexpr const char* examplePartnerHardware = "52:54:00:00:00:02";
constexpr const char* exampleGatewayHardware = "52:54:00:00:00:fe";
constexpr const char* exampleNodeA = "192.0.2.1 ";
constexpr const char* exampleHardwareA = "52:54:00:00:00:01";
constexpr const char* exampleDirectory = "/etc/sysctl.d";

/// The indented block with the line that begins so.
std::string blockWith(const std::string& document, const std::string& beginning, const std::string& what)
{
	std::istringstream stream(document);
	std::string block;
	bool found = false;
	for (std::string line; std::getline(stream, line);)
	{
		if (line.starts_with("    "))
		{
			block += line.substr(4) + "\n";
			found = found || line.substr(4).starts_with(beginning);
		}
		else if (found)
		{
			return block;
		}
		else
		{
			block.clear();
		}
	}
	if (!found)
	{
		throw LabError("the document has no " + what);
	}
	return block;
}

/// What stands in a document, and what it is in the lab.
using Replacements = std::vector<std::pair<std::string, std::string>>;

/// Each has to be there; longer ones come first, since one may begin like another.
std::string fitted(std::string text, const Replacements& replacements)
{
	for (const auto& [example, real] : replacements)
	{
		std::size_t at = text.find(example);
		if (at == std::string::npos)
		{
			throw LabError("the example in the document does not have " + example);
		}
		for (; at != std::string::npos; at = text.find(example, at + real.size()))
		{
			text.replace(at, example.size(), real);
		}
	}
	return text;
}

std::string onCommunication(HostId host)
{
	return plan::addressOf(host, Network::communication);
}

std::string nftablesIn(const std::string& document)
{
	return blockWith(document, "table inet velarix {", "rules for nftables");
}

std::string iptablesIn(const std::string& document)
{
	return blockWith(document, "iptables -N VELARIX", "rules for iptables");
}

Replacements forFirewallOf(HostId node)
{
	return {{examplePort, std::to_string(plan::heartbeatPort)}, {examplePartner, onCommunication(otherNode(node))}};
}

/// @param plain      the accepting line of the rules
/// @param beginning  of the one that knows the card
std::string withCard(const std::string& rules, const std::string& plain, const std::string& security,
                     const std::string& beginning, HostId node, const std::string& partnerHardware)
{
	std::string strong = blockWith(security, beginning, "rule with a card");
	strong.pop_back();
	Replacements replacements = forFirewallOf(node);
	replacements.insert(replacements.begin(), {plain, strong});
	replacements.emplace_back(examplePartnerHardware, partnerHardware);
	return fitted(rules, replacements);
}

void give(Lab& lab, HostId host, const std::vector<std::string>& argv, const std::string& input)
{
	runOrThrow({argv, input, lab.host(host).inside()});
}

} // namespace

const char* nameOf(Guard guard)
{
	switch (guard)
	{
	case Guard::firewall:
		return "firewall";
	case Guard::neighbours:
		return "neighbours";
	default:
		return "none";
	}
}

std::string firewallRules(const std::string& document, HostId node)
{
	return fitted(nftablesIn(document), forFirewallOf(node));
}

std::string firewallRulesWithCard(const std::string& operating, const std::string& security, HostId node,
                                  const std::string& partnerHardware)
{
	return withCard(nftablesIn(operating), "tcp dport 7000 iifname \"eth1\" ip saddr 192.0.2.2 accept", security,
	                "tcp dport 7000 iifname \"eth1\" ether saddr ", node, partnerHardware);
}

std::string iptablesCommands(const std::string& document, HostId node)
{
	return fitted(iptablesIn(document), forFirewallOf(node));
}

std::string iptablesCommandsWithCard(const std::string& operating, const std::string& security, HostId node,
                                     const std::string& partnerHardware)
{
	const std::string beginning = "iptables -A VELARIX -i eth1 -s 192.0.2.2 ";
	return withCard(iptablesIn(operating), beginning + "-j ACCEPT", security, beginning + "-m mac ", node,
	                partnerHardware);
}

std::string neighbourCommands(const std::string& document, HostId node, const std::string& partnerHardware,
                              const std::string& gatewayHardware)
{
	return fitted(blockWith(document, "ip neigh replace 192.0.2.2 ", "commands that fix a node's neighbours"),
	              {{exampleGateway, onCommunication(HostId::gateway)},
	               {examplePartner, onCommunication(otherNode(node))},
	               {examplePartnerHardware, partnerHardware},
	               {exampleGatewayHardware, gatewayHardware}});
}

std::string gatewayCommands(const std::string& document, const std::string& hardwareA, const std::string& hardwareB)
{
	return fitted(blockWith(document, "ip neigh replace 192.0.2.1 ", "commands that fix the gateway's neighbours"),
	              {{exampleNodeA, onCommunication(HostId::a) + " "},
	               {examplePartner, onCommunication(HostId::b)},
	               {exampleHardwareA, hardwareA},
	               {examplePartnerHardware, hardwareB}});
}

std::string reversePathCommands(const std::string& document, const std::string& directory)
{
	return fitted(blockWith(document, "echo net.ipv4.conf.eth0.rp_filter", "setting of the reverse path"),
	              {{exampleDirectory, directory}});
}

std::string hardwareOn(Lab& lab, HostId host)
{
	const CommandResult shown =
	    lab.run(host, {"cat", std::string("/sys/class/net/") + plan::communicationCard + "/address"});
	if (!shown.ok())
	{
		throw LabError("the card of " + std::string(nameOf(host)) + " does not tell its address: " + shown.output);
	}
	return shown.output.substr(0, shown.output.find('\n'));
}

std::string operatingDocument()
{
	return contentOf(std::filesystem::path(VELARIX_LAB_DOCUMENTS) / "operating.md");
}

std::string securityDocument()
{
	return contentOf(std::filesystem::path(VELARIX_LAB_DOCUMENTS) / "security.md");
}

void setUpGuard(Lab& lab, Guard guard)
{
	if (guard == Guard::none)
	{
		return;
	}
	for (const HostId node : nodes)
	{
		give(lab, node, {"nft", "-f", "-"}, firewallRules(operatingDocument(), node));
		if (guard == Guard::neighbours)
		{
			give(lab, node, {"sh", "-e"},
			     neighbourCommands(securityDocument(), node, hardwareOn(lab, otherNode(node)),
			                       hardwareOn(lab, HostId::gateway)));
		}
	}
	if (guard == Guard::neighbours)
	{
		give(lab, HostId::gateway, {"sh", "-e"},
		     gatewayCommands(securityDocument(), hardwareOn(lab, HostId::a), hardwareOn(lab, HostId::b)));
	}
}

long droppedByFirewall(Lab& lab, HostId node)
{
	const CommandResult shown = lab.run(node, {"nft", "list", "chain", "inet", "velarix", "input"});
	const std::string counter = "counter packets ";
	const std::size_t at = shown.output.find(counter);
	if (!shown.ok() || at == std::string::npos)
	{
		throw LabError("the firewall of " + nodeText(node) + " tells no counter: " + shown.output);
	}
	return std::stol(shown.output.substr(at + counter.size()));
}

} // namespace velarix::lab
