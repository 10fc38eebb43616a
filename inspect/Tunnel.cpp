#include "inspect/Tunnel.h"

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"

namespace velarix::inspect
{

TunnelSettings parseTunnel(const std::string& text)
{
	const auto found = [&](const std::string& expression)
	{
		const Pattern::Groups groups = Pattern(expression).found(text);
		return groups.empty() ? "" : groups[1];
	};
	const auto value = [&](const std::string& key) { return found("(?:^|\n)" + key + " *= *([^\\s/:]*)"); };
	return {value("Address"), value("AllowedIPs"), value("Endpoint"), found("\nEndpoint *=[^\n:]*:([0-9]+)"),
	        value("PersistentKeepalive")};
}

std::optional<TunnelSettings> readTunnel(const std::filesystem::path& settings)
{
	const std::filesystem::path file = settings.parent_path() / kTunnelFile;
	if (host::fileFacts(file).kind == host::FileKind::missing)
	{
		return std::nullopt;
	}
	return parseTunnel(readInputFile(file));
}

bool protectTunnel(const std::string& rules, const TunnelSettings& tunnel, const std::string& heartbeats,
                   const std::string& outside)
{
	const std::string port = "udp dport " + tunnel.port;
	const std::string inside = std::string("iifname \"") + kTunnelInterface + "\"";
	// Each has to be in one line.
	std::vector<std::pair<std::vector<std::string>, bool>> needed{
	    {{"tcp dport " + heartbeats, inside, "accept"}, false},
	    {{port, "drop"}, false},
	    {{"ip daddr " + tunnel.address, "iifname !=", "drop"}, false},
	    {{"ip saddr " + tunnel.partner, "iifname != \"" + std::string(kTunnelInterface) + "\"", "drop"}, false},
	    {{"udp sport " + tunnel.port, "oifname != \"" + outside + "\"", "drop"}, false},
	    {{"ip daddr " + tunnel.partner, "oifname != \"" + std::string(kTunnelInterface) + "\"", "drop"}, false},
	    {{"tcp dport " + heartbeats, "oifname \"" + std::string(kTunnelInterface) + "\"", "meta skuid != 0", "reject"},
	     false},
	};
	std::istringstream lines(rules);
	for (std::string line; std::getline(lines, line);)
	{
		const auto holds = [&](const std::string& part) { return (line + " ").find(part + " ") != std::string::npos; };
		if (holds(port) && holds("accept") &&
		    !(holds("ip saddr " + tunnel.endpoint) && holds("udp sport " + tunnel.port) &&
		      holds("iifname \"" + outside + "\"")))
		{
			return false;
		}
		for (auto& [parts, found] : needed)
		{
			found = found || (std::ranges::all_of(parts, holds) &&
			                  !(parts.front() == port && line.find("saddr") != std::string::npos));
		}
	}
	return std::ranges::all_of(needed, [](const auto& rule) { return rule.second; });
}

} // namespace velarix::inspect
