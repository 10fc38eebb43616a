#include "lab/campaigns/hostile/Stranger.h"

#include "lab/campaigns/hostile/Frames.h"
#include "lab/campaigns/hostile/Words.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"
#include "lab/core/Wait.h"

namespace velarix::lab
{

namespace
{

/// A stranger that is served at all is served by then.
constexpr Millis heardLimit{30000};

std::string heard(Lab& lab, HostId node)
{
	std::string words;
	inNetworkOf(lab.node(node).host(),
	            [&] {
		            words = overhearHeartbeat(plan::communicationCard, plan::addressOf(node, Network::communication),
		                                      Millis(15000));
	            });
	if (words.empty())
	{
		throw LabError("no heartbeat of " + nodeText(node) + " was overheard");
	}
	return words;
}

/// @return what he answers for besides his own addresses; empty: nothing
std::string borrowedAddress(const AttackInfo& attack, HostId target)
{
	switch (attack.borrowed)
	{
	case Borrowed::partner:
		return plan::addressOf(otherNode(target), Network::communication);
	case Borrowed::service:
		return plan::virtualAddress;
	default:
		return {};
	}
}

/// The stranger neither forwards what reaches him by mistake, nor answers questions
/// about an address that he has borrowed: he lies to his victim alone.
void prepareStranger(Lab& lab, const AttackInfo& attack, HostId target)
{
	std::string commands = "echo 1 >/proc/sys/net/ipv4/conf/all/arp_ignore; echo 0 >/proc/sys/net/ipv4/ip_forward";
	if (const std::string borrowed = borrowedAddress(attack, target); !borrowed.empty())
	{
		commands += "; ip addr replace " + borrowed + "/32 dev lo";
	}
	if (attack.overService)
	{
		commands += std::string("; ip route replace ") + plan::addressOf(target, Network::communication) + " via " +
		            plan::addressOf(target, Network::service) + " dev " + plan::serviceCard;
	}
	runOrThrow({{"sh", "-ec", commands}, {}, lab.stranger().inside()});
	if (attack.bareTarget)
	{
		runOrThrow({{"sh", "-ec", "echo 0 >/proc/sys/net/ipv4/tcp_syncookies"}, {}, lab.node(target).host().inside()});
	}
}

std::string wordsFor(Lab& lab, const StrangerPlan& plan)
{
	if (plan.attack == "replay")
	{
		return heard(lab, hostNamed(plan.detail).value());
	}
	if (plan.attack == "line-feeds")
	{
		return forgedLogLine();
	}
	return plan.detail.empty() ? std::string() : forgedHeartbeat(plan.detail);
}

} // namespace

Stranger::Stranger(Lab& lab, const StrangerPlan& plan)
    : m_lab(lab), m_attack(attackNamed(plan.attack)), m_orders{plan.target,
                                                               plan.seed,
                                                               plan.count,
                                                               wordsFor(lab, plan),
                                                               lab.node(plan.target).diskFile(plan::logFile),
                                                               m_stop}
{
	prepareStranger(lab, m_attack, plan.target);
	m_thread = std::thread(
	    [this]
	    {
		    try
		    {
			    inNetworkOf(m_lab.stranger(), [this] { m_attack.carryOut(m_orders, m_tally); });
		    }
		    catch (const LabError& error)
		    {
			    m_problem = error.what();
		    }
		    m_ended = true;
	    });
}

Stranger::~Stranger()
{
	join();
}

void Stranger::join()
{
	m_stop = true;
	if (m_thread.joinable())
	{
		m_thread.join();
	}
}

void Stranger::awaitHold(bool guarded)
{
	// A lie is believed when it has been said a few times; a connection that is not
	// answered is tried once for a long time.
	const long first = m_attack.knock == Knock::none ? 5 : 1;
	const auto begun = [&] { return m_tally.tries >= first || m_ended; };
	const auto marked = [&] { return timesIn(m_orders.log, m_attack.mark) > 0; };
	const bool well = guarded || m_attack.mark == nullptr ? waitFor(begun, heardLimit, "a stranger to begin")
	                                                      : waitFor(marked, heardLimit, "a stranger to be heard");
	if (!well)
	{
		throw LabError(std::string("the attack ") + m_attack.name + " did not get going");
	}
}

void Stranger::awaitEnd()
{
	m_thread.join();
}

void Stranger::end()
{
	join();
	if (!m_problem.empty())
	{
		throw LabError("the attack failed: " + m_problem);
	}
	std::string commands;
	if (const std::string borrowed = borrowedAddress(m_attack, m_orders.target); !borrowed.empty())
	{
		commands += "ip addr del " + borrowed + "/32 dev lo; ";
	}
	if (m_attack.overService)
	{
		commands += std::string("ip route del ") + plan::addressOf(m_orders.target, Network::communication);
	}
	run({{"sh", "-c", commands}, {}, m_lab.stranger().inside()});
}

} // namespace velarix::lab
