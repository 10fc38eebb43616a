#include "ctl/init/NodeFiles.h"

#include <map>

#include <Poco/String.h>

#include "FirewallTemplate.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl
{

using namespace inspect;

std::string firewallRules(const Answers& answers, NodeName node)
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
		rules = Pattern(std::string("(define ").append(name).append(" = )\\S+")).replaced(rules, "$1" + value);
	}
	return rules;
}

std::string tunnelText(const Answers& answers, NodeName node)
{
	const std::string port = std::to_string(answers.tunnelPort);
	return "# WireGuard tunnel of the heartbeats, node " + std::string(textOf(node)) +
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

TunnelKeys tunnelKeys(const std::filesystem::path& directory)
{
	const std::filesystem::path file = directory / kTunnelKey;
	TunnelKeys keys;
	keys.own =
	    host::fileFacts(file).kind == host::FileKind::missing ? host::newTunnelKey() : Poco::trim(readInputFile(file));
	keys.publicKey = host::publicKeyOf(keys.own);
	if (keys.publicKey.empty())
	{
		throw Failure(ExitCode::refused,
		              "wg makes no key of " + file.string() + ": is wireguard-tools installed? Nothing was written");
	}
	return keys;
}

} // namespace velarix::ctl
