/// The settings file as "velarixctl check" sees it.
///
/// Input: the text of the file, and after a 0xff that of the partner's. Each key
/// has the value that the library's parser gives it, none is seen by the one and
/// not by the other; all checks of the text run; their findings point into the
/// file and can be printed.
#include <algorithm>
#include <cstdint>
#include <sstream>

#include <Poco/AutoPtr.h>
#include <Poco/Util/IniFileConfiguration.h>
#include <nlohmann/json.hpp>

#include "ctl/check/Checks.h"
#include "ctl/check/Findings.h"
#include "inspect/HostTrial.h"
#include "inspect/Printable.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"

#include "Target.h"

/// In place of the real one, which would start a shell for each command of each input.
std::string velarix::inspect::host::shellRefusal(const std::string& /*command*/, const char* /*shell*/)
{
	return {};
}

namespace
{

using namespace velarix::ctl;
using namespace velarix::inspect;
using Parser = Poco::AutoPtr<Poco::Util::IniFileConfiguration>;

constexpr int kDeepest = 8;

/// What the daemon's parser makes of a text.
Parser parse(const std::string& text)
{
	std::istringstream stream(text);
	return new Poco::Util::IniFileConfiguration(stream);
}

/// Every key of the parser has its line. Keys whose parts are empty cannot be
/// listed and are left out.
void compareListed(const SettingsFile& file, const Parser& parser, const std::string& base, int depth)
{
	std::vector<std::string> names;
	parser->keys(base, names);
	for (const std::string& name : names)
	{
		const std::string key = base.empty() ? name : base + "." + name;
		if (name.empty() || depth > kDeepest)
		{
			continue;
		}
		if (parser->hasProperty(key))
		{
			fuzz::expect("every key of the parser has a line", file.find(key) != nullptr, key);
		}
		compareListed(file, parser, key, depth + 1);
	}
}

void compareWithParser(const SettingsFile& file, const std::string& text)
{
	const Parser parser = parse(text);
	const auto lines = static_cast<int>(std::ranges::count(text, '\n')) + 1;
	for (const SettingLine& line : file.lines())
	{
		fuzz::expect("every key line is a key of the parser", parser->hasProperty(line.key), line.key);
		fuzz::expectEqual("the value", file.find(line.key)->value, parser->getRawString(line.key));
		fuzz::expect("a key line is in the file", line.line >= 1 && line.line <= lines, line.key);
	}
	for (const KeyInfo& known : settingsKeys())
	{
		const std::string key(known.name);
		fuzz::expect("a key is there or not", parser->hasProperty(key) == (file.find(key) != nullptr), key);
	}
	compareListed(file, parser, "", 0);
}

void checkReport(const CheckReport& report, int lines)
{
	for (const Finding& finding : report.findings)
	{
		fuzz::expect("a finding points into the file", finding.line >= 0 && finding.line <= lines, finding.what);
		fuzz::expect("a finding has its words", !finding.id.empty() && !finding.what.empty() &&
		                                            !finding.effect.empty() && !finding.remedy.empty());
	}
	std::ostringstream text;
	printReport(text, report, false);
	std::istringstream printed(text.str());
	for (std::string line; std::getline(printed, line);)
	{
		fuzz::expectEqual("the report can be shown on a terminal", line, printable(line));
	}
	std::ostringstream json;
	printReportJson(json, report);
	const auto read = nlohmann::json::parse(json.str());
	fuzz::expectEqual("the JSON report has every finding", read.at("findings").size(), report.findings.size());
}

} // namespace

void fuzz::run(Input& input)
{
	const std::string text = input.field();
	const std::string partnerText = input.rest();
	const SettingsFile file = SettingsFile::parse("own.ini", text);
	compareWithParser(file, text);
	const SettingsFile partner = SettingsFile::parse("partner.ini", partnerText);

	CheckReport report;
	Findings own(file, report);
	checks::text(own);
	if (partnerText.empty())
	{
		checks::timing(own);
	}
	else
	{
		Findings theirs(partner, report);
		checks::pair(own, theirs);
	}
	const auto lines = std::max(std::ranges::count(text, '\n'), std::ranges::count(partnerText, '\n')) + 1;
	checkReport(report, static_cast<int>(lines));
}
