#include "lab/campaigns/hostile/Attacker.h"

#include "lab/campaigns/hostile/ArpSpoofing.h"
#include "lab/campaigns/hostile/Frames.h"
#include "lab/campaigns/hostile/IcmpForgery.h"
#include "lab/campaigns/hostile/Payload.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"
#include "lab/core/Wait.h"

namespace velarix::lab::hostile
{

namespace
{

/// an attacker that is served at all is served by then.
constexpr Millis receivedLimit{30000};

std::string capturedHeartbeat(Lab& lab, HostId node)
{
	std::string payload;
	inNetworkOf(lab.node(node).host(),
	            [&]
	            {
		            payload = captureHeartbeat(plan::communicationInterface,
		                                       plan::addressOf(node, Network::communication), Millis(15000));
	            });
	if (payload.empty())
	{
		throw LabError("no heartbeat of " + nodeText(node) + " was captured");
	}
	return payload;
}

/// @return what the attacker answers for besides its own addresses; empty: nothing
std::string takenAddress(const AttackInfo& attack, HostId target)
{
	switch (attack.takes)
	{
	case TakenAddress::partner:
		return plan::addressOf(otherNode(target), Network::communication);
	case TakenAddress::service:
		return plan::virtualAddress;
	default:
		return {};
	}
}

/// A heartbeat makes a node ping; so does every pass of a standby's receiver.
std::string capturedPingId(Lab& lab, HostId node)
{
	std::optional<std::uint16_t> id;
	inNetworkOf(lab.node(node).host(),
	            [&] {
		            id = capturePing(plan::communicationInterface, plan::addressOf(node, Network::communication),
		                             Millis(15000));
	            });
	if (!id)
	{
		throw LabError("no ping of " + nodeText(node) + " was captured");
	}
	return std::to_string(*id);
}

/// A probe of ten pings then lasts some milliseconds, as over a network of several switches.
void slowPings(Lab& lab, HostId target, bool slow)
{
	for (const HostId host : {otherNode(target), HostId::gateway})
	{
		for (const Network network : {Network::communication, Network::service})
		{
			slow ? lab.wiring().impair(host, network, {.delay = Millis(1)}) : lab.wiring().unimpair(host, network);
		}
	}
}

/// Unless it relays the attacker neither forwards what reaches it by ARP spoofing, nor answers ARP for an
/// address that it has taken: its victim alone is deceived.
void prepareHost(Lab& lab, const AttackInfo& attack, HostId target, const std::string& at)
{
	std::string commands = "echo 1 >/proc/sys/net/ipv4/conf/all/arp_ignore; echo 0 >/proc/sys/net/ipv4/ip_forward";
	if (const std::string taken = takenAddress(attack, target); !taken.empty())
	{
		commands += "; ip addr replace " + taken + "/32 dev lo";
	}
	const Network network = attack.overService ? Network::service : Network::communication;
	if (at != plan::addressOf(target, network))
	{
		commands += "; ip route replace " + at + " via " + plan::addressOf(target, network) + " dev " +
		            (attack.overService ? plan::serviceInterface : plan::communicationInterface);
	}
	if (attack.relays)
	{
		commands += "; echo 1 >/proc/sys/net/ipv4/ip_forward; echo 0 >/proc/sys/net/ipv4/conf/all/send_redirects; "
		            "echo 0 >/proc/sys/net/ipv4/conf/eth1/send_redirects; "
		            "nft 'table ip relay { chain out { type nat hook postrouting priority 100; masquerade; }; }'";
	}
	runOrThrow({{"sh", "-ec", commands}, {}, lab.attacker().inside()});
	if (attack.bareTarget)
	{
		runOrThrow({{"sh", "-ec", "echo 0 >/proc/sys/net/ipv4/tcp_syncookies"}, {}, lab.node(target).host().inside()});
	}
	if (attack.slowPings)
	{
		slowPings(lab, target, true);
	}
}

/// What can be captured of a tunnel shows neither heartbeats nor pings. The attacker is given what they hold.
std::string knownPayload(Lab& lab, const AttackerPlan& plan)
{
	return plan.attack == "replay" ? forgedHeartbeat("1-1-0")
	                               : std::to_string(lab.node(plan.target).agent().value().pidInside & 0xffff);
}

std::string payloadFor(Lab& lab, const AttackerPlan& plan)
{
	if (plan.tunnel && (plan.attack == "replay" || plan.attack == "icmp-known-id"))
	{
		return knownPayload(lab, plan);
	}
	if (plan.attack == "replay")
	{
		return capturedHeartbeat(lab, hostNamed(plan.detail).value());
	}
	if (plan.attack == "icmp-known-id")
	{
		return capturedPingId(lab, plan.target);
	}
	if (plan.attack == "icmp-wrong-id" || plan.attack == "icmp-requests")
	{
		return plan.detail;
	}
	if (plan.attack == "line-feeds")
	{
		return forgedLogLine();
	}
	return plan.detail.empty() ? std::string() : forgedHeartbeat(plan.detail);
}

std::string addressOf(const AttackerPlan& plan, HostId node)
{
	return plan.tunnel && !plan.beside ? plan::tunnelAddressOf(node) : plan::addressOf(node, Network::communication);
}

std::vector<std::string> recordedFor(Lab& lab, const AttackerPlan& plan)
{
	std::vector<std::string> frames;
	if (plan.attack == "recorded")
	{
		inNetworkOf(lab.node(plan.target).host(),
		            [&] { frames = recordFrames(plan::communicationInterface, Millis(3000)); });
	}
	return frames;
}

} // namespace

Attacker::Attacker(Lab& lab, const AttackerPlan& plan)
    : m_lab(lab), m_attack(attackNamed(plan.attack)), m_parameters{plan.target,
                                                                   plan.seed,
                                                                   plan.count,
                                                                   payloadFor(lab, plan),
                                                                   lab.node(plan.target).diskFile(plan::logFile),
                                                                   addressOf(plan, plan.target),
                                                                   addressOf(plan, otherNode(plan.target)),
                                                                   recordedFor(lab, plan),
                                                                   m_stop}
{
	prepareHost(lab, m_attack, plan.target, m_parameters.at);
	m_thread = std::thread(
	    [this]
	    {
		    try
		    {
			    inNetworkOf(m_lab.attacker(), [this] { m_attack.carryOut(m_parameters, m_tally); });
		    }
		    catch (const LabError& error)
		    {
			    m_problem = error.what();
		    }
		    m_ended = true;
	    });
}

Attacker::~Attacker()
{
	join();
}

void Attacker::join()
{
	m_stop = true;
	if (m_thread.joinable())
	{
		m_thread.join();
	}
}

void Attacker::awaitHold(bool mitigated)
{
	// An ARP answer takes effect when it was sent a few times; a connection that is not
	// answered is tried once for a long time.
	const long first = m_attack.portUse == PortUse::none ? 5 : 1;
	const auto begun = [&] { return m_tally.tries >= first || m_ended; };
	const auto marked = [&] { return timesIn(m_parameters.log, m_attack.mark) > 0; };
	const bool well = mitigated || m_attack.mark == nullptr
	                      ? waitFor(begun, receivedLimit, "an attack to begin")
	                      : waitFor(marked, receivedLimit, "an attack to be received");
	if (!well)
	{
		throw LabError(std::string("the attack ") + m_attack.name + " did not get going");
	}
}

void Attacker::awaitEnd()
{
	m_thread.join();
}

void Attacker::end()
{
	join();
	if (!m_problem.empty())
	{
		throw LabError("the attack failed: " + m_problem);
	}
	std::string commands;
	if (const std::string taken = takenAddress(m_attack, m_parameters.target); !taken.empty())
	{
		commands += "ip addr del " + taken + "/32 dev lo; ";
	}
	if (m_attack.relays)
	{
		commands += "echo 0 >/proc/sys/net/ipv4/ip_forward; nft delete table ip relay; ";
	}
	if (m_attack.overService || m_parameters.at != targetsAddress(m_parameters, Network::communication))
	{
		commands += "ip route del " + m_parameters.at;
	}
	run({{"sh", "-c", commands}, {}, m_lab.attacker().inside()});
	if (m_attack.slowPings)
	{
		slowPings(m_lab, m_parameters.target, false);
	}
}

} // namespace velarix::lab::hostile
