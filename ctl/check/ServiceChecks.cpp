// The service's own options and notifiers, of which those that do not fit are passed over in silence.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <string>

#include "ctl/notify/Notifiers.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Pattern.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

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

void service(Findings& findings, const Paths& paths)
{
	static const Pattern kAssignment(R"(\s*(?:export\s+)?(VELARIX_\w*)\s*=\s*["']?([^"'\s#]*).*)");
	const std::filesystem::path file = paths.below(kDefaults);
	if (host::fileFacts(file).kind == host::FileKind::missing)
	{
		return;
	}
	try
	{
		std::istringstream lines(readInputFile(file));
		int number = 0;
		for (std::string line; std::getline(lines, line);)
		{
			++number;
			if (const Pattern::Groups found = kAssignment.matched(line); !found.empty())
			{
				option(findings, file, number, found[1], found[2]);
			}
		}
	}
	catch (const Failure& failure)
	{
		findings.notChecked(file.string(), failure.what());
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
		found != all.end() ? findings.add("notifier-not-run/refused", {entry.path()}, found->refused)
		                   : findings.add("notifier-not-run", {entry.path()});
	}
}

} // namespace velarix::ctl::checks
