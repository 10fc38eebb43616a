#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "ctl/check/CommandText.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

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
	return bare(key) + " is " + here.file.text(key).value_or("") + ", and " + bare(other) + " is " +
	       there.file.text(other).value_or("") + " in " + there.file.path().string() + ":" +
	       std::to_string(there.file.lineOf(other));
}

/// What one node says of its partner must be what the partner says of itself.
void mirrors(Findings& here, Findings& there)
{
	const std::optional<std::string> address = here.file.text(key::kPartnerIP);
	const std::optional<std::string> itself = there.file.text(key::kThisServerIP);
	if (address && itself && *address != *itself && *itself != "0.0.0.0")
	{
		here.error(
		    key::kPartnerIP,
		    {"addresses-not-mirrored", against(here, key::kPartnerIP, there, key::kThisServerIP),
		     "heartbeats and pings go elsewhere: each node takes the other for dead, and both may serve (split-brain)",
		     "write the partner's THIS_SERVER_IP"});
	}
	const std::optional<int> port = here.file.integer(key::kPartnerPort);
	const std::optional<int> listening = there.file.integer(key::kReceivePort);
	if (port && listening && *port != *listening)
	{
		here.error(key::kPartnerPort, {"ports-not-mirrored", against(here, key::kPartnerPort, there, key::kReceivePort),
		                               "no heartbeat arrives there: the partner counts missed heartbeats, and takes "
		                               "over as soon as a ping is lost",
		                               "write the partner's HEART_BEAT_RECEIVE_PORT"});
	}
}

void roles(Findings& own, Findings& partner)
{
	const std::optional<int> left = own.file.integer(key::kMode);
	const std::optional<int> right = partner.file.integer(key::kMode);
	if (!left || !right)
	{
		return;
	}
	if (*left == 1 && *right == 1)
	{
		own.error(key::kMode, {"two-masters", "MODE is 1 on both nodes",
		                       "both become master, and with each heartbeat both restart the service, without end",
		                       "write 1 on one node and 2 on the other"});
	}
	else if (*left != 1 && *right != 1)
	{
		own.error(key::kMode, {"no-master", "MODE is 1 on neither node",
		                       "as long as both live no node becomes master: the service is never started",
		                       "write 1 on one node and 2 on the other"});
	}
}

/// @return the prefix that the start command gives the virtual IP, as far as its text tells
std::optional<int> raisedPrefix(const Findings& findings)
{
	return CommandText(findings.file.text(key::kStartCommand).value_or(""))
	    .prefixOf(findings.file.text(key::kVirtualIP).value_or(""));
}

struct Alike
{
	const char* key;
	const char* id;
	Severity severity;
	const char* effect;
};

/// What belongs to the pair, and not to a node.
constexpr std::array kAlike{
    Alike{key::kVirtualIP, "virtual-ip-differs", Severity::error,
          "the service has another address after each failover, and a standby does not see that its partner serves"},
    Alike{key::kGatewayIP, "gateways-differ", Severity::warning,
          "each node judges its network by another host: a master gives up for one that its partner does not ask"},
    Alike{key::kStartCommand, "commands-differ", Severity::warning, "the address is raised in another way there"},
    Alike{key::kStopCommand, "commands-differ", Severity::warning, "the address is dropped in another way there"},
    Alike{key::kKillCommand, "commands-differ", Severity::warning, "the programs are killed in another way there"},
};

void alike(Findings& own, Findings& partner)
{
	// Commands for another address or prefix differ by that, which is reported.
	const bool sameAddress = own.file.text(key::kVirtualIP) == partner.file.text(key::kVirtualIP) &&
	                         raisedPrefix(own) == raisedPrefix(partner);
	for (const Alike& one : kAlike)
	{
		const std::optional<std::string> left = own.file.text(one.key);
		const std::optional<std::string> right = partner.file.text(one.key);
		const bool command = findKey(one.key)->type == KeyType::command;
		if (left && right && *left != *right && (sameAddress || !command) && !left->empty() && !right->empty())
		{
			own.add(one.severity, own.file.path(), own.lineFor(one.key),
			        {one.id, against(own, one.key, partner, one.key), one.effect,
			         "write the same in both, unless the nodes differ in it"});
		}
	}
}

void prefix(Findings& own, Findings& partner)
{
	const std::optional<int> left = raisedPrefix(own);
	const std::optional<int> right = raisedPrefix(partner);
	if (left && right && *left != *right)
	{
		own.warning(key::kStartCommand,
		            {"prefix-differs",
		             "the address is raised as /" + std::to_string(*left) + " here, and as /" + std::to_string(*right) +
		                 " by the partner",
		             "one of the nodes routes wrongly while it holds the address", "write the same prefix in both"});
	}
}

void programs(Findings& own, Findings& partner)
{
	std::vector<std::string> left = own.file.programs();
	std::vector<std::string> right = partner.file.programs();
	std::ranges::sort(left);
	std::ranges::sort(right);
	if (left != right)
	{
		own.warning(key::kProcessNumber,
		            {"programs-differ",
		             "the programs are not those of the partner (" + std::to_string(left.size()) + " here, " +
		                 std::to_string(right.size()) + " there)",
		             "after a failover the service is another one", "name the same programs in both files"});
	}
}

/// @return nothing for a time that is missing, zero or negative, reported elsewhere
std::optional<long> above(const Findings& findings, const std::string& key)
{
	const std::optional<int> seconds = findings.file.integer(key);
	return seconds && *seconds > 0 ? std::optional<long>(*seconds) : std::nullopt;
}

/// One node's patience against the other one's pace.
void silence(Findings& here, const Findings& there)
{
	const std::optional<long> receiving = above(here, key::kReceivingTime);
	const std::optional<long> interval = above(there, key::kInterval);
	if (!receiving || !interval || *receiving >= 2 * *interval)
	{
		return;
	}
	const std::string what = against(here, key::kReceivingTime, there, key::kInterval);
	const std::string remedy = "write at least " + std::to_string(2 * *interval);
	if (kSilences * (*receiving + 1) <= *interval)
	{
		here.error(key::kReceivingTime,
		           {"receiving-time-below-interval", what,
		            "three heartbeats count as missed between two of a partner that is well: one round of lost "
		            "pings, and both nodes are master",
		            remedy});
		return;
	}
	here.warning(
	    key::kReceivingTime,
	    {"short-receiving-time", what + ": less than twice as long",
	     "the partner's heartbeats come too late now and then: missed heartbeats are logged as errors and counted "
	     "although it is well",
	     remedy});
}

void paces(Findings& own, Findings& partner)
{
	const std::optional<long> left = above(own, key::kInterval);
	const std::optional<long> right = above(partner, key::kInterval);
	if (!left || !right || std::max(*left, *right) < kHeartbeatsOfAnAsk * std::min(*left, *right) || *left == *right)
	{
		return;
	}
	own.warning(
	    key::kInterval,
	    {"paces-differ", against(own, key::kInterval, partner, key::kInterval),
	     "a node that asks its partner to take over counts four of the partner's heartbeats and drops the ask: "
	     "the slower one may not have been heard by then, and the service falls back to the node that gave it up",
	     "write the same interval in both"});
}

} // namespace

void pair(Findings& own, Findings& partner)
{
	mirrors(own, partner);
	mirrors(partner, own);
	roles(own, partner);
	alike(own, partner);
	prefix(own, partner);
	programs(own, partner);
	silence(own, partner);
	silence(partner, own);
	paces(own, partner);
}

} // namespace velarix::ctl::checks
