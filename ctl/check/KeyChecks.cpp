// Every key is there, and its value is one that the agent can work with, alone and beside the partner's.

#include <array>
#include <tuple>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/FileChannel.h>

#include "ctl/check/Checks.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

namespace
{

/// Slower than this a take-over is worth a word, in seconds.
constexpr int kLongReceivingTime = 30;
constexpr int kLongWaitingTime = 60;

void missing(Findings& findings, const std::string& name, const KeyInfo& info)
{
	const std::size_t dot = name.find('.');
	findings.add(info.whenRead == "never" ? Severity::warning : Severity::error, "missing-key", findings.at(name),
	             info.missing, name.substr(dot + 1), info.example, name.substr(0, dot));
}

/// The library leaves commas out: they are taken for those between thousands. No pattern looks at this, since it
/// recurses for each group of digits.
/// @param text a number for the library
bool hasOddComma(const std::string& text)
{
	const std::string digits = text.substr(text.find_first_of("0123456789,"));
	bool odd = digits.front() == ',';
	for (std::size_t i = 0; i < digits.size(); ++i)
	{
		odd = odd || (digits[digits.size() - 1 - i] == ',') != (i % 4 == 3);
	}
	return odd && digits.find(',') != std::string::npos;
}

void number(Findings& findings, const std::string& name, const KeyInfo& info)
{
	const std::string text = findings.valueOf(name);
	const std::optional<int> value = findings.file.integer(name);
	findings.addWhen(!value, "not-a-number", name,
	                 text.empty() ? "empty" : "\"" + text + "\", which is no whole number", info.missing,
	                 info.unit.empty() ? "1 or 2" : info.unit);
	findings.addWhen(value && hasOddComma(text), "comma-in-number", name, text, value.value_or(0));
}

void check(Findings& findings, const std::string& name, const KeyInfo& info)
{
	if (findings.find(name) == nullptr)
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
		number(findings, name, info);
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
		if (findings.find(name) == nullptr)
		{
			findings.add("missing-program", name, number, info.missing);
			return;
		}
		check(findings, name, info);
	}
}

/// A number that is missing or none is reported elsewhere.
void choice(Findings& findings, const char* name, const char* id)
{
	const int value = findings.file.integer(name).value_or(1);
	findings.addWhen(value != 1 && value != 2, id, name, value);
}

void port(Findings& findings, const char* name)
{
	const int value = findings.file.integer(name).value_or(1);
	const std::string taken = std::to_string(static_cast<unsigned>(value) & 0xFFFFU);
	findings.addWhen(value < 1 || value > 65535, "port-out-of-range", name, value,
	                 value == 0 ? std::string(findKey(name)->zero)
	                            : "port " + taken + " is taken, the number modulo 65536");
}

void time(Findings& findings, const char* name, int least, const char* remedy)
{
	const int seconds = findings.file.integer(name).value_or(least);
	const KeyInfo& info = *findKey(name);
	// "The same as zero" is no help to someone who reads this line alone.
	const bool same = seconds == 0 || info.negative == "the same as zero";
	findings.addWhen(seconds < least, seconds == 0 ? "zero-time" : "negative-time", name, seconds,
	                 same ? info.zero : info.negative, remedy);
}

void times(Findings& findings)
{
	for (const char* name : {key::kInterval, key::kReceivingTime, key::kCheckCycle})
	{
		time(findings, name, 1, "at least 1 (second)");
	}
	time(findings, key::kWaitingTime, 0, "0 or a few seconds");
	const int receiving = findings.file.integer(key::kReceivingTime).value_or(1);
	findings.addWhen(receiving > kLongReceivingTime, "slow-take-over", key::kReceivingTime, receiving,
	                 3LL * (receiving + 1LL));
	const int waiting = findings.file.integer(key::kWaitingTime).value_or(0);
	findings.addWhen(waiting > kLongWaitingTime, "long-waiting-time", key::kWaitingTime, waiting);
}

void purgeAge(Findings& findings, const std::string& age)
{
	try
	{
		Poco::AutoPtr<Poco::FileChannel> channel(new Poco::FileChannel);
		channel->setProperty("purgeAge", age);
	}
	catch (const Poco::Exception& reason)
	{
		findings.add("bad-purge-age", key::kPurgeAge, age, reason.displayText());
		return;
	}
	findings.addWhen(age.empty() || age == "none", "logs-kept-for-ever", key::kPurgeAge, age.empty() ? "empty" : age);
	findings.addWhen(age.find("second") != std::string::npos || age.find("minute") != std::string::npos,
	                 "short-purge-age", key::kPurgeAge, age);
}

void numbers(Findings& findings)
{
	choice(findings, key::kMode, "unknown-role");
	choice(findings, key::kObservationMode, "unknown-observation-mode");
	port(findings, key::kReceivePort);
	port(findings, key::kPartnerPort);
	times(findings);
	const int programs = findings.file.integer(key::kProcessNumber).value_or(1);
	findings.addWhen(programs <= 0, programs < 0 ? "no-programs/negative" : "no-programs", key::kProcessNumber,
	                 programs, findKey(key::kProcessNumber)->zero);
}

void log(Findings& findings)
{
	const std::string path = findings.file.text(key::kLogPath).value_or("/");
	findings.addWhen(!path.starts_with('/'), path.empty() ? "empty-log-path" : "relative-log-path", key::kLogPath,
	                 path);
	if (const std::optional<std::string> age = findings.file.text(key::kPurgeAge))
	{
		purgeAge(findings, *age);
	}
}

/// An asking node drops its ask with the fourth heartbeat of a partner that has
/// not heard it yet.
constexpr int kHeartbeatsOfAnAsk = 3;
/// Missed heartbeats in a row until a standby gives its partner up.
constexpr int kSilences = 3;

