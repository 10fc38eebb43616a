#include "ctl/check/Checks.h"

#include <set>
#include <string>
#include <system_error>

#include <sys/stat.h>

#include "ctl/status/LogTail.h"
#include "inspect/Host.h"
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

/// A directory that the agent needs.
struct Directory
{
	fs::path path;
	/// Its setting's line; 0 for the fixed ones.
	int line = 0;
	/// What happens without it.
	const char* missing;
};

class Disk
{
public:
	Disk(Findings& findings, const Paths& paths) : m_findings(findings), m_paths(paths) {}

	void settingsFile()
	{
		std::error_code none;
		if (m_findings.file.path() != m_paths.settings &&
		    !fs::equivalent(m_findings.file.path(), m_paths.settings, none))
		{
			m_findings.notChecked("who may write " + m_findings.file.path().string(), "it is not the installed file");
			return;
		}
		const FileFacts facts = host::fileFacts(m_paths.settings);
		const char* effect = "its commands are run as root: whoever may write it is root";
		if ((facts.mode & kOthersWrite) != 0)
		{
			add(Severity::error, m_paths.settings, 0,
			    {"settings-writable", "others than root may write the settings", effect,
			     "chmod go-w " + m_paths.settings.string()});
		}
		// Another system's owners are numbers of that system.
		if (!m_paths.elsewhere() && facts.owner != 0 && facts.kind != FileKind::missing)
		{
			add(Severity::error, m_paths.settings, 0,
			    {"settings-owner", m_paths.settings.string() + " belongs to user " + std::to_string(facts.owner),
			     effect, "chown root:root " + m_paths.settings.string()});
		}
	}

	void directory(const Directory& directory)
	{
		const FileFacts facts = host::fileFacts(directory.path);
		const std::string name = directory.path.string();
		if (facts.kind == FileKind::notKnown)
		{
			m_findings.notChecked(name, "this user may not look there");
			return;
		}
		if (facts.kind != FileKind::directory)
		{
			const bool missing = facts.kind == FileKind::missing;
			add(Severity::error, where(directory), directory.line,
			    {missing ? "missing-directory" : "no-directory", name + (missing ? " is missing" : " is no directory"),
			     directory.missing, "mkdir -p " + name});
			return;
		}
		space(directory, facts);
	}

	void runScript()
	{
		if (host::fileFacts(m_paths.runScript).kind == FileKind::directory)
		{
			add(Severity::error, m_paths.runScript, 0,
			    {"run-script-is-a-directory", m_paths.runScript.string() + " is a directory",
			     "the agent cannot replace it by its run script and ends at its start",
			     "remove it; the agent makes the file anew at every start"});
		}
	}

private:
	void add(Severity severity, const fs::path& file, int line, Words words)
	{
		m_findings.add(severity, file, line, std::move(words));
	}

	/// A file system is reported once, as read-only or as full.
	void space(const Directory& directory, const FileFacts& facts)
	{
		if (facts.readOnly)
		{
			add(Severity::error, where(directory), directory.line,
			    {"read-only-directory", directory.path.string() + " is on a file system that is mounted read-only",
			     directory.missing, "mount it read-write: mount -o remount,rw, and see dmesg for why it is not"});
			return;
		}
		const std::uintmax_t bytes = host::freeSpace(directory.path).value_or(kLeastSpace);
		const std::uintmax_t files = host::freeFiles(directory.path).value_or(kLeastFiles);
		if ((bytes < kLeastSpace || files < kLeastFiles) && m_full.insert(directory.path).second)
		{
			add(Severity::error, where(directory), directory.line,
			    {"disk-full",
			     directory.path.string() + " is on a full disk: " + std::to_string(bytes) + " bytes and " +
			         std::to_string(files) + " files are free",
			     "the agent goes on without what it cannot write: an empty pid file, by which it is not found again, "
			     "no "
			     "run script, no log",
			     "make room there (df, df -i)"});
		}
	}

	/// A directory that a setting names is reported at the setting.
	fs::path where(const Directory& directory) const
	{
		return directory.line != 0 ? m_findings.file.path() : directory.path;
	}

