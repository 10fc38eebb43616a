// What root runs: whether it is there, and who may change it, from the root directory down; the service's own
// options and notifiers, of which those that do not fit are passed over in silence.

#include <array>
#include <set>
#include <sstream>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>

#include "ctl/check/Checks.h"
#include "ctl/notify/Notifiers.h"
#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

namespace fs = std::filesystem;

bool isMissing(const fs::path& path)
{
	return host::fileFacts(path).kind == host::FileKind::missing;
}

bool isFile(const fs::path& path)
{
	return host::fileFacts(path).kind == host::FileKind::regular;
}

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

void ofCommand(Findings& findings, const Paths& paths, std::set<std::string>& reported, const char* key,
               const char* effect)
{
	for (const std::string& tool : commandOf(findings, key).programs())
	{
		if (toolPath(paths, tool).empty() && reported.insert(tool).second)
		{
			const bool there = tool.starts_with('/') && isFile(paths.belowIfAny(tool));
			const char* entry = there ? "missing-tool/rights" : "missing-tool/command";
			findings.add(tool == "arping" ? "missing-tool/arping" : entry, key, tool, effect);
		}
	}
}

using host::FileFacts;
using host::FileKind;

constexpr char kAgent[] = "/usr/velarix/bin/VelarixHA";
/// As many as the kernel follows.
constexpr int kLinks = 40;

/// What a path is for.
struct Use
{
	/// The setting that names it; empty for the agent's own files.
	std::string key = {};
	Severity severity = Severity::error;
	const char* effect = "root runs what is below it: whoever may change that is root";
	/// Who may write there when the group may is not root.
	mode_t open = S_IWOTH | S_IWGRP;
};

class Trust
{
public:
	Trust(Findings& findings, const Paths& paths) : m_findings(findings), m_paths(paths) {}

	/// It has findings of its own.
	void leaveOut(const fs::path& path) { m_seen.insert(path.lexically_normal()); }

	/// Looks at every component of the path, and of what links on it lead to.
	void walk(const fs::path& path, const Use& use, int links = 0)
	{
		if (path.empty())
		{
			return; // nothing is there
		}
		const fs::path rest = path.lexically_relative(m_paths.root);
		fs::path at = m_paths.root;
		// Below what is not there nothing is, however long the path goes on.
		bool there = look(at, use);
		for (auto part = rest.begin(); there && part != rest.end(); ++part)
		{
			const fs::path next = *part == ".." ? at.parent_path() : at / *part;
			std::error_code error;
			const fs::path target = fs::read_symlink(next, error);
			if (!error && links < kLinks)
			{
				fs::path resolved = target.is_absolute() ? m_paths.belowIfAny(target) : at / target;
				for (++part; part != rest.end(); ++part)
				{
					resolved /= *part;
				}
				walk(resolved, use, links + 1);
				return;
			}
			at = next;
			there = look(at, use);
		}
	}

private:
	/// @return false when this look found it missing or could not tell; true also for what was looked at before
	bool look(const fs::path& path, const Use& use)
	{
		if (!m_seen.insert(path.lexically_normal()).second)
		{
			return true;
		}
		const FileFacts facts = host::fileFacts(path);
		const bool directory = facts.kind == FileKind::directory;
		const bool sticky = directory && (facts.mode & S_ISVTX) != 0;
		// Nobody but root is in root's group.
		const bool open = (facts.mode & use.open & (facts.group == 0 ? ~mode_t{S_IWGRP} : ~mode_t{})) != 0;
		if (facts.kind == FileKind::missing || facts.kind == FileKind::notKnown)
		{
			return false; // reported where the path itself is looked at
		}
		const Place place = use.key.empty() ? Place{path} : m_findings.at(use.key);
		m_findings.addWhen(open && !sticky, use.severity, directory ? "writable-directory" : "writable-program", place,
		                   path, use.effect);
		// Another system's owners are numbers of that system.
		m_findings.addWhen(facts.owner != 0 && !m_paths.elsewhere(), use.severity,
		                   directory ? "directory-owner" : "program-owner", place, path, use.effect, facts.owner);
		return true;
	}

	Findings& m_findings;
	const Paths& m_paths;
	std::set<fs::path> m_seen;
};

constexpr char kDefaults[] = "/etc/default/velarix-ha";

struct Option
{
	const char* name;
	/// What its value matches.
	const char* values;
	const char* listed;
};

constexpr std::array kOptions{
    Option{"VELARIX_ON_STOP", "leave|release|handover", "leave, release or handover"},
    Option{"VELARIX_HANDOVER_TIMEOUT", "[1-9][0-9]?|100", "seconds from 1 to 100"},
    Option{"VELARIX_PARTNER_SSH", ".*", "a target of ssh"},
};

