// The packet filter beside the settings, which its unit loads with the agent.

#include "ctl/check/Checks.h"

#include <array>
#include <regex>
#include <string>

#include "ctl/check/Tools.h"
#include "ctl/init/FirewallRules.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/HostTunnel.h"
#include "inspect/InputFile.h"
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

/// @return whether the number or address stands there, not as a part of another one
bool names(const std::string& text, const std::string& value)
{
	const std::string escaped = std::regex_replace(value, std::regex("\\."), "\\.");
	return std::regex_search(text, std::regex("(^|[^0-9.])" + escaped + "($|[^0-9.])"));
}

/// Rules of the operator's own may do without the defines, not without port and partner.
void values(Findings& findings, const fs::path& file, const std::string& rules)
{
	std::string what;
	bool blocks = false;
	for (const Define& define : kDefines)
	{
		const std::string value = findings.file.text(define.key).value_or("");
		std::smatch found;
		const std::regex line(std::string("(?:^|\n)\\s*define ").append(define.name).append(" = ([^#\n]*[^#\\s])"));
		const bool defined = std::regex_search(rules, found, line);
		const bool needed = define.key == key::kReceivePort || define.key == key::kPartnerIP;
		if (value.empty() || names(defined ? found[1].str() : rules, value) || (!defined && !needed))
		{
			continue;
		}
		what += (what.empty() ? "" : ", ") + std::string(define.key).substr(std::string(define.key).find('.') + 1) +
		        " is " + value + (defined ? " and not " + found[1].str() : "");
		blocks = blocks || (defined && define.blocks);
	}
	if (!what.empty())
	{
		findings.add(blocks ? Severity::error : Severity::warning, file, 0,
		             {"firewall-of-other-settings", "the rules are not for these settings: " + what,
		              blocks ? "the partner's heartbeats are dropped: each node takes the other for dead"
		                     : "they do not protect the pair: whoever reaches the heartbeat port moves the service",
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
		const std::string rules = readInputFile(file);
		if (rules.find("\ninclude ") == std::string::npos)
		{
			values(findings, file, rules);
		}
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
