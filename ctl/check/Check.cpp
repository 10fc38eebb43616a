#include <array>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>

#include <Poco/String.h>

#include "ctl/Keeper.h"
#include "ctl/check/Checks.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"

namespace velarix::ctl
{

namespace
{

namespace fs = std::filesystem;

/// A line with one of these has its other findings by it.
constexpr std::array kExplaining{"quoted-value",      "reference-to-nothing", "reference-not-closed", "comma-in-number",
                                 "pasted-characters", "same-address",         "log-is-no-file"};

/// What follows from another finding that is no less severe, wherever that stands.
constexpr std::array<std::pair<const char*, const char*>, 11> kFollows{{
    {"address-of-another-network", "keeper-another-interface"},
    {"program-not-counted", "keeper-service-unmanaged"},
    {"keeper-files-differ", "keeper-service-missing"},
    {"firewall-of-other-settings", "reach-address-differs"},
    {"tunnel-rules", "firewall-of-other-settings"},
    {"not-this-node", "tunnel-missing"},
    {"address-of-this-node", "same-address"},
    {"another-address-raised", "same-address"},
    {"another-address-dropped", "same-address"},
    {"keeper-address-differs", "same-address"},
    {"firewall-of-other-settings", "same-address"},
}};

void dropConsequences(CheckReport& report)
{
	std::set<std::pair<fs::path, int>> explained;
	std::set<std::string> ids;
	for (const Finding& finding : report.findings)
	{
		ids.insert(finding.id);
		if (checks::contains(kExplaining, finding.id) && finding.severity == Severity::error)
		{
			explained.emplace(finding.file, finding.line);
		}
	}
	std::erase_if(report.findings,
	              [&](const Finding& finding)
	              {
		              return (!checks::contains(kExplaining, finding.id) &&
		                      explained.contains({finding.file, finding.line})) ||
		                     std::ranges::any_of(kFollows, [&](const auto& pair)
		                                         { return finding.id == pair.first && ids.contains(pair.second); });
	              });
}

void known(CheckReport& report, const std::string& name, const Place& place)
{
	if (!name.empty() && name[0] != '#' && name[0] != ';' && !isFinding(name))
	{
		report.add("unknown-finding", {}, place, {"", name});
	}
}

/// A name in each line, with the reason behind it.
std::vector<std::string> acknowledged(const Paths& paths, CheckReport& report)
{
	std::vector<std::string> result;
	const fs::path file = paths.below(checks::kAcknowledged);
	try
	{
		std::istringstream lines(checks::isMissing(file) ? "" : readInputFile(file));
		int number = 0;
		for (std::string line; std::getline(lines, line);)
		{
			line.erase(0, line.find_first_not_of(" \t"));
			result.push_back(line.substr(0, line.find_first_of(" \t\r")));
			known(report, result.back(), {file, ++number});
		}
	}
	catch (const Failure& failure)
	{
		report.notChecked.push_back({"which findings are acknowledged", failure.what()});
	}
	return result;
}

void setAside(CheckReport& report, const std::vector<std::string>& names)
{
	const auto rest =
	    std::stable_partition(report.findings.begin(), report.findings.end(),
	                          [&](const Finding& finding) { return !checks::contains(names, finding.id); });
	report.acknowledged.assign(rest, report.findings.end());
	report.findings.erase(rest, report.findings.end());
}

/// By file in the order of the first finding's file, then by line; the order of
/// the checks within a line.
void sort(CheckReport& report, const fs::path& own)
{
	std::ranges::stable_sort(report.findings, {},
	                         [&](const Finding& finding)
	                         { return std::tuple(finding.file != own, finding.file.string(), finding.line); });
}

/// What an editor of another system writes: every second byte is a zero, and each line
/// would be a fault of its own.
bool isOtherEncoding(const std::string& content)
{
	return content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF") ||
	       content.find('\0') != std::string::npos;
}

/// @param settings gets the file
/// @return the finding of what the daemon cannot read; null for nothing
const char* refusal(const fs::path& file, std::optional<SettingsFile>& settings)
{
	const host::FileKind kind = host::fileFacts(file).kind;
	if (kind == host::FileKind::missing || kind == host::FileKind::directory)
	{
		return kind == host::FileKind::missing ? "settings-missing" : "settings-is-a-directory";
	}
	const std::string content = readInputFile(file);
	if (isOtherEncoding(content))
	{
		return "settings-encoding";
	}
	settings = SettingsFile::parse(file, content);
	if (settings->lineOfSection("address") != 0 && settings->lineOfSection("AGENT") == 0)
	{
		return "settings-of-the-keeper";
	}
	if (settings->lines().empty())
	{
		return "settings-empty";
	}
	return std::ranges::none_of(settings->lines(), &SettingLine::assigned) ? "no-assignment/at-all" : nullptr;
}

/// @return the file; nothing when it is none that the daemon can read, which has
///         been reported
std::optional<SettingsFile> open(const fs::path& file, CheckReport& report, bool partners = false)
{
	std::optional<SettingsFile> settings;
	if (const char* entry = refusal(file, settings))
	{
		report.add(entry, {}, {file},
		           {"",
		            partners ? "the two nodes' files are not compared"
		                     : "the agent ends at its start; nothing but a line on its standard error tells why",
		            partners ? "name a copy of the partner's config.ini"
		                     : "write it: \"velarixctl init\" makes the files of both nodes"});
		return std::nullopt;
	}
	Findings findings(*settings, report);
	return checks::writtenForOthers(findings) ? std::nullopt : settings;
}

/// Its keeper.ini stands beside a settings file; the installed one is taken for a file
/// without. The installed settings may be a link: beside it, not beside its target.
/// @return nothing when the settings do without the keeper
std::optional<checks::KeeperFile> openKeeper(Findings& findings, const Paths& paths)
{
	if (!usesKeeper(findings.file))
	{
		return std::nullopt;
	}
	const fs::path& installed = paths.keeperSettings;
	fs::path path = findings.file.path().parent_path() / installed.filename();
	const bool isInstalled = findings.file.path() == paths.settings;
	path = isInstalled || checks::isMissing(path) ? installed : path;
	return checks::KeeperFile{path, keeper::readSettings(path.c_str())};
}

void node(Findings& findings, const CheckRequest& request, const Paths& paths,
          const std::optional<checks::KeeperFile>& keeperFile)
{
	if (request.filesOnly)
	{
		findings.notChecked("directories, programs, tools and this machine", "--files-only");
		return;
	}
	checks::installation(findings, paths);
	checks::programFiles(findings, paths);
	checks::trust(findings, paths);
	checks::tools(findings, paths);
	checks::service(findings, paths);
	checks::notifiers(findings, paths);
	checks::firewall(findings, paths);
	checks::tunnelFiles(findings);
	if (keeperFile)
	{
		checks::keeperPrograms(findings, *keeperFile, paths);
	}
	if (paths.elsewhere())
	{
		findings.notChecked("interfaces, addresses, ports, pings, processes and what the commands do", "another root");
		return;
	}
	checks::machine(findings, paths, keeperFile && keeperFile->parsed.settings.reach.line != 0);
	keeperFile ? checks::keeperMachine(findings, *keeperFile) : checks::trial(findings, host::addresses());
}

/// The partner's texts, and what must fit between the two.
void compare(Findings& own, const std::optional<checks::KeeperFile>& ownKeeper, Findings& theirs,
             const std::optional<checks::KeeperFile>& theirKeeper)
{
	checks::text(theirs);
	checks::pair(own, theirs);
	if (ownKeeper && theirKeeper)
	{
		checks::keeperFile(theirs, *theirKeeper);
		checks::keeperPair(own, *ownKeeper, *theirKeeper);
	}
}

void comparePartner(Findings& own, const std::optional<checks::KeeperFile>& keeperFile, CheckReport& report,
                    const fs::path& file)
{
	const std::optional<SettingsFile> partner = open(file, report, true);
	if (!partner)
	{
		return;
	}
	Findings theirs(*partner, report);
	std::optional<checks::KeeperFile> other;
	const fs::path beside = file.parent_path() / (keeperFile ? keeperFile->path.filename() : "");
	if (keeperFile && (checks::isMissing(beside) || beside == keeperFile->path))
	{
		own.notChecked("whether the keeper does the same on both nodes",
		               "the partner's keeper.ini is not beside its file");
	}
	else if (keeperFile)
	{
		other = checks::KeeperFile{beside, keeper::readSettings(beside.c_str())};
		checks::reachKeys(own, *keeperFile, *other);
	}
	compare(own, keeperFile, theirs, other);
}

/// What is done about it is done on the machine that the files belong to.
void leaveOutRoot(CheckReport& report, const Paths& paths)
{
	for (Finding& finding : report.findings)
	{
		std::string words = " " + finding.remedy;
		Poco::replaceInPlace(words, " " + (paths.root / "").string(), std::string(" /"));
		finding.remedy = words.substr(1);
	}
}

} // namespace

void checks::text(Findings& findings)
{
	lines(findings);
	keys(findings);
	addresses(findings);
	programs(findings);
	commands(findings);
}

CheckReport check(const CheckRequest& request, const Paths& paths)
{
	CheckReport report;
	const fs::path settings = request.file.empty() ? paths.settings : fs::path(request.file);
	if (const std::optional<SettingsFile> file = open(settings, report))
	{
		Findings own(*file, report);
		checks::text(own);
		request.partner.empty() ? checks::timing(own) : void();
		const std::optional<checks::KeeperFile> keeperFile = openKeeper(own, paths);
		if (keeperFile)
		{
			checks::keeperFile(own, *keeperFile);
		}
		node(own, request, paths, keeperFile);
		if (!request.partner.empty())
		{
			comparePartner(own, keeperFile, report, request.partner);
		}
	}
	dropConsequences(report);
	leaveOutRoot(report, paths);
	std::vector<std::string> names = acknowledged(paths, report);
	for (const std::string& name : request.ignored)
	{
		known(report, name, {settings});
		names.push_back(name);
	}
	sort(report, settings);
	setAside(report, names);
	return report;
}

CheckReport checkTexts(const NodeTexts& own, const NodeTexts& partner)
{
	CheckReport report;
	Findings left(own.settings, report);
	Findings right(partner.settings, report);
	std::optional<checks::KeeperFile> here;
	std::optional<checks::KeeperFile> there;
	checks::text(left);
	if (!own.keeperText.empty())
	{
		here = checks::KeeperFile{own.keeperFile, keeper::parseSettings(own.keeperText)};
		there = checks::KeeperFile{partner.keeperFile, keeper::parseSettings(partner.keeperText)};
		checks::keeperFile(left, *here);
	}
	compare(left, here, right, there);
	sort(report, own.settings.path());
	return report;
}

ExitCode runCheck(const CheckRequest& request, const Context& context)
{
	const CheckReport report = check(request, context.paths);
	request.json ? printReportJson(context.out, report) : printReport(context.out, report, context.colour);
	const bool wrong = report.count(Severity::error) > 0 || (request.strict && report.count(Severity::warning) > 0);
	return wrong ? ExitCode::settings : ExitCode::fine;
}

} // namespace velarix::ctl
