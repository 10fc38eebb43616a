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
	return ::shortForms(report,
	                    [this](const Finding& finding)
	                    {
		                    const std::string line = finding.line == 0 ? "" : ":" + std::to_string(finding.line);
		                    return anonymous(finding.file.string()) + line;
	                    });
}

std::vector<std::string> CheckTest::found(const CheckRequest& request) const
{
	return shortForms(check(request, Paths(root())));
}

std::vector<std::string> CheckTest::found() const
{
	write("/usr/velarix/bin/ini/config.ini", joined(lines));
	return found({.file = settings()});
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
