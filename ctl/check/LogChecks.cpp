#include "ctl/check/Checks.h"

#include <string>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/FileChannel.h>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

constexpr char kNoLog[] = "the agent says \"initLog fail\" on its console and runs without a log file";

void path(Findings& findings)
{
	const std::optional<std::string> path = findings.file.text(key::kLogPath);
	if (!path)
	{
		return;
	}
	if (path->empty())
	{
		findings.error(key::kLogPath, {"empty-log-path", std::string(key::kLogPath) + " is empty", kNoLog,
		                               "write the log file's absolute path"});
	}
	else if (path->front() != '/')
	{
		findings.warning(key::kLogPath,
		                 {"relative-log-path", std::string(key::kLogPath) + " is a relative path: " + *path,
		                  "the log is written below the directory that the agent was started in",
		                  "write the absolute path"});
	}
}

/// @return what the library says against the value; empty when it takes it
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

void purgeAge(Findings& findings)
{
	const std::optional<std::string> age = findings.file.text(key::kPurgeAge);
	if (!age)
	{
		return;
	}
	const std::string name(key::kPurgeAge);
	if (const std::string why = refusal(*age); !why.empty())
	{
		findings.error(key::kPurgeAge,
		               {"bad-purge-age", name + " is \"" + *age + "\" (" + why + ")", kNoLog,
		                "write a number above zero and one of seconds, minutes, hours, days, weeks, months: "
		                "30 days"});
	}
	else if (age->empty() || *age == "none")
	{
		findings.warning(key::kPurgeAge,
		                 {"logs-kept-for-ever", name + " is " + (age->empty() ? "empty" : *age),
		                  "old logs are never deleted, some 100 MB a day; on a full disk the receiver thread ends in "
		                  "silence while heartbeats still go out, and nobody takes over",
		                  "write an age, for example 30 days"});
	}
	else if (age->find("second") != std::string::npos || age->find("minute") != std::string::npos)
	{
		findings.warning(key::kPurgeAge,
		                 {"short-purge-age", name + " is " + *age,
		                  "a renamed log is deleted as soon as the next one is begun, and with it the history",
		                  "write at least a few days"});
	}
}

} // namespace

void log(Findings& findings)
{
	path(findings);
	purgeAge(findings);
}

} // namespace velarix::ctl::checks
