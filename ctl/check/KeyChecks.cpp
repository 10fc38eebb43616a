// Every key is there, and its value is one that the agent can work with.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <string>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/FileChannel.h>

#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

/// Slower than this a take-over is worth a word, in seconds.
constexpr int kLongReceivingTime = 30;
constexpr int kLongWaitingTime = 60;

void missing(Findings& findings, const std::string& name, const KeyInfo& info)
{
	const std::size_t dot = name.find('.');
	findings.add(info.whenRead == "never" ? "missing-key/unused" : "missing-key", name, info.missing,
	             name.substr(dot + 1), info.example, name.substr(0, dot));
}

void notANumber(Findings& findings, const std::string& name, const KeyInfo& info)
{
	const std::string text = findings.valueOf(name);
	findings.add("not-a-number", name, text.empty() ? "empty" : "\"" + text + "\", which is no whole number",
	             info.missing, info.unit.empty() ? "1 or 2" : info.unit);
}

/// The library leaves commas out: they are taken for those between thousands.
void comma(Findings& findings, const std::string& name)
{
	static const Pattern kThousands("[-+]?[0-9]{1,3}(,[0-9]{3})*");
	const std::string text = findings.valueOf(name);
	if (text.find(',') != std::string::npos && kThousands.matched(text).empty())
	{
		findings.add("comma-in-number", name, text, findings.file.integer(name).value_or(0));
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
		findings.add("endless-reference", name, reason.displayText());
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
			findings.add("missing-program", name, number, info.missing);
			return;
		}
		check(findings, name, info);
	}
}

/// A number that is 1 or 2.
void choice(Findings& findings, const char* name, const char* id)
{
	const int value = findings.file.integer(name).value_or(1);
	if (value != 1 && value != 2)
	{
		findings.add(id, name, value);
	}
}

void port(Findings& findings, const char* name)
{
	const int value = findings.file.integer(name).value_or(1);
	if (value == 0)
	{
		findings.add("port-out-of-range", name, value, findKey(name)->zero);
	}
	else if (value < 0 || value > 65535)
	{
		findings.add("port-out-of-range/modulo", name, value, static_cast<unsigned>(value) & 0xFFFFU);
	}
}

/// A time that must be above zero.
void pause(Findings& findings, const char* name)
{
	const int seconds = findings.file.integer(name).value_or(1);
	if (seconds <= 0)
	{
		const KeyInfo& info = *findKey(name);
		// "The same as zero" is no help to someone who reads this line alone.
		const bool same = seconds == 0 || info.negative == "the same as zero";
		findings.add(seconds == 0 ? "zero-time" : "negative-time", name, seconds, same ? info.zero : info.negative);
	}
}

void times(Findings& findings)
{
	for (const char* name : {key::kInterval, key::kReceivingTime, key::kCheckCycle})
	{
		pause(findings, name);
	}
	const int receiving = findings.file.integer(key::kReceivingTime).value_or(1);
	if (receiving > kLongReceivingTime)
	{
		findings.add("slow-take-over", key::kReceivingTime, receiving, 3LL * (receiving + 1LL));
	}
	const int waiting = findings.file.integer(key::kWaitingTime).value_or(0);
	if (waiting < 0)
	{
		findings.add("negative-time/waiting", key::kWaitingTime, waiting, findKey(key::kWaitingTime)->negative);
	}
	else if (waiting > kLongWaitingTime)
	{
		findings.add("long-waiting-time", key::kWaitingTime, waiting);
	}
}

/// @return what the library says against a purge age; empty when it takes it
std::string refusal(const std::string& age)
{
	try
	{
		Poco::AutoPtr<Poco::FileChannel> channel(new Poco::FileChannel);
		channel->setProperty("purgeAge", age);
		return {};
	}
	catch (const Poco::Exception& reason)
	{
		return reason.displayText();
	}
}

void purgeAge(Findings& findings, const std::string& age)
{
	if (const std::string why = refusal(age); !why.empty())
	{
		findings.add("bad-purge-age", key::kPurgeAge, age, why);
	}
	else if (age.empty() || age == "none")
	{
		findings.add("logs-kept-for-ever", key::kPurgeAge, age.empty() ? "empty" : age);
	}
	else if (age.find("second") != std::string::npos || age.find("minute") != std::string::npos)
	{
		findings.add("short-purge-age", key::kPurgeAge, age);
	}
}

void numbers(Findings& findings)
{
	choice(findings, key::kMode, "unknown-role");
	choice(findings, key::kObservationMode, "unknown-observation-mode");
	port(findings, key::kReceivePort);
	port(findings, key::kPartnerPort);
	times(findings);
	const int programs = findings.file.integer(key::kProcessNumber).value_or(1);
	if (programs <= 0)
	{
		findings.add(programs < 0 ? "no-programs/negative" : "no-programs", key::kProcessNumber, programs,
		             findKey(key::kProcessNumber)->zero);
	}
}

void log(Findings& findings)
{
	const std::string path = findings.file.text(key::kLogPath).value_or("/");
	if (!path.starts_with('/'))
	{
		findings.add(path.empty() ? "empty-log-path" : "relative-log-path", key::kLogPath, path);
	}
	if (const std::optional<std::string> age = findings.file.text(key::kPurgeAge))
	{
		purgeAge(findings, *age);
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
			findings.add("missing-section", {findings.file.path()}, section);
		}
		info.name == key::kProcessPath ? programPaths(findings, info) : check(findings, name, info);
	}
	numbers(findings);
	log(findings);
}

void timing(Findings& findings)
{
	const int interval = findings.file.integer(key::kInterval).value_or(0);
	const int receiving = findings.file.integer(key::kReceivingTime).value_or(0);
	if (interval > 0 && receiving > 0 && receiving < 2LL * interval)
	{
		findings.add("short-receiving-time", key::kReceivingTime, receiving, interval, 2LL * interval);
	}
}

} // namespace velarix::ctl::checks
