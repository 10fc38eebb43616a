#include "ctl/check/Checks.h"

#include <array>
#include <set>
#include <string>

#include <sys/stat.h>

#include "ctl/check/CommandOutput.h"
#include "ctl/check/ShellCommand.h"
#include "inspect/Host.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;

/// Where the service finds its tools.
constexpr std::array kDirectories{"/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin"};

bool isExecutable(const fs::path& file)
{
	const host::FileFacts facts = host::fileFacts(file);
	return facts.kind == host::FileKind::regular && (facts.mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

bool isThere(const Paths& paths, const std::string& tool)
{
	if (tool.find('/') != std::string::npos)
	{
		return isExecutable(paths.below(tool));
	}
	for (const char* directory : kDirectories)
	{
		if (isExecutable(paths.below(fs::path(directory) / tool)))
		{
			return true;
		}
	}
	return false;
}

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
         "the carrier of the cards cannot be read and counts as lost: a master gives up at once, a slave counts no "
         "silence"},
    Tool{"chmod", "coreutils", "the run script is not made executable: no program ever starts"},
    Tool{"ifconfig", "net-tools",
         "the agent never sees the virtual IP on its cards: it relies on a ping of its own address alone, and raises "
         "the "
         "address again whenever that fails"},
};

/// Words of the shell itself.
const std::set<std::string>& shellWords()
{
	static const std::set<std::string> kWords{":",      "true",   "false", "cd",   "export", "set",     "unset",
	                                          "exit",   "return", "wait",  "test", "[",      "trap",    "umask",
	                                          "shift",  "local",  "read",  "eval", "exec",   ".",       "command",
	                                          "printf", "echo",   "kill",  "type", "break",  "continue"};
	return kWords;
}

void ofCommand(Findings& findings, const Paths& paths, const std::string& key, const std::string& effect)
{
	const shell::Script script = shell::parse(findings.file.text(key).value_or(""));
	std::set<std::string> told;
	shell::forEachSimple(script,
	                     [&](const shell::Command& command, const shell::Place&)
	                     {
		                     const std::vector<std::string> words = shell::programWords(command);
		                     const std::string tool = words.empty() ? "" : words[0];
		                     if (tool.empty() || tool.find('$') != std::string::npos || shellWords().contains(tool) ||
		                         isThere(paths, tool) || !told.insert(tool).second)
		                     {
			                     return;
		                     }
		                     const Words text{
		                         "missing-tool", key + " calls " + tool + ", which is not there",
		                         tool == "arping"
		                             ? "the address is not announced: clients go on sending to the other node for "
		                               "some 45 seconds after a take-over"
		                             : effect,
		                         "install it, or write another command"};
		                     tool == "arping" ? findings.warning(key, text) : findings.error(key, text);
	                     });
}

} // namespace

void tools(Findings& findings, const Paths& paths)
{
	for (const Tool& tool : kOwnTools)
	{
		if (!isThere(paths, tool.name))
		{
			findings.add(Severity::error, findings.file.path(), 0,
			             {"missing-tool", std::string(tool.name) + ", which the agent calls, is not there", tool.effect,
			              std::string("install the package ") + tool.package});
		}
	}
	ofCommand(findings, paths, key::kStartCommand, "the address may not be raised");
	ofCommand(findings, paths, key::kStopCommand, "the address may not be dropped");
	ofCommand(findings, paths, key::kKillCommand,
	          "the programs may not be killed: after a move they run on both nodes");
}

} // namespace velarix::ctl::checks
