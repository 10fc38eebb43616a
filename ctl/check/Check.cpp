#include "ctl/check/Check.h"

#include <algorithm>
#include <string>
#include <tuple>

#include "ctl/check/Checks.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;

void text(Findings& findings, bool withPartner)
{
	checks::lines(findings);
	checks::keys(findings);
	checks::numbers(findings);
	checks::timing(findings, withPartner);
	checks::addresses(findings);
	checks::programs(findings);
	checks::startCommand(findings);
	checks::stopCommand(findings);
	checks::killCommand(findings);
	checks::log(findings);
}

/// By file in the order of the first finding's file, then by line; the order of
/// the checks within a line.
void sort(CheckReport& report, const fs::path& own)
{
	std::ranges::stable_sort(report.findings,
	                         [&](const Finding& left, const Finding& right)
	                         {
		                         return std::tuple(left.file != own, left.file.string(), left.line) <
		                                std::tuple(right.file != own, right.file.string(), right.line);
	                         });
}

void whole(CheckReport& report, const fs::path& file, const std::string& id, const std::string& what,
           const std::string& remedy)
{
	report.findings.push_back({id, Severity::error, file, 0, what,
	                           "the agent ends at its start; nothing but a line on its standard error tells why",
	                           remedy});
}

/// @return the file; nothing when it is none that the daemon can read, which has
///         been told
std::optional<SettingsFile> open(const fs::path& file, CheckReport& report)
{
	const std::string remedy = "write it: \"velarixctl init\" makes the files of both nodes";
	switch (host::fileFacts(file).kind)
	{
	case host::FileKind::missing:
		whole(report, file, "settings-missing", "there is no settings file", remedy);
		return std::nullopt;
	case host::FileKind::directory:
		whole(report, file, "settings-is-a-directory", "the settings file is a directory", remedy);
		return std::nullopt;
	default:
		break;
	}
	SettingsFile settings = SettingsFile::load(file);
	if (settings.lines().empty())
	{
		whole(report, file, "settings-empty", "the settings file has no key", remedy);
		return std::nullopt;
	}
	return settings;
}

void disk(Findings& findings, const Paths& paths)
{
	checks::installation(findings, paths);
	checks::programFiles(findings, paths);
	checks::tools(findings, paths);
}

void node(Findings& findings, const CheckRequest& request, const Paths& paths)
{
	if (request.filesOnly)
	{
		findings.notChecked("directories, programs, tools and this machine", "--files-only");
		return;
	}
	disk(findings, paths);
	if (paths.elsewhere())
	{
		findings.notChecked("cards, addresses, ports, pings and processes", "another root");
		return;
	}
	checks::machine(findings, paths);
	if (request.tryCommands)
	{
		checks::trial(findings);
	}
}

void compare(Findings& own, CheckReport& report, const fs::path& file)
{
	const std::optional<SettingsFile> partner = open(file, report);
	if (partner)
	{
		Findings theirs(*partner, report);
		text(theirs, true);
		checks::pair(own, theirs);
	}
}

} // namespace

CheckReport check(const CheckRequest& request, const Paths& paths)
{
	CheckReport report;
	if (const std::optional<SettingsFile> file = open(request.file, report))
	{
		Findings own(*file, report);
		text(own, request.partner.has_value());
		node(own, request, paths);
		if (request.partner)
		{
			compare(own, report, *request.partner);
		}
	}
	sort(report, request.file);
	return report;
}

CheckReport checkTexts(const SettingsFile& own, const SettingsFile& partner)
{
	CheckReport report;
	Findings left(own, report);
	Findings right(partner, report);
	text(left, true);
	text(right, true);
	checks::pair(left, right);
	sort(report, own.path());
	return report;
}

} // namespace velarix::ctl
