#include "ctl/check/Checks.h"

#include <string>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

/// Slower than this a take-over is worth a word, in seconds.
constexpr int kLongReceivingTime = 30;
constexpr int kLongWaitingTime = 60;

std::string is(const std::string& name, int value)
{
	return name + " is " + std::to_string(value);
}

/// A number that is 1 or 2.
void choice(Findings& findings, const char* name, const char* id, const char* effect, const char* remedy)
{
	const std::optional<int> value = findings.file.integer(name);
	if (value && *value != 1 && *value != 2)
	{
		findings.warning(name, {id, is(name, *value) + ", neither 1 nor 2", effect, remedy});
	}
}

void port(Findings& findings, const std::string& name)
{
	const std::optional<int> value = findings.file.integer(name);
	if (!value || (*value > 0 && *value <= 65535))
	{
		return;
	}
	const int taken = static_cast<int>(static_cast<unsigned>(*value) & 0xFFFFU);
	const std::string effect = *value == 0 ? std::string(findKey(name)->zero)
	                                       : "port " + std::to_string(taken) + " is taken, the number modulo 65536";
	findings.error(name, {"port-out-of-range", is(name, *value) + ", no port", effect,
	                      "choose a port from 1 to 65535, the same in the partner's file"});
}

/// A time that must be above zero.
void pause(Findings& findings, const std::string& name)
{
	const std::optional<int> seconds = findings.file.integer(name);
	if (seconds && *seconds <= 0)
	{
		const KeyInfo& info = *findKey(name);
		// "The same as zero" is no help to someone who reads this line alone.
		const bool same = *seconds == 0 || info.negative == "the same as zero";
		findings.error(name, {*seconds == 0 ? "zero-time" : "negative-time", is(name, *seconds),
		                      std::string(same ? info.zero : info.negative), "write at least 1 (second)"});
	}
}

void waitingTime(Findings& findings)
{
	const std::optional<int> seconds = findings.file.integer(key::kWaitingTime);
	if (seconds && *seconds < 0)
	{
		findings.error(key::kWaitingTime,
		               {"negative-time", is(key::kWaitingTime, *seconds),
		                std::string(findKey(key::kWaitingTime)->negative), "write 0 or a few seconds"});
	}
	else if (seconds && *seconds > kLongWaitingTime)
	{
		findings.warning(key::kWaitingTime,
		                 {"long-waiting-time", is(key::kWaitingTime, *seconds) + " seconds",
		                  "every take-over keeps the clients waiting that long, and the node hears nothing meanwhile",
		                  "write 0 or a few seconds"});
	}
}

void receivingTime(Findings& findings)
{
	const std::optional<int> seconds = findings.file.integer(key::kReceivingTime);
	if (seconds && *seconds > kLongReceivingTime)
	{
		findings.warning(key::kReceivingTime,
		                 {"slow-take-over", is(key::kReceivingTime, *seconds) + " seconds",
		                  "a partner that does not answer is given up after three times this and a second each, " +
		                      std::to_string(3LL * (*seconds + 1LL)) + " seconds; lost pings are looked at as rarely",
		                  "write a few seconds, at least twice the partner's HEART_BEAT_INTERVAL"});
	}
}

void programNumber(Findings& findings)
{
	const std::optional<int> number = findings.file.integer(key::kProcessNumber);
	if (number && *number < 0)
	{
		findings.error(key::kProcessNumber,
		               {"no-programs", is(key::kProcessNumber, *number),
		                std::string(findKey(key::kProcessNumber)->zero), "write how many programs are managed"});
	}
	else if (number && *number == 0)
	{
		findings.warning(key::kProcessNumber,
		                 {"no-programs", is(key::kProcessNumber, *number),
		                  std::string(findKey(key::kProcessNumber)->zero) + "; only the address moves",
		                  "write how many programs are managed, unless the address alone is the service"});
	}
}

} // namespace

void numbers(Findings& findings)
{
	choice(findings, key::kMode, "unknown-role", "it counts as 2 (slave)", "write 1 on one node and 2 on the other");
	choice(findings, key::kObservationMode, "unknown-observation-mode", "it counts as 2, which does the same as 1",
	       "write 1");
	port(findings, key::kReceivePort);
	port(findings, key::kPartnerPort);
	pause(findings, key::kInterval);
	pause(findings, key::kReceivingTime);
	pause(findings, key::kCheckCycle);
	receivingTime(findings);
	waitingTime(findings);
	programNumber(findings);
}

void timing(Findings& findings, bool withPartner)
{
	const std::optional<int> interval = findings.file.integer(key::kInterval);
	const std::optional<int> receiving = findings.file.integer(key::kReceivingTime);
	if (withPartner || !interval || !receiving || *interval <= 0 || *receiving <= 0)
	{
		return;
	}
	if (*receiving < 2LL * *interval)
	{
		findings.warning(key::kReceivingTime,
		                 {"short-receiving-time",
		                  is(key::kReceivingTime, *receiving) + ", less than twice HEART_BEAT_INTERVAL, which is " +
		                      std::to_string(*interval),
		                  "if the partner sends at the same pace, its heartbeats come too late now and then: silences "
		                  "are logged as errors and counted although it is well",
		                  "write at least " + std::to_string(2LL * *interval)});
	}
}

} // namespace velarix::ctl::checks
