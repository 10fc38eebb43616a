#include "lab/campaigns/hostile/Lies.h"

#include <thread>

#include "lab/campaigns/hostile/Frames.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

void lieUntilStopped(const AttackOrders& orders, AttackTally& tally, const Lie& told)
{
	whileLying(told, tally, [&] { untilStopped(orders); });
}

} // namespace

std::string partnersAddress(const AttackOrders& orders)
{
	return plan::addressOf(otherNode(orders.target), Network::communication);
}

std::string targetsAddress(const AttackOrders& orders, Network network)
{
	return plan::addressOf(orders.target, network);
}

void whileLying(const Lie& lie, AttackTally& tally, const std::function<void()>& work)
{
	ArpLiar lying(lie.network == Network::service ? plan::serviceCard : plan::communicationCard, lie.victim);
	const std::jthread liar(
	    [&](const std::stop_token& end)
	    {
		    while (!end.stop_requested())
		    {
			    lying.claim(lie.address, tally);
			    std::this_thread::sleep_for(Millis(50));
		    }
	    });
	work();
}

void untilStopped(const AttackOrders& orders)
{
	while (!orders.stop)
	{
		std::this_thread::sleep_for(Millis(20));
	}
}

void cutPartner(const AttackOrders& orders, AttackTally& tally)
{
	lieUntilStopped(orders, tally,
	                {Network::communication, targetsAddress(orders, Network::communication), partnersAddress(orders)});
}

void cutGateway(const AttackOrders& orders, AttackTally& tally)
{
	lieUntilStopped(orders, tally,
	                {Network::communication, targetsAddress(orders, Network::communication),
	                 plan::addressOf(HostId::gateway, Network::communication)});
}

void cutFromGateway(const AttackOrders& orders, AttackTally& tally)
{
	lieUntilStopped(orders, tally,
	                {Network::communication, plan::addressOf(HostId::gateway, Network::communication),
	                 targetsAddress(orders, Network::communication)});
}

void claimFromClient(const AttackOrders& orders, AttackTally& tally)
{
	lieUntilStopped(orders, tally,
	                {Network::service, plan::addressOf(HostId::client, Network::service), plan::virtualAddress});
}

void claimFromNode(const AttackOrders& orders, AttackTally& tally)
{
	lieUntilStopped(orders, tally, {Network::service, targetsAddress(orders, Network::service), plan::virtualAddress});
}

} // namespace velarix::lab
