#include "ctl/check/Checks.h"

#include <algorithm>
#include <string>

#include <Poco/Exception.h>

#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

void missing(Findings& findings, const std::string& name, const KeyInfo& info)
{
	const Words words{"missing-key", name + " is missing", std::string(info.missing),
	                  "add the line \"" + name.substr(name.find('.') + 1) + " = " + std::string(info.example) +
	                      "\" with your value to section [" + name.substr(0, name.find('.')) + "]"};
	if (info.whenRead == "never")
	{
		findings.warning(name, words);
	}
	else
	{
		findings.error(name, words);
	}
}

void notANumber(Findings& findings, const std::string& name, const KeyInfo& info)
{
	const std::string text = findings.file.text(name).value_or("");
	const std::string kind = text.empty() ? "empty" : "\"" + text + "\", which is no whole number";
	findings.error(name, {"not-a-number", name + " is " + kind, std::string(info.missing),
	                      "write a whole number (" + std::string(info.unit.empty() ? "1 or 2" : info.unit) +
	                          ") and nothing behind it"});
}

/// The library leaves commas out: they are taken for those between thousands.
void comma(Findings& findings, const std::string& name)
{
	static const Pattern kThousands("[-+]?[0-9]{1,3}(,[0-9]{3})*");
	const std::string text = findings.file.text(name).value_or("");
	if (text.find(',') != std::string::npos && kThousands.matched(text).empty())
	{
		const std::string read = std::to_string(findings.file.integer(name).value_or(0));
		findings.error(name, {"comma-in-number", name + " is " + text + ", which is read as " + read,
		                      "the comma is left out: the agent works with " + read, "write a whole number"});
	}
}

void check(Findings& findings, const std::string& name, const KeyInfo& info)
{
	if (findings.file.find(name) == nullptr)
	{
		findings.file.lacksSection(name) ? void() : missing(findings, name, info);
		return;
	}
	try
	{
		findings.file.textOrThrow(name);
	}
	catch (const Poco::Exception& reason)
	{
		findings.error(name,
		               {"endless-reference", name + " refers to itself",
		                "the agent ends when it reads the key (" + reason.displayText() + ")", "write the value"});
		return;
	}
	if (info.type == KeyType::integer)
	{
		findings.file.integer(name) ? comma(findings, name) : notANumber(findings, name, info);
	}
}

/// The paths up to PROCESS_NUM, reported once when several are missing.
void programPaths(Findings& findings, const KeyInfo& info)
{
	const int number = findings.file.integer(key::kProcessNumber).value_or(0);
	const auto there = std::ranges::count_if(findings.file.lines(),
	                                         [&](const SettingLine& line)
	                                         {
		                                         const KeyInfo* known = findKey(line.key);
		                                         return known != nullptr && known->name == key::kProcessPath;
	                                         });
	// Looking further than one beyond those that are there would tell nothing new.
	for (int i = 1; i <= number && i <= there + 1; ++i)
	{
		const std::string name = programKey(i);
		if (findings.file.find(name) == nullptr)
		{
			findings.error(name, {"missing-program", name + " is missing, and PROCESS_NUM is " + std::to_string(number),
			                      std::string(info.missing), "add the program's path, or lower PROCESS_NUM"});
			return;
		}
		check(findings, name, info);
	}
}

} // namespace

void keys(Findings& findings)
{
	std::string section;
	for (const KeyInfo& info : settingsKeys())
	{
		const std::string name(info.name);
		const bool next = name.substr(0, name.find('.')) != section;
		section = name.substr(0, name.find('.'));
		// Its keys are another one's then, or no one's: one fault. A byte order mark hides the first one.
		if (next && findings.file.lacksSection(name) && !findings.hasAnywhere("byte-order-mark"))
		{
			findings.add(Severity::error, findings.file.path(), 0,
			             {"missing-section", "there is no section [" + section + "]",
			              "its keys count as missing: the agent ends at its start, or when it needs one",
			              "write the line [" + section + "] above its keys, spelled so"});
		}
		if (info.name == key::kProcessPath)
		{
			programPaths(findings, info);
		}
		else
		{
			check(findings, name, info);
		}
	}
}

} // namespace velarix::ctl::checks
