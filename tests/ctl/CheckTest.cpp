#include "CheckTest.h"

#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
namespace fs = std::filesystem;

CheckTest::CheckTest()
{
	makeDisk();
	write("/usr/velarix/bin/ini/config.ini", "");
}

fs::path CheckTest::settings() const
{
	return below("/usr/velarix/bin/ini/config.ini");
}

std::vector<std::string> CheckTest::shortForms(const CheckReport& report) const
{
	std::vector<std::string> result;
	for (const Finding& finding : report.findings)
	{
		expectWhole(finding);
		std::string text = finding.severity == Severity::error ? "error " : "warning ";
		text += finding.id + " " + anonymous(finding.file.string());
		result.push_back(finding.line == 0 ? text : text + ":" + std::to_string(finding.line));
	}
	return result;
}

std::vector<std::string> CheckTest::found(const CheckRequest& request) const
{
	return shortForms(check(request, Paths(root())));
}

std::vector<std::string> CheckTest::found() const
{
	write("/usr/velarix/bin/ini/config.ini", joined(lines));
	return found({.file = settings(), .partner = {}, .filesOnly = false});
}

std::vector<std::string> CheckTest::foundOnMachine() const
{
	return shortForms(reportOf(parsed(), [](Findings& findings) { checks::machine(findings, Paths(), false); }));
}

SettingsFile CheckTest::parsed(const fs::path& file) const
{
	return SettingsFile::parse(file, joined(lines));
}

CheckReport CheckTest::reportOf(const SettingsFile& file, const std::function<void(Findings&)>& checks)
{
	CheckReport report;
	Findings findings(file, report);
	checks(findings);
	return report;
}