std::string bare(const std::string& key)
{
	return key.substr(key.find('.') + 1);
}

/// "KEY is VALUE here, and OTHER is VALUE in FILE:LINE"
std::string against(const Findings& here, const std::string& key, const Findings& there, const std::string& other)
{
	return bare(key) + " is " + here.valueOf(key) + ", and " + bare(other) + " is " + there.valueOf(other) + " in " +
	       there.file.path().string() + ":" + std::to_string(there.file.lineOf(other));
}

/// What one node says of its partner must be what the partner says of itself.
void mirrors(Findings& here, Findings& there)
{
	const std::optional<std::string> address = here.file.text(key::kPartnerIP);
	const std::optional<std::string> itself = there.file.text(key::kThisServerIP);
	here.addWhen(address && itself && *address != *itself && *itself != "0.0.0.0", "addresses-not-mirrored",
	             key::kPartnerIP, against(here, key::kPartnerIP, there, key::kThisServerIP));
	const std::optional<int> port = here.file.integer(key::kPartnerPort);
	const std::optional<int> listening = there.file.integer(key::kReceivePort);
	here.addWhen(port && listening && *port != *listening, "ports-not-mirrored", key::kPartnerPort,
	             against(here, key::kPartnerPort, there, key::kReceivePort));
}

/// @return the prefix that the start command gives the virtual IP, as far as its text tells
std::optional<int> raisedPrefix(const Findings& findings)
{
	return commandOf(findings, key::kStartCommand).prefixOf(findings.valueOf(key::kVirtualIP));
}

/// What belongs to the pair, and not to a node.
constexpr std::array<std::tuple<const char*, const char*, const char*>, 5> kAlike{{
    {key::kVirtualIP, "virtual-ip-differs", ""},
    {key::kGatewayIP, "gateways-differ", ""},
    {key::kStartCommand, "commands-differ", "the address is raised"},
    {key::kStopCommand, "commands-differ", "the address is dropped"},
    {key::kKillCommand, "commands-differ", "the programs are killed"},
}};

void alike(Findings& own, Findings& partner)
{
	// Commands for another address or prefix differ by that, which is reported.
	const bool sameAddress = own.file.text(key::kVirtualIP) == partner.file.text(key::kVirtualIP) &&
	                         raisedPrefix(own) == raisedPrefix(partner);
	for (const auto& [key, entry, what] : kAlike)
	{
		const std::string left = own.valueOf(key);
		const std::string right = partner.valueOf(key);
		const bool command = findKey(key)->type == KeyType::command;
		own.addWhen(left != right && (sameAddress || !command) && !left.empty() && !right.empty(), entry, key,
		            against(own, key, partner, key), what);
	}
}

void programs(Findings& own, Findings& partner)
{
	std::vector<std::string> left = own.file.programs();
	std::vector<std::string> right = partner.file.programs();
	std::ranges::sort(left);
	std::ranges::sort(right);
	own.addWhen(left != right, "programs-differ", key::kProcessNumber, left.size(), right.size());
}

/// One node's patience against the other one's pace. A time that is missing, zero or negative is reported elsewhere.
void silence(Findings& here, const Findings& there)
{
	const long receiving = here.file.integer(key::kReceivingTime).value_or(0);
	const long interval = there.file.integer(key::kInterval).value_or(0);
	const bool below = kSilences * (receiving + 1) <= interval;
	here.addWhen(receiving > 0 && interval > 0 && receiving < 2 * interval,
	             below ? "receiving-time-below-interval" : "short-receiving-time/pair", key::kReceivingTime,
	             against(here, key::kReceivingTime, there, key::kInterval), 2 * interval);
}

void paces(Findings& own, Findings& partner)
{
	const auto [fast, slow] = std::minmax<long>(
	    {own.file.integer(key::kInterval).value_or(0), partner.file.integer(key::kInterval).value_or(0)});
	own.addWhen(fast > 0 && slow >= kHeartbeatsOfAnAsk * fast, "paces-differ", key::kInterval,
	            against(own, key::kInterval, partner, key::kInterval));
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
		findings.addWhen(next && findings.file.lacksSection(name) && !findings.has("byte-order-mark"),
		                 "missing-section", Place{findings.file.path()}, section);
		info.name == key::kProcessPath ? programPaths(findings, info) : check(findings, name, info);
	}
	numbers(findings);
	log(findings);
}

void timing(Findings& findings)
{
	const int interval = findings.file.integer(key::kInterval).value_or(0);
	const int receiving = findings.file.integer(key::kReceivingTime).value_or(0);
	findings.addWhen(interval > 0 && receiving > 0 && receiving < 2LL * interval, "short-receiving-time",
	                 key::kReceivingTime, receiving, interval, 2LL * interval);
}

void pair(Findings& own, Findings& partner)
{
	mirrors(own, partner);
	mirrors(partner, own);
	const std::optional<int> left = own.file.integer(key::kMode);
	const std::optional<int> right = partner.file.integer(key::kMode);
	own.addWhen(left == 1 && right == 1, "two-masters", key::kMode);
	own.addWhen(left && right && left != 1 && right != 1, "no-master", key::kMode);
	alike(own, partner);
	const int here = raisedPrefix(own).value_or(-1);
	const int there = raisedPrefix(partner).value_or(-1);
	own.addWhen(here >= 0 && there >= 0 && here != there, "prefix-differs", key::kStartCommand, here, there);
	programs(own, partner);
	silence(own, partner);
	silence(partner, own);
	paces(own, partner);
}

} // namespace velarix::ctl::checks
