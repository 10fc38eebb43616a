// The WireGuard tunnel of the heartbeats: its files, and what this machine has of it.

#include "ctl/check/Checks.h"

#include <string>

#include <Poco/String.h>

#include "inspect/ExitCode.h"
#include "inspect/HostTunnel.h"
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

constexpr char kNoHeartbeat[] = "no heartbeat passes: each node takes the other for dead, and both hold the address";
constexpr std::chrono::seconds kClockSlack{2};

bool isMissing(const fs::path& path)
{
	return host::fileFacts(path).kind == host::FileKind::missing;
}

void keys(Findings& findings, const fs::path& directory)
{
	const fs::path key = directory / kTunnelKey;
	const fs::path partner = directory / kPartnerKey;
	for (const fs::path& path : {key, partner})
	{
		if (isMissing(path))
		{
			findings.add(
			    Severity::error, path, 0,
			    {"tunnel-key-missing", "there is no " + path.filename().string(), kNoHeartbeat,
			     path == key ? "systemctl start velarix-tunnel makes it" : "copy tunnel.pub of the other node to it"});
		}
	}
	const host::FileFacts facts = host::fileFacts(key);
	if ((facts.mode & 077U) != 0 || facts.owner != 0)
	{
		findings.add(
		    Severity::error, key, 0,
		    {"tunnel-key-open", "others than root may read or write the tunnel's private key",
		     "whoever reads it speaks for this node",
		     "make a new one: rm tunnel.key, systemctl reload velarix-tunnel, and copy tunnel.pub to the partner"});
	}
	const fs::path own = directory / kTunnelPublicKey;
	if (host::user() == 0 && !isMissing(partner) && !isMissing(own) && readInputFile(own) == readInputFile(partner))
	{
		findings.add(Severity::error, partner, 0,
		             {"tunnel-own-key", "partner.pub is this node's own public key", kNoHeartbeat,
		              "copy tunnel.pub of the other node to it"});
	}
}

void outside(Findings& findings, const TunnelSettings& tunnel, const fs::path& file)
{
	const std::optional<std::string> way = host::interfaceTo(tunnel.endpoint);
	if (way != kCommunicationInterface)
	{
		findings.add(Severity::error, file, 0,
		             {"tunnel-endpoint-route",
		              "packets to the endpoint " + tunnel.endpoint + (way ? " leave by " + *way : " have no route"),
		              kNoHeartbeat, "write the partner's address on eth1: ip route get " + tunnel.endpoint});
	}
	if (host::user() != 0)
	{
		findings.notChecked("the tunnel's rules and handshake", "only root may ask");
		return;
	}
	if (!protectTunnel(host::tunnelRules(), tunnel, findings.file.text(key::kReceivePort).value_or(""),
	                   kCommunicationInterface))
	{
		findings.add(Severity::warning, file, 0,
		             {"tunnel-rules", "the tunnel's packet filter is not loaded, or passes packets of others",
		              "the tunnel protects nothing: packets to its addresses come in by any interface, and a relay "
		              "can move its endpoint",
		              "systemctl restart velarix-ha-firewall"});
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
	const fs::path log = findings.file.text(key::kLogPath).value_or("");
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
		findings.add(Severity::warning, file, 0,
		             {"tunnel-clock", what + " is in the future: the clock went back",
		              "after its restart this node's handshakes are refused as old until the partner begins one",
		              "set the clock"});
	}
	if (now && !tunnel.endpoint.empty() && now->endpoint != tunnel.endpoint + ":" + tunnel.port)
	{
		findings.add(Severity::warning, file, 0,
		             {"tunnel-endpoint-moved", "the tunnel goes to " + now->endpoint + " and not to the Endpoint",
		              "a relay passes its packets on; when it goes, no heartbeat passes for up to three minutes",
		              "load the rules, then systemctl reload velarix-tunnel"});
	}
}

void session(Findings& findings, const TunnelSettings& tunnel, const fs::path& file, const Paths& paths)
{
	if (!host::interface(kTunnelInterface).present)
	{
		findings.add(Severity::error, file, 0,
		             {"tunnel-missing", std::string("there is no interface ") + kTunnelInterface, kNoHeartbeat,
		              "systemctl status velarix-tunnel; install wireguard-tools, and wireguard-go where the kernel "
		              "has no WireGuard"});
		return;
	}
	handshake(findings, tunnel, file, paths);
	if (host::answersPing(tunnel.endpoint, 3).value_or(false) && !host::answersPing(tunnel.partner, 3).value_or(true))
	{
		// Anybody on the wire can answer at the endpoint: that must not keep a survivor from starting.
		const bool proven = isProven(file.parent_path(), paths.belowIfAny(kTunnelProven));
		findings.add(proven ? Severity::warning : Severity::error, file, 0,
		             {"tunnel-down",
		              "the tunnel is down, the cable is not: the partner answers at " + tunnel.endpoint +
		                  " and not in the tunnel",
		              kNoHeartbeat,
		              "compare the keys: tunnel.pub of each node is partner.pub of the other; wg show wg-ha"});
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
		findings.add(Severity::error, file, 0,
		             {"tunnel-not-used",
		              "Address and AllowedIPs are not THIS_SERVER_IP and PARTNER_IP, or the Endpoint is missing",
		              "the heartbeats do not go through the tunnel",
		              "make both files with velarixctl init --wireguard"});
	}
	if (tunnel->keepalive != "1")
	{
		findings.add(Severity::warning, file, 0,
		             {"tunnel-keepalive", "PersistentKeepalive is not 1",
		              "a node that was restarted waits up to 15 s for its partner", "write PersistentKeepalive = 1"});
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
