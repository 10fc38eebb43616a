#include "inspect/SettingsKeys.h"

#include <algorithm>
#include <array>
#include <string>

#include <Poco/String.h>

namespace velarix::inspect
{

namespace
{

constexpr char kAtEachUse[] = "at each use";

// clang-format off
constexpr std::array kKeys{
    KeyInfo{
        .name = key::kMode, .type = KeyType::integer,
        .meaning = "The configured role: 1 on exactly one node, 2 on the other. Every node starts as slave; when both "
                   "are slaves, or both masters, the node with 1 becomes master and the other one slave.",
        .whenRead = "at the start, and whenever both nodes have the same role",
        .zero = "counts as 2, like every number but 1",
        .negative = "counts as 2",
        .example = "1"},
    KeyInfo{
        .name = key::kThisServerIP, .type = KeyType::address,
        .meaning = "This node's address on the communication network (eth1); the agent listens there for heartbeats.",
        .zero = "empty: the receiver thread ends at its start; the node sends heartbeats and never hears one",
        .example = "192.0.2.1"},
    KeyInfo{
        .name = key::kReceivePort, .type = KeyType::integer, .unit = "TCP port",
        .meaning = "Where the agent listens for the partner's heartbeats. The partner names the same number as "
                   "PARTNER_HEART_BEAT_RECEIVE_PORT.",
        .zero = "listens on a port that the kernel chooses anew in each pass; the partner never finds it",
        .negative = "taken modulo 65536, as is a number above 65535",
        .example = "7000"},
    KeyInfo{
        .name = key::kPartnerIP, .type = KeyType::address,
        .meaning = "The partner's address on the communication network: where heartbeats go, and what is pinged "
                   "before a take-over.",
        .whenRead = "at the start for the heartbeats, at each use for the pings",
        .zero = "empty: no heartbeat is ever sent and no ping answered",
        .example = "192.0.2.2"},
    KeyInfo{
        .name = key::kPartnerPort, .type = KeyType::integer, .unit = "TCP port",
        .meaning = "The partner's HEART_BEAT_RECEIVE_PORT.",
        .zero = "the agent ends at the first heartbeat",
        .negative = "taken modulo 65536, as is a number above 65535",
        .example = "7000"},
    KeyInfo{
        .name = key::kInterval, .type = KeyType::integer, .unit = "seconds",
        .meaning = "The pause after each heartbeat that was sent. After a failed connect the next attempt follows two "
                   "seconds later, whatever stands here.",
        .zero = "heartbeats are sent back to back: a processor is busy, the partner is flooded and the log grows fast",
        .negative = "the same as zero",
        .example = "1"},
    KeyInfo{
        .name = key::kReceivingTime, .type = KeyType::integer, .unit = "seconds",
        .meaning = "How long the receiver waits for the partner in one pass before it counts a silence, and the time "
                   "limit for connecting to the partner. The third silence in a row lets a slave take over from a "
                   "partner that does not answer pings. Keep it at least twice the partner's HEART_BEAT_INTERVAL.",
        .whenRead = "at the start by the receiver, for each heartbeat by the sender",
        .zero = "hardly any connection to the partner succeeds, every pass counts as a silence, and a client that "
                "connects and says nothing holds the receiver for ever",
        .negative = "the receiver waits for the partner without a limit and counts no silence; what it then "
                    "receives ends in \"Timeout\"",
        .example = "2"},
    KeyInfo{
        .name = key::kIgnoreTime, .type = KeyType::integer, .unit = "seconds",
        .meaning = "How long a heartbeat counts as recent. The agent reads it and makes no use of it.",
        .zero = "no effect",
        .negative = "no effect",
        .example = "10"},
    KeyInfo{
        .name = key::kGatewayIP, .type = KeyType::address,
        .meaning = "An address that answers pings as long as this node's own network works. A master that cannot reach "
                   "it gives up; a slave that cannot reach it does not take over on lost pings, and gives up at once what it "
		           "takes after three silences.",
        .whenRead = kAtEachUse,
        .missing = "the agent ends at its first own check as master, or at a slave's first look at its own network "
                   "when partner and service address are silent",
        .zero = "empty: no ping is answered, and every master gives up at once",
        .example = "192.0.2.254"},
    KeyInfo{
        .name = key::kVirtualIP, .type = KeyType::address,
        .meaning = "The shared service address. The agent pings it and looks for its text in the output of "
                   "\"ifconfig\"; raising and dropping it is up to the two commands below.",
        .whenRead = kAtEachUse,
        .missing = "the agent ends when it first looks for the address: when the partner falls silent, or when it is "
                   "to take over",
        .zero = "empty: found in any output of \"ifconfig\", so that the address is never raised",
        .example = "198.51.100.10"},
    KeyInfo{
        .name = key::kStartCommand, .type = KeyType::command,
        .meaning = "Raises the virtual IP. It must print nothing on standard output (what it prints counts as a failure "
                   "and the command is repeated), must end, and must leave nothing behind that keeps its standard "
                   "output open.",
        .whenRead = kAtEachUse,
        .missing = "the agent ends at the moment it is to take over",
        .zero = "empty: nothing is raised, and the agent pings the address for ever while it already calls itself "
                "master",
        .example = "(ip addr add 198.51.100.10/24 dev eth0 label eth0:ha; (while ip -4 -o addr show dev eth0 | "
                   "grep -q 198.51.100.10/; do arping -q -A -c 1 -w 1 -I eth0 198.51.100.10; sleep 4; done) &) "
                   ">/dev/null 2>&1"},
    KeyInfo{
        .name = key::kStopCommand, .type = KeyType::command,
        .meaning = "Drops the virtual IP; run at every start of the agent, before each start command, and when a "
                   "master gives up. What it prints is logged and otherwise ignored.",
        .whenRead = kAtEachUse,
        .zero = "empty: the address is never dropped, and both nodes hold it after a move",
        .example = "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1"},
    KeyInfo{
        .name = key::kWaitingTime, .type = KeyType::integer, .unit = "seconds",
        .meaning = "The wait between the virtual IP and the start of the programs.",
        .whenRead = kAtEachUse,
        .missing = "the agent ends when it is to start the programs",
        .zero = "the programs start at once",
        .negative = "the programs do not start for 136 years: the wait counts down and ends at zero only",
        .example = "1"},
    KeyInfo{
        .name = key::kRelatedProcess, .type = KeyType::text,
        .meaning = "The name of a process that belongs to the managed ones. The agent reads it and makes no use of it.",
        .zero = "empty: no effect",
        .example = ""},
    KeyInfo{
        .name = key::kProcessNumber, .type = KeyType::integer, .unit = "programs",
        .meaning = "How many programs are managed: PROCESS_PATH1 to PROCESS_PATH<this number>.",
        .whenRead = kAtEachUse,
        .zero = "no program is started, watched or killed; the node counts as running its service",
        .negative = "the same as zero",
        .example = "1"},
    KeyInfo{
        .name = key::kProcessPath, .type = KeyType::path,
        .meaning = "Managed program number 1, 2, ...: an absolute path without arguments. The part behind the last \"/\" "
                   "is the name it is found by and killed by: looked for as a part of the kernel's process names, "
                   "which have at most 15 characters. To give arguments, name a wrapper script of the program's own "
                   "name that ends in \"exec PROGRAM ARGUMENTS\".",
        .whenRead = kAtEachUse,
        .zero = "empty: the run script breaks off at this program, and its empty name is found in every process",
        .example = "/opt/service/bin/server"},
    KeyInfo{
        .name = key::kCheckCycle, .type = KeyType::integer, .unit = "seconds",
        .meaning = "The pause between two looks at the processes, whose result goes into the heartbeats.",
        .zero = "the processes are looked at without a pause: a processor is busy and the log grows fast",
        .negative = "the same as zero",
        .example = "1"},
    KeyInfo{
        .name = key::kObservationMode, .type = KeyType::integer,
        .meaning = "How processes are observed, 1 or 2. Both look at /proc in the same way.",
        .whenRead = "at the start and before each look at the processes",
        .zero = "counts as 2",
        .negative = "counts as 2",
        .example = "1"},
    KeyInfo{
        .name = key::kKillCommand, .type = KeyType::command,
        .meaning = "Kills a program: run once for each managed program, with one blank and the program's name appended. "
                   "Let it drop the virtual IP too, so that a master that gives up never keeps it.",
        .whenRead = "at the start and at each use",
        .zero = "empty: the name alone is run as a command, which kills nothing",
        .example = "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1; killall -q -9"},
    KeyInfo{
        .name = key::kKeyword, .type = KeyType::text,
        .meaning = "A word that tells a broken process in the output of \"ps aux\". The agent makes no use of it.",
        .whenRead = "never",
        .missing = "no effect",
        .zero = "empty: no effect",
        .example = "defunct"},
    KeyInfo{
        .name = key::kLogPath, .type = KeyType::path,
        .meaning = "The log file, an absolute path in a directory that is there. Every 24 hours it is renamed with the "
                   "time (UTC) appended, and a new one begun.",
        .zero = "empty: the agent runs without a log file",
        .example = "/usr/velarix/log/velarix.log"},
    KeyInfo{
        .name = key::kPurgeAge, .type = KeyType::text,
        .meaning = "The age at which renamed logs are deleted: a number above zero and one of seconds, minutes, hours, "
                   "days, weeks, months (30 days), always in the plural; or none. A node that idles writes some 100 MB a day.",
        .zero = "empty: nothing is ever deleted",
        .negative = "the agent runs without a log file, as with everything it does not understand here",
        .example = "30 days"},
};
// clang-format on

/// @return whether the name is PROCESS_PATH with a number from 1 behind it
bool isProgramPath(std::string_view name)
{
	const std::string_view stem(key::kProcessPath);
	if (name.size() <= stem.size() || !sameKey(name.substr(0, stem.size()), stem))
	{
		return false;
	}
	const std::string_view digits = name.substr(stem.size());
	return digits.front() != '0' && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

bool sameKey(std::string_view left, std::string_view right)
{
	return Poco::icompare(std::string(left), std::string(right)) == 0;
}

std::span<const KeyInfo> settingsKeys()
{
	return kKeys;
}

const KeyInfo* findKey(std::string_view name)
{
	const std::string_view wanted = isProgramPath(name) ? key::kProcessPath : name;
	const auto found = std::ranges::find_if(kKeys, [&](const KeyInfo& info) { return sameKey(info.name, wanted); });
	if (found == kKeys.end() || (found->name == key::kProcessPath && !isProgramPath(name)))
	{
		return nullptr;
	}
	return &*found;
}

std::string emptyEffect(const KeyInfo& info)
{
	constexpr std::string_view kFront("empty: ");
	return std::string(info.zero.starts_with(kFront) ? info.zero.substr(kFront.size()) : info.zero);
}

std::string programKey(int number)
{
	return key::kProcessPath + std::to_string(number);
}

} // namespace velarix::inspect
