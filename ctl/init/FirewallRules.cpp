#include "ctl/init/FirewallRules.h"

#include <map>
#include <regex>

#include "FirewallTemplate.h"

namespace velarix::ctl
{

std::string firewallRules(const Answers& answers, NodeName node)
{
	const bool first = node == NodeName::a;
	// The interface stays: the agent's is always eth1.
	const std::map<std::string, std::string> values{
	    {"port", std::to_string(answers.port)},
	    {"address", first ? answers.addressA : answers.addressB},
	    {"partner", first ? answers.addressB : answers.addressA},
	    {"gateway", answers.gateway},
	    {"virtual_ip", answers.virtualIP.substr(0, answers.virtualIP.find('/'))},
	};
	std::string rules = kFirewallTemplate;
	for (const auto& [name, value] : values)
	{
		rules = std::regex_replace(rules, std::regex(std::string("(define ").append(name).append(" = )\\S+")),
		                           "$01" + value);
	}
	return rules;
}

} // namespace velarix::ctl
