// The files of both nodes, from the answers: settings, keeper.ini, packet filter and tunnel.

#include "ctl/init/NodeFiles.h"

#include <functional>
#include <map>
#include <sstream>

#include <Poco/String.h>

#include "FirewallTemplate.h"
#include "ctl/Keeper.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"
#include "inspect/Tunnel.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

namespace
{

constexpr std::size_t kLineLength = 80;

/// The text in lines that begin with "; ".
std::string comment(const std::string& text)
{
	std::istringstream words(text);
	std::string result;
	std::string line = ";";
	for (std::string word; words >> word;)
	{
		if (line.size() + 1 + word.size() > kLineLength)
		{
			result += line + "\n";
			line = ";";
		}
		line += " " + word;
	}
	return result + line + "\n";
}

std::string dropCommand(const Answers& answers)
{
	return "ip addr del " + answers.virtualIP + " dev eth0 >/dev/null 2>&1";
}

/// Silent; with a label, for "ifconfig" to list the address; announced as long
/// as it is held, in the background and without an open output.
std::string raiseCommand(const Answers& answers)
{
	const std::string address = answers.bareVirtualIP();
	return "(ip addr add " + answers.virtualIP +
	       " dev eth0 label eth0:ha; (while ip -4 -o addr show dev eth0 | grep -q " + address +
	       "/; do arping -q -A -c 1 -w 1 -I eth0 " + address + "; sleep 4; done) &) >/dev/null 2>&1";
}

using Values = std::map<std::string_view, std::string>;

/// The address first: it is dropped before a service takes its time to stop.
std::vector<std::string> programsOf(const Answers& answers)
{
	if (answers.services.empty())
	{
		return answers.programs;
	}
	std::vector<std::string> programs{keeperPath(keeper::kAddressProgram)};
	for (const auto& service : answers.services)
	{
		programs.push_back(keeperPath(std::string(keeper::kPrefix) + service.first));
	}
	return programs;
}

Values valuesOf(const Answers& answers, const std::string& node)
{
	const std::string port = std::to_string(answers.port);
	const bool plain = answers.services.empty();
	return {
	    {key::kMode, node == answers.master ? "1" : "2"},
	    {key::kThisServerIP, answers.heartbeatAddress(node)},
	    {key::kPartnerIP, answers.heartbeatAddress(otherOf(node))},
	    {key::kReceivePort, port},
	    {key::kPartnerPort, port},
	    {key::kInterval, std::to_string(answers.interval)},
	    {key::kReceivingTime, std::to_string(answers.receivingTime)},
	    {key::kGatewayIP, answers.gateway},
	    {key::kVirtualIP, answers.bareVirtualIP()},
	    {key::kStartCommand, plain ? raiseCommand(answers) : keeperCommand("raise")},
	    {key::kStopCommand, plain ? dropCommand(answers) : keeperCommand("drop")},
	    {key::kWaitingTime, std::to_string(answers.waitingTime)},
	    {key::kProcessNumber, std::to_string(programsOf(answers).size())},
	    {key::kCheckCycle, std::to_string(answers.checkCycle)},
	    {key::kKillCommand, plain ? dropCommand(answers) + "; killall -q -9" : keeperCommand("stop")},
	    {key::kLogPath, answers.log},
	    {key::kPurgeAge, answers.purgeAge},
	};
}

std::string bareName(std::string_view key)
{
	return std::string(key.substr(key.find('.') + 1));
}

std::string line(const std::string& name, const std::string& value)
{
	return name + (value.empty() ? " =" : " = " + value) + "\n";
}

std::string entry(const KeyInfo& info, const Values& values, const Answers& answers)
{
	std::string text =
	    comment(std::string(info.meaning) + (info.unit.empty() ? "" : " (" + std::string(info.unit) + ")"));
	if (info.name == key::kProcessPath)
	{
		int number = 0;
		for (const std::string& program : programsOf(answers))
		{
			text += line(bareName(programKey(++number)), program);
		}
		return text;
	}
	const auto value = values.find(info.name);
	return text + line(bareName(info.name), value == values.end() ? std::string(info.example) : value->second);
}

/// The keys of the services in words: as many as most pairs never need.
std::string furtherKeys()
{
	std::string text = "Further keys and their defaults:";
	for (const keeper::KeyInfo& info : keeper::keyTable())
	{
		if (info.section == std::string("service") && *info.fallback != '\0')
		{
			text += std::string(" ") + info.name + " (" + info.fallback + ")";
		}
	}
	return comment(text);
}

std::string reachText(const Answers& answers, const std::string& node)
{
	const std::string other = otherOf(node);
	return "\n[reachability]\n" +
	       comment("on lo while enough targets answer; the partner, whose file has own and partner exchanged, is asked "
	               "with the key beside this file") +
	       line("address", answers.gateway) +
	       line("targets", Poco::cat(std::string(" "), answers.targets.begin(), answers.targets.end())) +
	       line("needed", std::to_string(answers.needed)) + line("own", answers.heartbeatAddress(node)) +
	       line("partner", answers.heartbeatAddress(other)) + line("port", std::to_string(answers.port));
}

} // namespace

