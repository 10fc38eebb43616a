#include "inspect/Tunnel.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include "inspect/Host.h"
#include "inspect/InputFile.h"

namespace velarix::inspect
{

namespace
{

std::string valueOf(const std::string& text, const std::string& key)
{
	std::smatch found;
	const std::regex line("(^|\n)" + key + " *= *([^\\s/:]*)");
	return std::regex_search(text, found, line) ? found[2].str() : "";
}

std::string endpointPort(const std::string& text)
{
	std::smatch found;
	return std::regex_search(text, found, std::regex("\nEndpoint *=[^\n:]*:([0-9]+)")) ? found[1].str() : "";
}

} // namespace

TunnelSettings parseTunnel(const std::string& text)
{
	return {valueOf(text, "Address"), valueOf(text, "AllowedIPs"), valueOf(text, "Endpoint"), endpointPort(text),
	        valueOf(text, "PersistentKeepalive")};
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

bool protectTunnel(const std::string& rules, const TunnelSettings& tunnel, const std::string& outside)
{
	const auto holds = [](const std::string& line, const std::string& part)
	{ return (line + " ").find(part + " ") != std::string::npos; };
	const std::string port = "udp dport " + tunnel.port;
	bool dropsOthers = false;
	std::istringstream lines(rules);
	for (std::string line; std::getline(lines, line);)
	{
		const bool accepts = holds(line, port) && holds(line, "accept");
		if (accepts && !(holds(line, "ip saddr " + tunnel.endpoint) && holds(line, "udp sport " + tunnel.port) &&
		                 holds(line, "iifname \"" + outside + "\"")))
		{
			return false;
		}
		dropsOthers = dropsOthers || (holds(line, port) && holds(line, "drop") && !holds(line, "saddr"));
	}
	return dropsOthers;
}

} // namespace velarix::inspect
