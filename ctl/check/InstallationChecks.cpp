#include "ctl/check/Checks.h"

#include <sstream>
#include <string>
#include <system_error>

#include <sys/stat.h>

#include "ctl/status/LogTail.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl::checks
{

using namespace inspect;

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
	if ((facts.mode & kOthersWrite) != 0)
	{
		findings.add("settings-writable", {paths.settings});
	}
	// Another system's owners are numbers of that system.
	if (!paths.elsewhere() && facts.owner != 0 && facts.kind != FileKind::missing)
	{
		findings.add("settings-owner", {paths.settings}, facts.owner);
	}
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
		findings.add(facts.kind == FileKind::missing ? "missing-directory" : "no-directory", place, path, effect);
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

/// The log is appended to whatever file it names.
void logIntoOwnFile(Findings& findings, const Paths& paths, const fs::path& log)
{
	for (const fs::path& own : {paths.settings, paths.runInfo, paths.runScript, paths.pid})
	{
		if (paths.below(log).lexically_normal() == own.lexically_normal())
		{
			findings.add("log-into-own-file", key::kLogPath, log);
		}
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
	logIntoOwnFile(findings, paths, log);
	const fs::path file = paths.below(log);
	const FileKind kind = host::fileFacts(file).kind;
	if (kind == FileKind::directory)
	{
		findings.add("log-is-a-directory", key::kLogPath, file);
	}
	else if (kind == FileKind::other)
	{
		findings.add("log-is-no-file", key::kLogPath, file);
	}
	else if (kind == FileKind::regular)
	{
		logBeginning(findings, file);
	}
	if (host::fileFacts(file.parent_path()).inMemory)
	{
		findings.add("log-in-memory", key::kLogPath, file);
	}
}

/// Whoever may write it chooses what a stop of the agent kills.
void pidFile(Findings& findings, const Paths& paths)
{
	const FileFacts facts = host::fileFacts(paths.pid);
	if (facts.kind == FileKind::regular && (facts.mode & kOthersWrite) != 0)
	{
		findings.add("writable-pid-file", {paths.pid});
	}
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
			findings.add(used ? "run-info-key-missing" : "run-info-key-missing/unused",
			             {record.path(), record.lineOfSection("TRACE")}, name, name.substr(6));
		}
		else if (!isEdited(text, name))
		{
			findings.add("run-info-key-not-edited", {record.path(), line->line}, name, name.substr(6));
		}
	}
	const std::string time = record.text(kLastRunTime).value_or("");
	const Place place{record.path(), record.lineOf(kLastRunTime)};
	if (time.find('/') != std::string::npos)
	{
		findings.add("run-info-time-with-slash", place, time);
	}
	else if (!time.empty() && (time.size() != 14 || time.find_first_not_of("0123456789") != std::string::npos))
	{
		findings.add("run-info-time", place, time);
	}
}

void runInfo(Findings& findings, const Paths& paths)
{
	const FileKind kind = host::fileFacts(paths.runInfo).kind;
	if (kind == FileKind::missing || kind == FileKind::directory)
	{
		const bool missing = kind == FileKind::missing;
		findings.add(missing ? "run-info-missing" : "run-info-is-a-directory", {paths.runInfo});
		return;
	}
	try
	{
		const std::string text = readInputFile(paths.runInfo);
		checkRecord(findings, SettingsFile::parse(paths.runInfo, text), text);
	}
	catch (const Failure& failure)
	{
		findings.notChecked(paths.runInfo.string(), failure.what());
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
	if (host::fileFacts(paths.runScript).kind == FileKind::directory)
	{
		findings.add("run-script-is-a-directory", {paths.runScript});
	}
	directory(findings, pid, {pid}, "the agent cannot write its pid file there and ends at its start");
	directory(findings, record, {record}, "the run-info record is missing with it: the agent ends at its start");
	pidFile(findings, paths);
	logFile(findings, paths);
	runInfo(findings, paths);
}

} // namespace velarix::ctl::checks