std::string settingsText(const Answers& answers, const std::string& node)
{
	const Values values = valuesOf(answers, node);
	std::string text =
	    comment("Settings of node " + node +
	            " of the pair. The agent reads them once, at its start; every key is needed. \";\" begins "
	            "a comment at the beginning of a line only. The commands run as root: keep this file "
	            "writable by root alone. The partner's file is the mirror of this one: after a change, "
	            "\"velarixctl check --partner FILE\" tells whether the two still fit.");
	std::string section;
	for (const KeyInfo& info : settingsKeys())
	{
		const std::string of(info.name.substr(0, info.name.find('.')));
		if (of != section)
		{
			section = of;
			text += "\n[" + section + "]\n";
		}
		text += entry(info, values, answers);
	}
	return text;
}

std::string keeperSettingsText(const Answers& answers, const std::string& node)
{
	std::string text = comment("What the keeper holds and runs on node " + node +
	                           ". keeper(8) has every key, \"velarixctl check\" looks through it. The partner's file "
	                           "differs in on_conflict alone.");
	text += "\n[address]\n" + line("address", answers.virtualIP) + line("interface", kServiceInterface);
	text += comment("when another host holds the address as well: defend it (the configured master), or yield");
	text += line("on_conflict", node == answers.master ? "defend" : "yield");
	text += answers.targets.empty() ? "" : reachText(answers, node);
	for (const auto& [name, keys] : answers.services)
	{
		text += "\n[service " + name + "]\n";
		for (const auto& [key, value] : keys)
		{
			text += line(key, value);
		}
	}
	return text + "\n" + furtherKeys();
}

std::string firewallRules(const Answers& answers, const std::string& node)
{
	// Outside of the tunnel the interface stays: the agent's is always eth1.
	std::map<std::string, std::string> values{
	    {"port", std::to_string(answers.port)},
	    {"address", answers.heartbeatAddress(node)},
	    {"partner", answers.heartbeatAddress(otherOf(node))},
	    {"gateway", answers.gateway},
	    {"virtual_ip", answers.bareVirtualIP()},
	};
	std::string rules = kFirewallTemplate;
	if (answers.wireguard)
	{
		rules.append("\n").append(kTunnelTemplate);
		values.insert({{"interface", std::string("\"").append(kTunnelInterface).append("\"")},
		               {"tunnel_endpoint", answers.wireAddress(otherOf(node))},
		               {"tunnel_port", std::to_string(answers.tunnelPort)},
		               {"tunnel_address", answers.heartbeatAddress(node)},
		               {"tunnel_partner", answers.heartbeatAddress(otherOf(node))},
		               {"tunnel_heartbeats", std::to_string(answers.port)}});
	}
	for (const auto& [name, value] : values)
	{
		rules = Pattern(std::string("(define ").append(name).append(" = )\\S+"))
		            .replaced(rules, std::string("$1").append(value));
	}
	return rules;
}

std::string tunnelText(const Answers& answers, const std::string& node)
{
	const std::string port = std::to_string(answers.tunnelPort);
	return "# WireGuard tunnel of the heartbeats, node " + node +
	       ". /usr/libexec/velarix-ha/tunnel adds the keys, from\n"
	       "# tunnel.key and partner.pub. After a change: systemctl reload velarix-tunnel\n\n"
	       "[Interface]\nAddress = " +
	       answers.heartbeatAddress(node) + "/32\nListenPort = " + port +
	       "\n\n[Peer]\nAllowedIPs = " + answers.heartbeatAddress(otherOf(node)) +
	       "/32\nEndpoint = " + answers.wireAddress(otherOf(node)) + ":" + port +
	       "\n# Without it a node that was restarted waits 15 s for its partner.\nPersistentKeepalive = 1\n";
}

std::string presharedKey(const std::filesystem::path& file)
{
	if (host::fileFacts(file).kind != host::FileKind::regular)
	{
		return {};
	}
	const std::string text = readInputFile(file);
	const Pattern::Groups found = Pattern("\nPresharedKey *=[^\n]*").found(text);
	return found.empty() ? "" : found[0].substr(1) + "\n";
}

std::string tunnelKey(const std::filesystem::path& directory)
{
	const std::filesystem::path file = directory / kTunnelKey;
	const bool isNew = host::fileFacts(file).kind == host::FileKind::missing;
	std::string key = isNew ? host::newTunnelKey() : Poco::trim(readInputFile(file));
	if (host::publicKeyOf(key).empty())
	{
		throw Failure(ExitCode::refused,
		              "wg makes no key of " + file.string() + ": is wireguard-tools installed? Nothing was written");
	}
	return key;
}

} // namespace velarix::ctl
