// Who may change what root runs, from the root directory down.

#include "ctl/check/Checks.h"

#include <set>
#include <string>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>

#include "inspect/Host.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;
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
		look(at, use);
		for (auto part = rest.begin(); part != rest.end(); ++part)
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
			look(at, use);
		}
	}

private:
	void look(const fs::path& path, const Use& use)
	{
		if (!m_seen.insert(path.lexically_normal()).second)
		{
			return;
		}
		const FileFacts facts = host::fileFacts(path);
		const bool directory = facts.kind == FileKind::directory;
		const bool sticky = directory && (facts.mode & S_ISVTX) != 0;
		// Nobody but root is in root's group.
		const bool open = (facts.mode & use.open & (facts.group == 0 ? ~mode_t{S_IWGRP} : ~mode_t{})) != 0;
		if (facts.kind == FileKind::missing || facts.kind == FileKind::notKnown)
		{
			return; // reported where the path itself is looked at
		}
		const Place place = use.key.empty() ? Place{path} : m_findings.at(use.key);
		if (open && !sticky)
		{
			m_findings.add(use.severity, directory ? "writable-directory" : "writable-program", place, path,
			               use.effect);
		}
		// Another system's owners are numbers of that system.
		if (facts.owner != 0 && !m_paths.elsewhere())
		{
			m_findings.add(use.severity, directory ? "directory-owner" : "program-owner", place, path, use.effect,
			               facts.owner);
		}
	}

	Findings& m_findings;
	const Paths& m_paths;
	std::set<fs::path> m_seen;
};

} // namespace

void trust(Findings& findings, const Paths& paths)
{
	Trust trust(findings, paths);
	const fs::path log = findings.valueOf(key::kLogPath);
	trust.leaveOut(paths.settings);
	trust.walk(paths.below(kAgent), {});
	trust.walk(paths.runScript, {});
	trust.walk(paths.settings, {});
	trust.walk(paths.pid.parent_path(),
	           {.severity = Severity::warning,
	            .effect = "whoever may replace the pid file there chooses the process that a stop of the agent kills"});
	trust.walk(
	    paths.runInfo.parent_path(),
	    {.severity = Severity::warning, .effect = "whoever may replace the run-info record there can end the agent"});
	trust.walk(paths.keeperSettings, {});
	trust.walk(paths.below(kAcknowledged), {});
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

} // namespace velarix::ctl::checks
