// The packet filter beside the settings, which its unit loads with the agent.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>

#include <Poco/String.h>
#include <Poco/StringTokenizer.h>

#include "ctl/init/NodeFiles.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

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
		const char* open =
		    wrong.contains(key::kReceivePort) ? "firewall-of-other-settings/port" : "firewall-of-other-settings";
		findings.add(blocks ? "firewall-of-other-settings/blocks" : open, {file}, what);
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
		findings.add("firewall-without-nft", {file});
	}
	else if (const std::string refusal = paths.elsewhere() ? "" : host::rulesRefusal(file); !refusal.empty())
	{
		findings.add("firewall-broken", {file}, refusal);
	}
}

} // namespace velarix::ctl::checks
