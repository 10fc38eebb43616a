/// keeper.ini as the keeper reads it.
///
/// Input: the text of the file. Every finding points into it and says what to do. Settings
/// without an error are within the ranges that the manual gives, their names are names that
/// the agent can tell apart, and written out again they are read as the same.
#include <algorithm>
#include <cstdint>
#include <string>

#include <sysexits.h>

#include "keeper/Settings.h"

#include "Target.h"

namespace
{

using namespace velarix::keeper;

void checkFindings(const ParsedSettings& parsed, const std::string& text)
{
	const auto lines = static_cast<int>(std::ranges::count(text, '\n')) + 1;
	for (const Finding& finding : parsed.findings)
	{
		fuzz::expect("a finding points into the file", finding.line >= 0 && finding.line <= lines, finding.text);
		fuzz::expect("a finding has text, cure and status",
		             !finding.text.empty() && !finding.cure.empty() && finding.status == EX_CONFIG, finding.text);
	}
}

bool within(int number, int low, int high)
{
	return number >= low && number <= high;
}

void checkService(const ServiceSettings& service, const Settings& settings)
{
	fuzz::expect("a name that the agent sees as a whole", service.program.size() <= kLongestName, service.program);
	fuzz::expect("not contained in the address's",
	             std::string(kAddressProgram).find(service.program) == std::string::npos);
	for (const ServiceSettings& other : settings.services)
	{
		fuzz::expect("not contained in another one",
		             &other == &service || other.program.find(service.program) == std::string::npos, service.program);
	}
	fuzz::expect("a command or a unit", service.command.empty() != service.unit.empty(), service.program);
	fuzz::expect("numbers within their ranges",
	             within(service.checkInterval, 1, 3600) && within(service.checkFailures, 1, 100) &&
	                 within(service.checkTimeout, 0, 3600) && within(service.restarts, 0, 1000) &&
	                 within(service.restartsWithin, 1, 86400) && within(service.stopTimeout, 0, 3600),
	             service.program);
}

std::string quoted(const std::vector<std::string>& words)
{
	std::string text;
	for (const std::string& word : words)
	{
		text += " \"";
		for (const char sign : word)
		{
			text += sign == '"' || sign == '\\' ? std::string("\\") + sign : std::string(1, sign);
		}
		text += '"';
	}
	return text;
}

std::string line(const std::string& key, const std::string& value)
{
	return value.empty() ? "" : key + " = " + value + "\n";
}

std::string written(const Settings& settings)
{
	const AddressSettings& address = settings.address;
	std::string text = "[address]\n" + line("address", address.text + "/" + std::to_string(address.prefix)) +
	                   line("interface", address.interface) + line("on_conflict", address.defend ? "defend" : "yield");
	for (const ServiceSettings& service : settings.services)
	{
		text += "[service " + service.program.substr(kPrefix.size()) + "]\n" +
		        line("command", quoted(service.command)) + line("unit", service.unit) + line("user", service.user) +
		        line("group", service.group) + line("directory", service.directory) +
		        line("environment", quoted(service.environment)) + line("check", quoted(service.check)) +
		        line("check_interval", std::to_string(service.checkInterval)) +
		        line("check_failures", std::to_string(service.checkFailures)) +
		        line("check_timeout", service.checkTimeout > 0 ? std::to_string(service.checkTimeout) : "") +
		        line("restarts", std::to_string(service.restarts) + " in " + std::to_string(service.restartsWithin)) +
		        line("stop_timeout", std::to_string(service.stopTimeout));
	}
	return text;
}

} // namespace

void fuzz::run(Input& input)
{
	const std::string text = input.rest();
	const ParsedSettings parsed = parseSettings(text);
	checkFindings(parsed, text);
	if (parsed.error() != nullptr)
	{
		return;
	}
	for (const ServiceSettings& service : parsed.settings.services)
	{
		checkService(service, parsed.settings);
	}
	const std::string once = written(parsed.settings);
	const ParsedSettings again = parseSettings(once);
	fuzz::expect("what is written out is sound", again.error() == nullptr, once);
	fuzz::expectEqual("what is written out is the same", written(again.settings), once);
}
