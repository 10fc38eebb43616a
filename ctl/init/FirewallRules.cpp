#include "ctl/init/NodeFiles.h"

#include <map>

#include "FirewallTemplate.h"
#include "inspect/Pattern.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl
{

std::string firewallRules(const Answers& answers, NodeName node)
{
	// Outside of the tunnel the interface stays: the agent's is always eth1.
	std::map<std::string, std::string> values{
	    {"port", std::to_string(answers.port)},
	    {"address", answers.heartbeatAddress(node)},
	    {"partner", answers.heartbeatAddress(otherOf(node))},
	    {"gateway", answers.gateway},
	    {"virtual_ip", answers.virtualIP.substr(0, answers.virtualIP.find('/'))},
	};
	std::string rules = kFirewallTemplate;
	if (answers.wireguard)
	{
		rules.append("\n").append(kTunnelTemplate);
		values.insert({{"interface", std::string("\"").append(inspect::kTunnelInterface).append("\"")},
		               {"tunnel_endpoint", answers.wireAddress(otherOf(node))},
		               {"tunnel_port", std::to_string(answers.tunnelPort)},
		               {"tunnel_address", answers.heartbeatAddress(node)},
		               {"tunnel_partner", answers.heartbeatAddress(otherOf(node))},
		               {"tunnel_heartbeats", std::to_string(answers.port)}});
	}
	for (const auto& [name, value] : values)
	{
		rules =
		    inspect::Pattern(std::string("(define ").append(name).append(" = )\\S+")).replaced(rules, "$01" + value);
	}
	return rules;
}

} // namespace velarix::ctl