	Findings& m_findings;
	const Paths& m_paths;
	std::set<fs::path> m_full;
};

/// The log is appended to whatever file it names.
void logIntoOwnFile(Findings& findings, const Paths& paths, const fs::path& log)
{
	for (const fs::path& own : {paths.settings, paths.runInfo, paths.runScript, paths.pid})
	{
		if (paths.below(log).lexically_normal() == own.lexically_normal())
		{
			findings.error(key::kLogPath,
			               {"log-into-own-file", "LOG.PATH is a file of the agent's own: " + log.string(),
			                "the agent writes its log into that file and renames it after 24 hours: it ends at its "
			                "next start, or before",
			                "name a file that nothing else uses"});
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
		findings.warning(
		    key::kLogPath,
		    {"log-from-the-future",
		     "the log " + log.string() + " was begun at " + localText(*begun) +
		         ", which is still to come: the clock was ahead",
		     "until a day after that time the log is not renamed, and no old one is deleted: the disk fills",
		     "with the agent stopped, move the file aside: mv " + log.string() + " " + log.string() + ".old"});
	}
}

void logFile(Findings& findings, const Paths& paths)
{
	const fs::path log = findings.file.text(key::kLogPath).value_or("");
	if (!log.is_absolute())
	{
		return; // reported by the check of the setting
	}
	Disk(findings, paths)
	    .directory({paths.below(log.parent_path()), findings.lineFor(key::kLogPath),
	                "the agent says \"initLog fail\" on its console and runs without a log file"});
	logIntoOwnFile(findings, paths, log);
	const fs::path file = paths.below(log);
	const FileKind kind = host::fileFacts(file).kind;
	if (kind == FileKind::directory)
	{
		findings.error(key::kLogPath, {"log-is-a-directory", "LOG.PATH is a directory: " + file.string(),
		                               "the agent says \"initLog fail\" on its console and runs without a log file",
		                               "add the file's name"});
	}
	else if (kind == FileKind::other)
	{
		findings.error(key::kLogPath,
		               {"log-is-no-file", "LOG.PATH is a FIFO, a terminal or a device: " + file.string(),
		                "the agent waits there for a reader or for a first line, already at its start, and after 24 "
		                "hours it renames the device",
		                "name a file in a directory of its own"});
	}
	else if (kind == FileKind::regular)
	{
		logBeginning(findings, file);
	}
	if (host::fileFacts(file.parent_path()).inMemory)
	{
		findings.warning(key::kLogPath, {"log-in-memory", "LOG.PATH is on a file system in memory: " + file.string(),
		                                 "a reboot takes the history along, and some 100 MB of log a day the memory",
		                                 "name a file on a disk"});
	}
}

/// Whoever may write it chooses what a stop of the agent kills.
void pidFile(Findings& findings, const Paths& paths)
{
	const FileFacts facts = host::fileFacts(paths.pid);
	if (facts.kind == FileKind::regular && (facts.mode & kOthersWrite) != 0)
	{
		findings.add(Severity::warning, paths.pid, 0,
		             {"writable-pid-file", "others than root may write the pid file " + paths.pid.string(),
		              "whoever may write it chooses the process that a stop of the agent kills",
		              "chmod go-w " + paths.pid.string() + ", and start the agent with umask 022"});
	}
}

} // namespace

void installation(Findings& findings, const Paths& paths)
{
	Disk disk(findings, paths);
	disk.settingsFile();
	disk.directory(
	    {paths.runScript.parent_path(), 0, "the agent cannot write its run script there and ends at its start"});
	disk.runScript();
	disk.directory({paths.pid.parent_path(), 0, "the agent cannot write its pid file there and ends at its start"});
	disk.directory(
	    {paths.runInfo.parent_path(), 0, "the run-info record is missing with it: the agent ends at its start"});
	pidFile(findings, paths);
	logFile(findings, paths);
	runInfo(findings, paths);
}

} // namespace velarix::ctl::checks
