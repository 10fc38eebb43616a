#include "Stranger.h"

#include "Files.h"
#include "Frames.h"
#include "Plan.h"
#include "Wait.h"
#include "Words.h"

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

/// The stranger neither forwards what reaches him by mistake, nor answers questions
/// about an address that he has borrowed: he lies to his target alone.
void prepareStranger(Lab& lab, const AttackInfo& attack, HostId target)
{
	std::string commands = "echo 1 >/proc/sys/net/ipv4/conf/all/arp_ignore; echo 0 >/proc/sys/net/ipv4/ip_forward";
	if (attack.asPartner)
	{
		commands += std::string("; ip addr replace ") + plan::addressOf(otherNode(target), Network::communication) +
		            "/32 dev lo";
	}
	runOrThrow({{"sh", "-ec", commands}, {}, lab.stranger().inside()});
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
	const long first = m_attack.asPartner ? 5 : 1;
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
	if (m_attack.asPartner)
	{
		run({{"ip", "addr", "del",
		      std::string(plan::addressOf(otherNode(m_orders.target), Network::communication)) + "/32", "dev", "lo"},
		     {},
		     m_lab.stranger().inside()});
	}
}

} // namespace velarix::lab
