#include "lab/campaigns/hostile/Attacker.h"

#include <csignal>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/core/Basics.h"
#include "lab/core/Plan.h"

namespace velarix::lab::hostile
{

namespace
{

/// An attacker that is served at all is served by then.
constexpr Millis receivedLimit{30000};
/// One that is stopped may wait for the answer to its farewell.
constexpr Millis endLimit{20000};

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
/// @return what undoes it
std::string prepareHost(Lab& lab, const AttackInfo& attack, HostId target, const std::string& at)
{
	std::string commands = "echo 1 >/proc/sys/net/ipv4/conf/all/arp_ignore; echo 0 >/proc/sys/net/ipv4/ip_forward; ";
	std::string undo = ":; ";
	if (attack.takes != TakenAddress::nothing)
	{
		const std::string taken = attack.takes == TakenAddress::service
		                              ? plan::virtualAddress
		                              : plan::addressOf(otherNode(target), Network::communication);
		commands += "ip addr replace " + taken + "/32 dev lo; ";
		undo += "ip addr del " + taken + "/32 dev lo; ";
	}
	const Network network = attack.overService ? Network::service : Network::communication;
	if (at != plan::addressOf(target, network))
	{
		commands += "ip route replace " + at + " via " + plan::addressOf(target, network) + " dev " +
		            (attack.overService ? plan::serviceInterface : plan::communicationInterface) + "; ";
		undo += "ip route del " + at + "; ";
	}
	if (attack.relays)
	{
		commands += "echo 1 >/proc/sys/net/ipv4/ip_forward; echo 0 >/proc/sys/net/ipv4/conf/all/send_redirects; "
		            "echo 0 >/proc/sys/net/ipv4/conf/eth1/send_redirects; "
		            "nft 'table ip relay { chain out { type nat hook postrouting priority 100; masquerade; }; }'";
		undo += "echo 0 >/proc/sys/net/ipv4/ip_forward; nft delete table ip relay";
	}
	shell(lab.host(HostId::third), commands);
	if (attack.bareTarget)
	{
		shell(lab.host(target), "echo 0 >/proc/sys/net/ipv4/tcp_syncookies");
	}
	if (attack.slowPings)
	{
		slowPings(lab, target, true);
	}
	return undo;
}

/// What it says. Of a tunnel, what can be captured shows neither heartbeats nor pings: the attacker
/// is given what they hold. Empty: it captures or makes it itself.
std::string payloadFor(Lab& lab, const AttackerPlan& plan)
{
	if (plan.attack == "replay")
	{
		return plan.tunnel ? forgedHeartbeat("1-1-0") : "";
	}
	if (plan.attack == "icmp-known-id")
	{
		return plan.tunnel ? std::to_string(lab.node(plan.target).agent().value().pidInside & 0xffff) : "";
	}
	if (plan.attack.starts_with("icmp-"))
	{
		return plan.detail;
	}
	return plan.detail.empty() ? "" : forgedHeartbeat(plan.detail);
}

std::string addressOf(const AttackerPlan& plan, HostId node)
{
	return plan.tunnel && !plan.beside ? plan::tunnelAddressOf(node) : plan::addressOf(node, Network::communication);
}

/// lab/guest/attacker.py tells what becomes of them.
nlohmann::json ordersFor(Lab& lab, const AttackerPlan& plan)
{
	using enum Network;
	const HostId partner = otherNode(plan.target);
	const HostId captured = plan.attack == "replay" ? hostNamed(plan.detail).value() : plan.target;
	return {{"attack", plan.attack},
	        {"detail", plan.detail},
	        {"seed", plan.seed},
	        {"count", plan.count},
	        {"payload", payloadFor(lab, plan)},
	        {"log", lab.node(plan.target).diskFile(plan::logFile).string()},
	        {"interfaces", {{"service", plan::serviceInterface}, {"communication", plan::communicationInterface}}},
	        {"port", plan::heartbeatPort},
	        {"at", addressOf(plan, plan.target)},
	        {"partnerAt", addressOf(plan, partner)},
	        {"target", plan::addressOf(plan.target, communication)},
	        {"targetService", plan::addressOf(plan.target, service)},
	        {"partner", plan::addressOf(partner, communication)},
	        {"gateway", plan::addressOf(HostId::gateway, communication)},
	        {"client", plan::addressOf(HostId::client, service)},
	        {"virtual", plan::virtualAddress},
	        {"own", plan::addressOf(HostId::third, communication)},
	        {"ownService", plan::addressOf(HostId::third, service)},
	        {"captured", plan::addressOf(captured, communication)},
	        {"capturePid", lab.node(captured).host().pid()}};
}

} // namespace

Attacker::Attacker(Lab& lab, const AttackerPlan& plan)
    : m_lab(lab), m_attack(attackNamed(plan.attack)), m_target(plan.target),
      m_undo(prepareHost(lab, m_attack, m_target, addressOf(plan, m_target))), m_said(fileInMemory())
{
	const Descriptor orders = fileInMemory(ordersFor(lab, plan).dump());
	// In that network only: the target's log is a file of the machine.
	m_process = spawn({.argv = {"python3", "-B", VELARIX_LAB_ATTACKER},
	                   .inside = lab.host(HostId::third).insideNetwork(),
	                   .input = orders.get(),
	                   .output = m_said.get()});
}

Attacker::~Attacker()
{
	stop();
}

bool Attacker::ended(Millis limit)
{
	if (m_process > 0)
	{
		if (const std::optional<int> status = waitForChild(m_process, limit))
		{
			m_status = *status;
			m_process = -1;
		}
	}
	return m_process < 0;
}

void Attacker::stop()
{
	// A signal ends the interpreter itself while it still starts; the first report comes behind that.
	waitFor([&] { return ended(Millis(0)) || !lastLine().empty(); }, endLimit, "the attacker to report");
	if (!ended(Millis(0)))
	{
		::kill(m_process, SIGTERM);
	}
	if (!ended(endLimit))
	{
		::kill(m_process, SIGKILL);
		ended(endLimit);
	}
}

std::string Attacker::lastLine() const
{
	std::string text = contentOf(m_said);
	text.resize(text.rfind('\n') + 1);
	return text.empty() ? text : text.substr(text.rfind('\n', text.size() - 2) + 1);
}

AttackTally Attacker::tally() const
{
	const std::string line = lastLine();
	return line.empty() ? AttackTally{} : nlohmann::json::parse(line).get<AttackTally>();
}

void Attacker::awaitHold(bool mitigated)
{
	// An ARP answer takes effect when it was sent a few times; a connection that is not
	// answered is tried once for a long time.
	const long first = m_attack.portUse == PortUse::none ? 5 : 1;
	const auto begun = [&] { return ended(Millis(0)) || tally().tries >= first; };
	const auto marked = [&] { return timesIn(m_lab.node(m_target).diskFile(plan::logFile), m_attack.mark) > 0; };
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
	while (!ended(Millis(1000)))
	{
	}
}

void Attacker::end()
{
	stop();
	if (m_status != 0)
	{
		throw LabError("the attack failed with status " + std::to_string(m_status) + ": " + lastLine());
	}
	run({{"sh", "-c", m_undo}, {}, m_lab.host(HostId::third).inside()});
	if (m_attack.slowPings)
	{
		slowPings(m_lab, m_target, false);
	}
}

} // namespace velarix::lab::hostile
