#include "inspect/HostTunnel.h"

#include <Poco/String.h>
#include <Poco/StringTokenizer.h>

#include "inspect/HostProgram.h"
#include "inspect/Number.h"
#include "inspect/Tunnel.h"

namespace velarix::inspect::host
{

std::optional<TunnelSession> tunnelSession()
{
	const std::string dump = outputOf({"wg", "show", kTunnelInterface, "dump"});
	// The first line is the interface's own, and holds its private key.
	const std::size_t peer = dump.find('\n');
	const Poco::StringTokenizer fields(peer == std::string::npos ? "" : dump.substr(peer + 1), "\t\n");
	if (fields.count() < 8)
	{
		return std::nullopt;
	}
	TunnelSession session;
	if (const auto seconds = numberIn<std::int64_t>(fields[4]).value_or(0); seconds > 0)
	{
		session.handshake = std::chrono::system_clock::time_point(std::chrono::seconds(seconds));
	}
	session.received = numberIn<std::uint64_t>(fields[5]).value_or(0);
	session.sent = numberIn<std::uint64_t>(fields[6]).value_or(0);
	session.endpoint = fields[2];
	return session;
}

std::string tunnelRules()
{
	return outputOf({"nft", "list", "table", "inet", "velarix_tunnel"}) +
	       outputOf({"nft", "list", "table", "inet", "velarix"});
}

std::string rulesRefusal(const std::filesystem::path& file)
{
	constexpr std::chrono::seconds kLimit{10};
	const ProgramEnd end = runProgram({.arguments = {"unshare", "-n", "nft", "-c", "-f", file.string()},
	                                   .environment = {"LC_ALL=C"},
	                                   .input = {},
	                                   .limit = kLimit});
	// What the kernel refuses may be this kernel's fault, and begins with "Could not".
	const std::size_t error = end.errors.find(": Error: ");
	const std::string front = file.string() + ":";
	if (error == std::string::npos || end.errors.find("Could not", error) == error + 9 ||
	    !end.errors.starts_with(front))
	{
		return {};
	}
	return end.errors.substr(front.size(), end.errors.find('\n') - front.size());
}

std::string newTunnelKey()
{
	return Poco::trim(outputOf({"wg", "genkey"}));
}

std::string publicKeyOf(const std::string& privateKey)
{
	// Without wg nobody would read what is written.
	return privateKey.empty() ? "" : Poco::trim(outputOf({"wg", "pubkey"}, privateKey + "\n"));
}

} // namespace velarix::inspect::host
