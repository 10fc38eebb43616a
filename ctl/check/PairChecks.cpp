#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

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
	return bare(key) + " is " + here.valueOf(key) + ", and " + bare(other) + " is " + there.valueOf(other) + " in " +
	       there.file.path().string() + ":" + std::to_string(there.file.lineOf(other));
}

/// What one node says of its partner must be what the partner says of itself.
void mirrors(Findings& here, Findings& there)
{
	const std::optional<std::string> address = here.file.text(key::kPartnerIP);
	const std::optional<std::string> itself = there.file.text(key::kThisServerIP);
	if (address && itself && *address != *itself && *itself != "0.0.0.0")
	{
		here.add("addresses-not-mirrored", key::kPartnerIP, against(here, key::kPartnerIP, there, key::kThisServerIP));
	}
	const std::optional<int> port = here.file.integer(key::kPartnerPort);
	const std::optional<int> listening = there.file.integer(key::kReceivePort);
	if (port && listening && *port != *listening)
	{
		here.add("ports-not-mirrored", key::kPartnerPort, against(here, key::kPartnerPort, there, key::kReceivePort));
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
		own.add("two-masters", key::kMode);
	}
	else if (*left != 1 && *right != 1)
	{
		own.add("no-master", key::kMode);
	}
}

/// @return the prefix that the start command gives the virtual IP, as far as its text tells
std::optional<int> raisedPrefix(const Findings& findings)
{
	return commandOf(findings, key::kStartCommand).prefixOf(findings.valueOf(key::kVirtualIP));
}

/// What belongs to the pair, and not to a node.
constexpr std::array<std::pair<const char*, const char*>, 5> kAlike{{
    {key::kVirtualIP, "virtual-ip-differs"},
    {key::kGatewayIP, "gateways-differ"},
    {key::kStartCommand, "commands-differ/start"},
    {key::kStopCommand, "commands-differ/stop"},
    {key::kKillCommand, "commands-differ/kill"},
}};

void alike(Findings& own, Findings& partner)
{
	// Commands for another address or prefix differ by that, which is reported.
	const bool sameAddress = own.file.text(key::kVirtualIP) == partner.file.text(key::kVirtualIP) &&
	                         raisedPrefix(own) == raisedPrefix(partner);
	for (const auto& [key, entry] : kAlike)
	{
		const std::string left = own.valueOf(key);
		const std::string right = partner.valueOf(key);
		const bool command = findKey(key)->type == KeyType::command;
		if (left != right && (sameAddress || !command) && !left.empty() && !right.empty())
		{
			own.add(entry, key, against(own, key, partner, key));
		}
	}
}

void prefix(Findings& own, Findings& partner)
{
	const std::optional<int> left = raisedPrefix(own);
	const std::optional<int> right = raisedPrefix(partner);
	if (left && right && *left != *right)
	{
		own.add("prefix-differs", key::kStartCommand, *left, *right);
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
		own.add("programs-differ", key::kProcessNumber, left.size(), right.size());
	}
}

/// One node's patience against the other one's pace. A time that is missing, zero or negative is reported elsewhere.
void silence(Findings& here, const Findings& there)
{
	const long receiving = here.file.integer(key::kReceivingTime).value_or(0);
	const long interval = there.file.integer(key::kInterval).value_or(0);
	if (receiving > 0 && interval > 0 && receiving < 2 * interval)
	{
		const bool below = kSilences * (receiving + 1) <= interval;
		here.add(below ? "receiving-time-below-interval" : "short-receiving-time/pair", key::kReceivingTime,
		         against(here, key::kReceivingTime, there, key::kInterval), 2 * interval);
	}
}

void paces(Findings& own, Findings& partner)
{
	const auto [fast, slow] = std::minmax<long>(
	    {own.file.integer(key::kInterval).value_or(0), partner.file.integer(key::kInterval).value_or(0)});
	if (fast > 0 && slow >= kHeartbeatsOfAnAsk * fast)
	{
		own.add("paces-differ", key::kInterval, against(own, key::kInterval, partner, key::kInterval));
	}
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
