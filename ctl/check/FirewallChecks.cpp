// The packet filter beside the settings, which its unit loads with the agent.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <string>

#include <Poco/String.h>
#include <Poco/StringTokenizer.h>

#include "ctl/init/NodeFiles.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/HostTunnel.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

namespace
{

namespace fs = std::filesystem;

constexpr char kDirectory[] = "/usr/velarix/bin/ini";
constexpr char kOpen[] = "the rules are not loaded: whoever reaches the heartbeat port moves the service";

struct Define
{
	const char* name;
	const char* key;
	/// With another value the partner's heartbeats are dropped.
	bool blocks;
};

constexpr std::array kDefines{
    Define{"port", key::kReceivePort, false},     Define{"address", key::kThisServerIP, true},
    Define{"partner", key::kPartnerIP, true},     Define{"gateway", key::kGatewayIP, false},
    Define{"virtual_ip", key::kVirtualIP, false},
};

/// @return the value of a setting; empty for none, which has a finding of its own
std::string wanted(const Findings& findings, const std::string& key)
{
	if (key == key::kReceivePort)
	{
		return std::to_string(findings.file.integer(key).value_or(0));
	}
	const std::string text = findings.file.text(key).value_or("");
	return isVirtualAddress(text) ? text : "";
}

/// What init's file defines; rules of the operator's own without these are not judged.
void values(Findings& findings, const fs::path& file, const std::string& rules)
{
	static const inspect::Pattern kLine(R"((?:^|\n)[ \t]*define (\w+) = ([^#\n$/]+))");
	std::string what;
	bool blocks = false;
	bool port = false;
	for (const inspect::Pattern::Groups& line : kLine.all(rules))
	{
		const auto define = std::ranges::find(kDefines, line.at(1), &Define::name);
		const std::string value = define == kDefines.end() ? "" : wanted(findings, define->key);
		// It may be a set.
		const Poco::StringTokenizer words(line.at(2), " \t{},");
		if (!value.empty() && !words.has(value))
		{
			what += (what.empty() ? "" : ", ") + std::string(define->key) + " is " + value + " and not " +
			        Poco::trim(line.at(2));
			blocks = blocks || define->blocks;
			port = port || define->key == std::string_view(key::kReceivePort);
		}
	}
	if (!what.empty())
	{
		findings.add(blocks ? Severity::error : Severity::warning, file, 0,
		             {"firewall-of-other-settings", "the rules are not for these settings: " + what,
		              blocks ? "the partner's heartbeats are dropped: each node takes the other for dead"
		              : port ? "they do not protect the pair: whoever reaches the heartbeat port moves the service"
		                     : "they protect another address: whoever answers in this one's place is not held up",
		              "take this node's file of velarixctl init, and load it: systemctl reload velarix-ha-firewall"});
	}
}

} // namespace

void firewall(Findings& findings, const Paths& paths)
{
	const fs::path file = findings.file.path() == paths.settings
	                          ? paths.belowIfAny(fs::path(kDirectory) / kFirewallFile)
	                          : findings.file.path().parent_path() / kFirewallFile;
	if (host::fileFacts(file).kind != host::FileKind::regular)
	{
		return;
	}
	try
	{
		values(findings, file, readInputFile(file));
	}
	catch (const Failure& failure)
	{
		findings.notChecked(file.string(), failure.what());
		return;
	}
	if (toolPath(paths, "nft").empty())
	{
		findings.add(Severity::warning, file, 0,
		             {"firewall-without-nft", "nft, which loads the rules, is not there", kOpen,
		              "install the package nftables"});
	}
	else if (const std::string refusal = paths.elsewhere() ? "" : host::rulesRefusal(file); !refusal.empty())
	{
		findings.add(Severity::warning, file, 0,
		             {"firewall-broken", "nft does not take the rules: " + refusal, kOpen,
		              "correct them, and try: nft -c -f " + file.string()});
	}
}

} // namespace velarix::ctl::checks
