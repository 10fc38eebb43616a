// The installation's directories and records, and this machine: pings, ports, space and other processes.

#include <sstream>
#include <system_error>

#include <sys/stat.h>

#include "ctl/check/Checks.h"
#include "ctl/status/AgentProcess.h"
#include "ctl/status/LogTail.h"
#include "inspect/ExitCode.h"
#include "inspect/HostProcesses.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl::checks
{

namespace
{

namespace fs = std::filesystem;
using host::FileFacts;
using host::FileKind;

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

/// Below this much a disk counts as full: the small files do not fit for certain.
constexpr std::uintmax_t kLeastSpace = 1000ULL * 1000;
constexpr std::uintmax_t kLeastFiles = 10;

void settingsFile(Findings& findings, const Paths& paths)
{
	std::error_code none;
	if (findings.file.path() != paths.settings && !fs::equivalent(findings.file.path(), paths.settings, none))
	{
		findings.notChecked("who may write " + findings.file.path().string(), "it is not the installed file");
		return;
	}
	const FileFacts facts = host::fileFacts(paths.settings);
	findings.addWhen((facts.mode & kOthersWrite) != 0, "settings-writable", Place{paths.settings});
	// Another system's owners are numbers of that system.
	findings.addWhen(!paths.elsewhere() && facts.owner != 0 && facts.kind != FileKind::missing, "settings-owner",
	                 Place{paths.settings}, facts.owner);
}

/// A directory that the agent needs. A file system is reported once, as read-only or as full.
/// @param place the setting that names it; itself for the fixed ones
/// @param effect what happens without it
void directory(Findings& findings, const fs::path& path, const Place& place, const char* effect)
{
	const FileFacts facts = host::fileFacts(path);
	const std::uintmax_t bytes = host::freeSpace(path).value_or(kLeastSpace);
	const std::uintmax_t files = host::freeFiles(path).value_or(kLeastFiles);
	if (facts.kind == FileKind::notKnown)
	{
		findings.notChecked(path.string(), "this user may not look there");
	}
	else if (facts.kind != FileKind::directory)
	{
		const bool missing = facts.kind == FileKind::missing;
		findings.add(missing ? "missing-directory" : "no-directory", place, path, effect,
		             missing ? "missing" : "no directory");
	}
	else if (facts.readOnly)
	{
		findings.add("read-only-directory", place, path, effect);
	}
	else if (bytes < kLeastSpace || files < kLeastFiles)
	{
		findings.add("disk-full", place, path, bytes, files);
	}
}

/// When it was begun decides when it is renamed and deleted.
void logBeginning(Findings& findings, const fs::path& log)
{
	// Clocks that agree differ by less.
	constexpr std::chrono::minutes kTolerated{1};
	const std::optional<Instant> begun = begunAt(log);
	if (begun && *begun > std::chrono::system_clock::now() + kTolerated)
	{
		findings.add("log-from-the-future", key::kLogPath, log, localText(*begun));
	}
}

void logFile(Findings& findings, const Paths& paths)
{
	const fs::path log = findings.valueOf(key::kLogPath);
	if (!log.is_absolute())
	{
		return; // reported by the check of the setting
	}
	directory(findings, paths.below(log.parent_path()), findings.at(key::kLogPath),
	          "the agent says \"initLog fail\" on its console and runs without a log file");
	const fs::path file = paths.below(log);
	// The log is appended to whatever file it names.
	for (const fs::path& own : {paths.settings, paths.runInfo, paths.runScript, paths.pid})
	{
		findings.addWhen(file.lexically_normal() == own.lexically_normal(), "log-into-own-file", key::kLogPath, log);
	}
	const FileKind kind = host::fileFacts(file).kind;
	findings.addWhen(kind == FileKind::directory, "log-is-a-directory", key::kLogPath, file);
	findings.addWhen(kind == FileKind::other, "log-is-no-file", key::kLogPath, file);
	if (kind == FileKind::regular)
	{
		logBeginning(findings, file);
	}
	findings.addWhen(host::fileFacts(file.parent_path()).inMemory, "log-in-memory", key::kLogPath, file);
}

/// Whether the agent's own editor finds a key, which looks at the text more
/// narrowly than the library's parser: the header's name and the key begin their
/// lines, letter for letter, and a blank or "=" follows the key.
bool isEdited(const std::string& text, const std::string& key)
{
	const std::string name = key.substr(key.find('.') + 1);
	std::istringstream lines(text);
	bool inSection = false;
	for (std::string line; std::getline(lines, line);)
	{
		if (line.starts_with('['))
		{
			inSection = line.substr(1, line.find(']') - 1) == "TRACE";
		}
		else if (inSection && line.starts_with(name) && line.find_first_of(" =") == name.size())
		{
			return true;
		}
	}
	return false;
}

void checkRecord(Findings& findings, const SettingsFile& record, const std::string& text)
{
	for (const std::string name : {kLastRunTime, kMasterLastRunTime, kSlaveLastRunTime})
	{
		const SettingLine* line = record.find(name);
		if (line == nullptr)
		{
			const bool used = name == kLastRunTime;
			findings.add(used ? Severity::error : Severity::warning, "run-info-key-missing",
			             {record.path(), record.lineOfSection("TRACE")}, name, name.substr(6),
			             used ? "the agent ends at its first heartbeat"
			                  : "no effect as long as the agent does not use the key");
		}
		else if (!isEdited(text, name))
		{
			findings.add("run-info-key-not-edited", {record.path(), line->line}, name, name.substr(6));
		}
	}
	const std::string time = record.text(kLastRunTime).value_or("");
	const Place place{record.path(), record.lineOf(kLastRunTime)};
	const bool odd = !time.empty() && (time.size() != 14 || time.find_first_not_of("0123456789") != std::string::npos);
	findings.addWhen(odd, time.find('/') != std::string::npos ? "run-info-time-with-slash" : "run-info-time", place,
	                 time);
}

void runInfo(Findings& findings, const Paths& paths)
{
	const FileKind kind = host::fileFacts(paths.runInfo).kind;
	if (kind == FileKind::missing || kind == FileKind::directory)
	{
		const bool missing = kind == FileKind::missing;
		findings.add(missing ? "run-info-missing" : "run-info-is-a-directory", {paths.runInfo},
		             missing ? "there is no run-info record" : "the run-info record is a directory");
		return;
	}
	if (const std::optional<std::string> text = findings.read(paths.runInfo))
	{
		checkRecord(findings, SettingsFile::parse(paths.runInfo, *text), *text);
	}
}

/// What a node logs in a day, both workers at a pace of a second.
constexpr std::uintmax_t kLogPerDay = 110ULL * 1000 * 1000;
constexpr std::uintmax_t kMegabyte = 1000ULL * 1000;

void pings(Findings& findings)
{
	findings.addWhen(host::ignoresPings(), "pings-ignored", Place{findings.file.path()});
	if (const std::optional<std::string> why = host::whyNoPing())
	{
		host::user() != 0 ? findings.notChecked("whether the agent may send pings", "only root may try")
		                  : findings.add("no-raw-sockets", {findings.file.path()}, *why);
	}
}

void ports(Findings& findings, const Paths& paths)
{
	const int port = findings.file.integer(key::kReceivePort).value_or(0);
	if (port < 1 || port > 65535)
	{
		return;
	}
	findings.addWhen(host::isOutgoingPort(port).value_or(false), "port-of-outgoing-connections", key::kReceivePort,
	                 port);
	const Agent agent = lookForAgent(paths);
	if (agent.lives() || agent.foreign != 0)
	{
		findings.notChecked("whether port " + std::to_string(port) + " is free", "the agent runs and uses it");
	}
	else if (host::isPortTaken(findings.valueOf(key::kThisServerIP), port))
	{
		findings.add("port-taken", key::kReceivePort, port);
	}
}

/// @return whole days of the purge age, at least one; nothing for what has no age
std::optional<std::uintmax_t> daysOf(const std::string& age)
{
	const std::size_t digits = std::min(age.find_first_not_of("0123456789"), age.size());
	if (digits == 0 || digits > 6)
	{
		return std::nullopt;
	}
	const std::uintmax_t number = std::stoul(age.substr(0, digits));
	for (const auto& [unit, days] : {std::pair("month", 30U), std::pair("week", 7U), std::pair("day", 1U)})
	{
		if (age.find(unit) != std::string::npos)
		{
			return number * days;
		}
	}
	return 1;
}

void logSpace(Findings& findings, const Paths& paths)
{
	const std::filesystem::path log = findings.valueOf(key::kLogPath);
	const std::optional<std::uintmax_t> days = daysOf(findings.valueOf(key::kPurgeAge));
	const std::optional<std::uintmax_t> space = host::freeSpace(paths.below(log.parent_path()));
	// The day that is being written comes on top.
	if (!log.is_absolute() || !days || !space || (*days + 1) * kLogPerDay <= *space)
	{
		return;
	}
	findings.add("little-log-space", key::kPurgeAge, *days, (*days + 1) * kLogPerDay / kMegabyte, *space / kMegabyte);
}

/// Processes of other programs that the agent will take for a managed one.
void namesakes(Findings& findings)
{
	const std::vector<host::Process> processes = host::processes().value_or(std::vector<host::Process>{});
	for (const Program& program : programsOf(findings))
	{
		const auto other = std::ranges::find_if(processes,
		                                        [&](const host::Process& process)
		                                        {
			                                        return !program.name.empty() && process.name != program.name &&
			                                               process.name.find(program.name) != std::string::npos &&
			                                               process.name != kAgentName;
		                                        });
		if (other != processes.end())
		{
			findings.add("name-of-another-process", program.key, program.name, other->name, other->pid);
		}
	}
}

} // namespace

void installation(Findings& findings, const Paths& paths)
{
	const fs::path ini = paths.runScript.parent_path();
	const fs::path pid = paths.pid.parent_path();
	const fs::path record = paths.runInfo.parent_path();
	settingsFile(findings, paths);
	directory(findings, ini, {ini}, "the agent cannot write its run script there and ends at its start");
	findings.addWhen(host::fileFacts(paths.runScript).kind == FileKind::directory, "run-script-is-a-directory",
	                 Place{paths.runScript});
	directory(findings, pid, {pid}, "the agent cannot write its pid file there and ends at its start");
	directory(findings, record, {record}, "the run-info record is missing with it: the agent ends at its start");
	// Whoever may write it chooses what a stop of the agent kills.
	const FileFacts pidFile = host::fileFacts(paths.pid);
	findings.addWhen(pidFile.kind == FileKind::regular && (pidFile.mode & kOthersWrite) != 0, "writable-pid-file",
	                 Place{paths.pid});
	logFile(findings, paths);
	runInfo(findings, paths);
}

void machine(Findings& findings, const Paths& paths, bool reach)
{
	network(findings, host::addresses(), reach);
	tunnelMachine(findings, paths);
	pings(findings);
	ports(findings, paths);
	logSpace(findings, paths);
	namesakes(findings);
}

} // namespace velarix::ctl::checks
