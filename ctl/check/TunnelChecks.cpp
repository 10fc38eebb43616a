// The WireGuard tunnel of the heartbeats: its files, and what this machine has of it.

#include "ctl/check/Checks.h"

#include <string>

#include <Poco/String.h>

#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/Tunnel.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;

constexpr std::chrono::seconds kClockSlack{2};

bool isMissing(const fs::path& path)
{
	return host::fileFacts(path).kind == host::FileKind::missing;
}

void keys(Findings& findings, const fs::path& directory)
{
	const fs::path key = directory / kTunnelKey;
	const fs::path partner = directory / kPartnerKey;
	isMissing(key) ? findings.add("tunnel-key-missing", {key}) : void();
	isMissing(partner) ? findings.add("tunnel-key-missing/partner", {partner}) : void();
	const host::FileFacts facts = host::fileFacts(key);
	if ((facts.mode & 077U) != 0 || facts.owner != 0)
	{
		findings.add("tunnel-key-open", {key});
	}
	const fs::path own = directory / kTunnelPublicKey;
	if (host::user() == 0 && !isMissing(partner) && !isMissing(own) && readInputFile(own) == readInputFile(partner))
	{
		findings.add("tunnel-own-key", {partner});
	}
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
	if (!protectTunnel(host::tunnelRules(), tunnel, findings.valueOf(key::kReceivePort), kCommunicationInterface))
	{
		findings.add("tunnel-rules", {file});
	}
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

void tunnelFiles(Findings& findings)
{
	const fs::path file = findings.file.path().parent_path() / kTunnelFile;
	const std::optional<TunnelSettings> tunnel = readTunnel(findings.file.path());
	if (!tunnel)
	{
		return;
	}
	if (tunnel->address != findings.file.text(key::kThisServerIP) ||
	    tunnel->partner != findings.file.text(key::kPartnerIP) || tunnel->endpoint.empty() || tunnel->port.empty())
	{
		findings.add("tunnel-not-used", {file});
	}
	if (tunnel->keepalive != "1")
	{
		findings.add("tunnel-keepalive", {file});
	}
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
