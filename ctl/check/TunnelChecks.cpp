// The packet filter beside the settings, which its unit loads with the agent, and the WireGuard tunnel of the
// heartbeats: its files, and what this machine has of it.

#include <array>
#include <set>

#include <Poco/String.h>
#include <Poco/StringTokenizer.h>

#include "ctl/check/Checks.h"
#include "ctl/init/NodeFiles.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl::checks
{

namespace
{

namespace fs = std::filesystem;

constexpr char kDirectory[] = "/usr/velarix/bin/ini";
constexpr std::array<std::pair<std::string_view, const char*>, 5> kDefines{{
    {"port", key::kReceivePort},
    {"address", key::kThisServerIP},
    {"partner", key::kPartnerIP},
    {"gateway", key::kGatewayIP},
    {"virtual_ip", key::kVirtualIP},
}};

/// @return the value of a setting; empty for none, which has a finding of its own
std::string wanted(const Findings& findings, const std::string& key)
{
	if (key == key::kReceivePort)
	{
		return std::to_string(findings.file.integer(key).value_or(0));
	}
	const std::string text = findings.valueOf(key);
	return isVirtualAddress(text) ? text : "";
}

/// What init's file defines; rules of the operator's own without these are not judged.
void values(Findings& findings, const fs::path& file, const std::string& rules)
{
	static const inspect::Pattern kLine(R"((?:^|\n)[ \t]*define (\w+) = ([^#\n$/]+))");
	std::string what;
	std::set<std::string> wrong;
	for (const inspect::Pattern::Groups& line : kLine.all(rules))
	{
		const auto define = std::ranges::find(kDefines, line.at(1), &std::pair<std::string_view, const char*>::first);
		const std::string value = define == kDefines.end() ? "" : wanted(findings, define->second);
		// It may be a set.
		const Poco::StringTokenizer words(line.at(2), " \t{},");
		if (!value.empty() && !words.has(value))
		{
			what += (what.empty() ? "" : ", ") + std::string(define->second) + " is " + value + " and not " +
			        Poco::trim(line.at(2));
			wrong.insert(define->second);
		}
	}
	if (!what.empty())
	{
		const bool blocks = wrong.contains(key::kThisServerIP) || wrong.contains(key::kPartnerIP);
		const char* open = wrong.contains(key::kReceivePort)
		                       ? "they do not protect the pair: whoever reaches the heartbeat port moves the service"
		                       : "they protect another address: whoever answers in this one's place is not held up";
		findings.add(blocks ? Severity::error : Severity::warning, "firewall-of-other-settings", {file}, what,
		             blocks ? "the partner's heartbeats are dropped: each node takes the other for dead" : open);
	}
}

constexpr std::chrono::seconds kClockSlack{2};

void keys(Findings& findings, const fs::path& directory)
{
	const fs::path key = directory / kTunnelKey;
	const fs::path partner = directory / kPartnerKey;
	findings.addWhen(isMissing(key), "tunnel-key-missing", Place{key}, kTunnelKey,
	                 "systemctl start velarix-tunnel makes it");
	findings.addWhen(isMissing(partner), "tunnel-key-missing", Place{partner}, kPartnerKey,
	                 "copy tunnel.pub of the other node to it");
	const host::FileFacts facts = host::fileFacts(key);
	findings.addWhen((facts.mode & 077U) != 0 || facts.owner != 0, "tunnel-key-open", Place{key});
	const fs::path own = directory / kTunnelPublicKey;
	findings.addWhen(host::user() == 0 && !isMissing(partner) && !isMissing(own) &&
	                     readInputFile(own) == readInputFile(partner),
	                 "tunnel-own-key", Place{partner});
}

void outside(Findings& findings, const TunnelSettings& tunnel, const fs::path& file)
{
	const std::optional<std::string> way = host::interfaceTo(tunnel.endpoint);
	if (way != kCommunicationInterface)
	{
		findings.add("tunnel-endpoint-route", {file}, tunnel.endpoint, way ? " leave by " + *way : " have no route");
	}
	if (host::user() != 0)
	{
		findings.notChecked("the tunnel's rules and handshake", "only root may ask");
		return;
	}
	findings.addWhen(
	    !protectTunnel(host::tunnelRules(), tunnel, findings.valueOf(key::kReceivePort), kCommunicationInterface),
	    "tunnel-rules", Place{file});
}

/// @return whether a handshake has been made with the keys that are in place (packaging/tunnel)
bool isProven(const fs::path& directory, const fs::path& record)
{
	try
	{
		const auto keyIn = [&](const char* name) { return Poco::trim(readInputFile(directory / name)); };
		return Poco::trim(readInputFile(record)) == keyIn(kTunnelPublicKey) + "\n" + keyIn(kPartnerKey);
	}
	catch (const Failure&)
	{
		return false;
	}
}

/// @return what is dated in the future, of the last handshake and the files that the node itself writes: on
///         one that has just booted the log is the latest; empty for nothing
std::string datedAhead(const Findings& findings, const std::optional<host::TunnelSession>& now,
                       const fs::path& directory, const Paths& paths)
{
	const auto soon = std::chrono::system_clock::now() + kClockSlack;
	if (now && now->handshake > soon)
	{
		return "the last handshake";
	}
	const fs::path log = findings.valueOf(key::kLogPath);
	for (const fs::path& path : {paths.belowIfAny(log), paths.belowIfAny(kTunnelProven), directory / kTunnelKey})
	{
		if (host::changedAt(path) > soon)
		{
			return "the last change of " + path.string();
		}
	}
	return {};
}

void handshake(Findings& findings, const TunnelSettings& tunnel, const fs::path& file, const Paths& paths)
{
	const std::optional<host::TunnelSession> now = host::tunnelSession();
	if (const std::string what = datedAhead(findings, now, file.parent_path(), paths); !what.empty())
	{
		findings.add("tunnel-clock", {file}, what);
	}
	if (now && !tunnel.endpoint.empty() && now->endpoint != tunnel.endpoint + ":" + tunnel.port)
	{
		findings.add("tunnel-endpoint-moved", {file}, now->endpoint);
	}
}

void session(Findings& findings, const TunnelSettings& tunnel, const fs::path& file, const Paths& paths)
{
	if (!host::interface(kTunnelInterface).present)
	{
		findings.add("tunnel-missing", {file});
		return;
	}
	handshake(findings, tunnel, file, paths);
	if (host::answersPing(tunnel.endpoint, 3).value_or(false) && !host::answersPing(tunnel.partner, 3).value_or(true))
	{
		// Anybody on the wire can answer at the endpoint: that must not keep a survivor from starting.
		const bool proven = isProven(file.parent_path(), paths.belowIfAny(kTunnelProven));
		findings.add(proven ? Severity::warning : Severity::error, "tunnel-down", {file}, tunnel.endpoint);
	}
}

} // namespace

void firewall(Findings& findings, const Paths& paths)
{
	const fs::path file = findings.file.path() == paths.settings
	                          ? paths.belowIfAny(fs::path(kDirectory) / kFirewallFile)
	                          : findings.file.path().parent_path() / kFirewallFile;
	const std::optional<std::string> rules = isFile(file) ? findings.read(file) : std::nullopt;
	if (!rules)
	{
		return;
	}
	values(findings, file, *rules);
	if (toolPath(paths, "nft").empty())
	{
		findings.add("firewall-without-nft", {file});
	}
	else if (const std::string refusal = paths.elsewhere() ? "" : host::rulesRefusal(file); !refusal.empty())
	{
		findings.add("firewall-broken", {file}, refusal);
	}
}

void tunnelFiles(Findings& findings)
{
	const fs::path file = findings.file.path().parent_path() / kTunnelFile;
	const std::optional<TunnelSettings> tunnel = readTunnel(findings.file.path());
	if (!tunnel)
	{
		return;
	}
	findings.addWhen(tunnel->address != findings.file.text(key::kThisServerIP) ||
	                     tunnel->partner != findings.file.text(key::kPartnerIP) || tunnel->endpoint.empty() ||
	                     tunnel->port.empty(),
	                 "tunnel-not-used", Place{file});
	findings.addWhen(tunnel->keepalive != "1", "tunnel-keepalive", Place{file});
	keys(findings, file.parent_path());
}

void tunnelMachine(Findings& findings, const Paths& paths)
{
	if (const std::optional<TunnelSettings> tunnel = readTunnel(findings.file.path()))
	{
		const fs::path file = findings.file.path().parent_path() / kTunnelFile;
		outside(findings, *tunnel, file);
		session(findings, *tunnel, file, paths);
	}
}

} // namespace velarix::ctl::checks