void option(Findings& findings, const std::filesystem::path& file, int line, const std::string& name,
            const std::string& value)
{
	const auto known = std::ranges::find(kOptions, name, &Option::name);
	if (known != kOptions.end() && !Pattern(known->values).matched(value).empty())
	{
		return;
	}
	known == kOptions.end() ? findings.add("bad-service-option/unknown", {file, line}, name)
	                        : findings.add("bad-service-option", {file, line}, name, value, known->listed);
}

} // namespace

void tools(Findings& findings, const Paths& paths)
{
	for (const std::string entry :
	     {"missing-tool/sh", "missing-tool/cat", "missing-tool/chmod", "missing-tool/ifconfig"})
	{
		findings.addWhen(toolPath(paths, entry.substr(entry.find('/') + 1)).empty(), entry,
		                 Place{findings.file.path()});
	}
	std::set<std::string> reported;
	ofCommand(findings, paths, reported, key::kStartCommand, "the address may not be raised");
	ofCommand(findings, paths, reported, key::kStopCommand, "the address may not be dropped");
	ofCommand(findings, paths, reported, key::kKillCommand,
	          "the programs may not be killed: after a failover they run on both nodes");
}

void trust(Findings& findings, const Paths& paths)
{
	Trust trust(findings, paths);
	const fs::path log = findings.valueOf(key::kLogPath);
	trust.leaveOut(paths.settings);
	for (const fs::path& path :
	     {paths.below(kAgent), paths.runScript, paths.settings, paths.keeperSettings, paths.below(kAcknowledged)})
	{
		trust.walk(path, {});
	}
	trust.walk(paths.pid.parent_path(),
	           {.severity = Severity::warning,
	            .effect = "whoever may replace the pid file there chooses the process that a stop of the agent kills"});
	trust.walk(
	    paths.runInfo.parent_path(),
	    {.severity = Severity::warning, .effect = "whoever may replace the run-info record there can end the agent"});
	for (const Program& program : programsOf(findings))
	{
		trust.walk(program.path.starts_with('/') ? paths.belowIfAny(program.path) : fs::path(), {.key = program.key});
	}
	for (const char* key : {key::kStartCommand, key::kStopCommand, key::kKillCommand})
	{
		for (const std::string& tool : commandOf(findings, key).programs())
		{
			trust.walk(toolPath(paths, tool), {.key = key});
		}
	}
	for (const keeper::ServiceSettings& service : keeper::readSettings(paths.keeperSettings.c_str()).settings.services)
	{
		for (const std::vector<std::string>& command : {service.command, service.check})
		{
			const passwd* user = service.user.empty() ? nullptr : ::getpwnam(service.user.c_str());
			const bool asRoot = (service.user.empty() || (user != nullptr && user->pw_uid == 0)) && !command.empty();
			trust.walk(asRoot ? toolPath(paths, command.front()) : fs::path(), {});
		}
	}
	if (log.is_absolute())
	{
		trust.walk(paths.below(log.parent_path()),
		           {.key = key::kLogPath,
		            .severity = Severity::warning,
		            .effect = "whoever may write there can turn what root logs into another file",
		            .open = S_IWOTH});
	}
}

void service(Findings& findings, const Paths& paths)
{
	static const Pattern kAssignment(R"(\s*(?:export\s+)?(VELARIX_\w*)\s*=\s*["']?([^"'\s#]*).*)");
	const std::filesystem::path file = paths.below(kDefaults);
	if (isMissing(file))
	{
		return;
	}
	std::istringstream lines(findings.read(file).value_or(""));
	int number = 0;
	for (std::string line; std::getline(lines, line);)
	{
		++number;
		if (const Pattern::Groups found = kAssignment.matched(line); !found.empty())
		{
			// The shell that reads the file takes the CR for a part of the value.
			option(findings, file, number, found[1], found[2] + (line.ends_with('\r') ? "\r" : ""));
		}
	}
}

void notifiers(Findings& findings, const Paths& paths)
{
	namespace fs = std::filesystem;
	const fs::path directory = paths.belowIfAny("/etc/velarix-ha/notify.d");
	const std::vector<notify::Notifier> all = notify::notifiersIn(directory);
	std::error_code error;
	for (const fs::directory_entry& entry : fs::directory_iterator(directory, error))
	{
		const std::string name = entry.path().filename();
		const auto found = std::ranges::find(all, name, &notify::Notifier::name);
		// A package's or an editor's copy is left out on purpose.
		if (name.starts_with('.') || name.ends_with('~') || name.find(".dpkg-") != std::string::npos ||
		    (found != all.end() && (found->refused.empty() || paths.elsewhere())))
		{
			continue;
		}
		findings.add("notifier-not-run", {entry.path()},
		             found != all.end() ? "the notifier is refused: " + found->refused
		                                : "this is no notifier: a name with other characters than letters, digits, "
		                                  "\"-\" and \"_\", or no program that may be run");
	}
}

} // namespace velarix::ctl::checks
