#include "ctl/check/Checks.h"

#include <array>
#include <set>
#include <string>

#include <sys/stat.h>

#include "ctl/check/CommandText.h"
#include "inspect/Host.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace fs = std::filesystem;

bool isExecutable(const fs::path& file)
{
	const host::FileFacts facts = host::fileFacts(file);
	return facts.kind == host::FileKind::regular && (facts.mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

fs::path toolPath(const Paths& paths, const std::string& tool)
{
	/// Where the service finds its tools.
	constexpr std::array kDirectories{"/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin"};
	if (tool.find('/') != std::string::npos)
	{
		return isExecutable(paths.below(tool)) ? paths.below(tool) : fs::path();
	}
	for (const char* directory : kDirectories)
	{
		fs::path file = paths.below(fs::path(directory) / tool);
		if (isExecutable(file))
		{
			return file;
		}
	}
	return {};
}

namespace
{

struct Tool
{
	const char* name;
	const char* package;
	const char* effect;
};

/// What the agent calls itself.
constexpr std::array kOwnTools{
    Tool{"sh", "dash", "no command can be run and no program started"},
    Tool{"cat", "coreutils",
         "the carrier of the interfaces cannot be read and counts as lost: a master gives up at once, a standby counts "
         "no "
         "missed heartbeats"},
    Tool{"chmod", "coreutils", "the run script is not made executable: no program ever starts"},
    Tool{"ifconfig", "net-tools",
         "the agent never sees the virtual IP on its interfaces: it relies on a ping of its own address alone, and "
         "raises "
         "the "
         "address again whenever that fails"},
};

/// It is there, and may not be run.
bool isThere(const Paths& paths, const std::string& tool)
{
	return tool.starts_with('/') && host::fileFacts(paths.belowIfAny(tool)).kind == host::FileKind::regular;
}

void ofCommand(Findings& findings, const Paths& paths, std::set<std::string>& reported, const std::string& key,
               const std::string& effect)
{
	for (const std::string& tool : CommandText(findings.file.text(key).value_or("")).programs())
	{
		if (!toolPath(paths, tool).empty() || !reported.insert(tool).second)
		{
			continue;
		}
		const Words text{"missing-tool",
		                 std::string(key).append(" calls ").append(tool).append(
		                     isThere(paths, tool) ? ", which may not be run" : ", which is not there"),
		                 tool == "arping"
		                     ? "the address is not announced: clients go on sending to the other node for some 45 "
		                       "seconds after a failover"
		                     : effect,
		                 isThere(paths, tool) ? "chmod 755 " + tool : "install it, or write another command"};
		tool == "arping" ? findings.warning(key, text) : findings.error(key, text);
	}
}

} // namespace

void tools(Findings& findings, const Paths& paths)
{
	for (const Tool& tool : kOwnTools)
	{
		if (toolPath(paths, tool.name).empty())
		{
			findings.add(Severity::error, findings.file.path(), 0,
			             {"missing-tool", std::string(tool.name) + ", which the agent calls, is not there", tool.effect,
			              std::string("install the package ") + tool.package});
		}
	}
	std::set<std::string> reported;
	ofCommand(findings, paths, reported, key::kStartCommand, "the address may not be raised");
	ofCommand(findings, paths, reported, key::kStopCommand, "the address may not be dropped");
	ofCommand(findings, paths, reported, key::kKillCommand,
	          "the programs may not be killed: after a failover they run on both nodes");
}

} // namespace velarix::ctl::checks
