#include "ctl/check/Checks.h"

#include <array>
#include <set>
#include <string>

#include <sys/stat.h>

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

/// It is there, and may not be run.
bool isThere(const Paths& paths, const std::string& tool)
{
	return tool.starts_with('/') && host::fileFacts(paths.belowIfAny(tool)).kind == host::FileKind::regular;
}

void ofCommand(Findings& findings, const Paths& paths, std::set<std::string>& reported, const char* key,
               const char* effect)
{
	for (const std::string& tool : commandOf(findings, key).programs())
	{
		if (toolPath(paths, tool).empty() && reported.insert(tool).second)
		{
			const char* entry = isThere(paths, tool) ? "missing-tool/rights" : "missing-tool/command";
			findings.add(tool == "arping" ? "missing-tool/arping" : entry, key, tool, effect);
		}
	}
}

} // namespace

void tools(Findings& findings, const Paths& paths)
{
	for (const std::string entry :
	     {"missing-tool/sh", "missing-tool/cat", "missing-tool/chmod", "missing-tool/ifconfig"})
	{
		if (toolPath(paths, entry.substr(entry.find('/') + 1)).empty())
		{
			findings.add(entry, {findings.file.path()});
		}
	}
	std::set<std::string> reported;
	ofCommand(findings, paths, reported, key::kStartCommand, "the address may not be raised");
	ofCommand(findings, paths, reported, key::kStopCommand, "the address may not be dropped");
	ofCommand(findings, paths, reported, key::kKillCommand,
	          "the programs may not be killed: after a failover they run on both nodes");
}

} // namespace velarix::ctl::checks
