#include "AddressHolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <linux/capability.h>
#include <net/if.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include "Process.h"
#include "Runtime.h"

namespace velarix::keeper
{

namespace
{

/// A flood is read in pieces of this many packets, with a pause behind each.
constexpr int kPacketsAtOnce = 64;
constexpr Millis kFloodPause = 10;
/// The state file is written at most this often, unless the address came or went.
constexpr Millis kPublishGap = 50;

int loopback()
{
	return static_cast<int>(::if_nametoindex("lo"));
}

std::uint32_t randomNumber()
{
	std::uint32_t number = 0;
	[[maybe_unused]] const ssize_t length = ::getrandom(&number, sizeof number, 0);
	return number;
}

} // namespace

std::string macText(const Mac& mac)
{
	std::array<char, 20> text{};
	std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
	              mac[5]);
	return text.data();
}

int setMarker(Netlink& netlink, std::uint32_t address)
{
	return netlink.add({loopback(), 128, markerBytes(address)}, "");
}

int removeMarker(Netlink& netlink, std::uint32_t address)
{
	return netlink.remove({loopback(), 128, markerBytes(address)});
}

bool hasMarker(Netlink& netlink, std::uint32_t address)
{
	const std::vector<Address> listed = netlink.addresses(AF_INET6);
	return std::ranges::any_of(listed, [&](const Address& other) { return other.bytes == markerBytes(address); });
}

int removeAddress(Netlink& netlink, const AddressSettings& settings)
{
	const int interface = static_cast<int>(::if_nametoindex(settings.interface.c_str()));
	int error = 0;
	constexpr int kTries = 5;
	for (int i = 0; i < kTries; ++i)
	{
		bool found = false;
		for (const Address& other : netlink.addresses(AF_INET))
		{
			if (other.interface == interface && other.bytes == addressBytes(settings.address))
			{
				found = true;
				error = netlink.remove(other);
			}
		}
		if (!found)
		{
			return 0;
		}
	}
	return error != 0 ? error : EBUSY;
}

AddressHolder::AddressHolder(AddressSettings settings) : m_settings(std::move(settings)), m_journal(kAddressProgram)
{
	m_machine.defend = m_settings.defend;
	m_machine.since = now();
}

Address AddressHolder::address() const
{
	return {m_link.index, m_settings.prefix, addressBytes(m_settings.address)};
}

int AddressHolder::run()
{
	const Descriptor signals = takeSignals();
	keepCapabilities({CAP_NET_ADMIN, CAP_NET_RAW});
	m_loop.watch(signals.get(),
	             [&]
	             {
		             const std::vector<int> received = readSignals(signals.get());
		             if (std::ranges::any_of(received, [](int signal) { return signal != SIGCHLD; }))
		             {
			             feed(AddressEvent::stop);
		             }
	             });
	m_loop.watch(m_monitor.descriptor(), [this] { readNetlink(); });
	// Left by somebody; whether it may be held here is only asked now.
	removeAddress(m_netlink, m_settings);
	setMarker(m_netlink, m_settings.address);
	m_journal.event("started", m_settings.text + " on " + m_settings.interface +
	                               (m_settings.defend ? ", defends it" : ", yields on a conflict"));
	// Before anybody reads that there is no carrier.
	readLinks();
	publish(true);
	Millis lastTurn = now();
	while (m_machine.state != AddressState::stopped)
	{
		const Millis due = deadline();
		m_loop.wait(due);
		const Millis moment = now();
		// Before anything that has waited meanwhile is looked at.
		if (due != kNever && stalled(lastTurn, moment))
		{
			feed(AddressEvent::stall);
		}
		lastTurn = moment;
		m_loop.dispatch();
		onTime(now());
	}
	return EX_OK;
}

Millis AddressHolder::deadline() const
{
	return std::min({m_machine.deadline(), m_arpAgainAt, m_markerAt, m_publishAt});
}

void AddressHolder::onTime(Millis moment)
{
	if (moment >= m_arpAgainAt)
	{
		m_arpAgainAt = kNever;
		m_loop.watch(m_arp.descriptor(), [this] { readArpSocket(); });
	}
	if (moment >= m_markerAt)
	{
		m_markerAt = kNever;
		setMarker(m_netlink, m_settings.address);
	}
	if (moment >= m_publishAt)
	{
		publish(true);
	}
	if (moment >= m_machine.deadline())
	{
		feed(AddressEvent::timer);
	}
}

void AddressHolder::readLinks()
{
	const std::vector<Link> links = m_netlink.links();
	m_ownMacs.clear();
	for (const Link& link : links)
	{
		onLink(link);
	}
	if (std::ranges::none_of(links, [this](const Link& link) { return link.name == m_settings.interface; }))
	{
		onLink({0, {}, false, m_settings.interface});
	}
}

/// Another interface of this machine on the same network answers for the address, too.
bool AddressHolder::isOwn(const Mac& mac) const
{
	return std::ranges::any_of(m_ownMacs, [&](const auto& own) { return own.second == mac; });
}

void AddressHolder::onLink(const Link& link)
{
	m_ownMacs[link.index] = link.mac;
	const bool ours = link.index != 0 && link.index == m_link.index;
	if (link.name != m_settings.interface && !ours)
	{
		return;
	}
	const bool changed = link.index != m_link.index || link.mac != m_link.mac;
	const bool wasUp = m_link.up;
	m_link = link;
	if (changed && link.index != 0)
	{
		if (m_arp && m_arpAgainAt == kNever)
		{
			m_loop.forget(m_arp.descriptor());
		}
		m_arpAgainAt = kNever;
		m_arp = ArpSocket(link.index, m_settings.address, link.mac);
		if (!m_arp)
		{
			m_journal.event("failed", "no packet socket on " + m_settings.interface + ": " + std::strerror(errno));
			feed(AddressEvent::linkDown);
			return;
		}
		m_loop.watch(m_arp.descriptor(), [this] { readArpSocket(); });
	}
	if (link.up != wasUp || (link.up && changed))
	{
		feed(link.up ? AddressEvent::linkUp : AddressEvent::linkDown);
	}
}

void AddressHolder::onRemoved(const Address& removed)
{
	if (removed.interface == m_link.index && removed.bytes == addressBytes(m_settings.address))
	{
		feed(AddressEvent::removed);
	}
	else if (removed.bytes == markerBytes(m_settings.address))
	{
		m_markerAt = std::min(m_markerAt, now() + timing::kRaiseGap);
	}
}

void AddressHolder::readNetlink()
{
	const bool complete = m_monitor.receive([this](const Link& link) { onLink(link); },
	                                        [this](const Address& removed) { onRemoved(removed); });
	if (!complete)
	{
		afterLoss();
	}
}

/// Events were lost in a storm of them.
void AddressHolder::afterLoss()
{
	readLinks();
	m_markerAt = now();
	const std::vector<Address> listed = m_netlink.addresses(AF_INET);
	if (std::ranges::none_of(listed, [&](const Address& other)
	                         { return other.bytes == address().bytes && other.interface == m_link.index; }))
	{
		feed(AddressEvent::removed);
	}
}

void AddressHolder::readArpSocket()
{
	const bool more = m_arp.receive(
	    kPacketsAtOnce,
	    [this](const ArpPacket& packet)
	    {
		    if (!isOwn(packet.from))
		    {
			    feed(packet.kind == ArpKind::claim ? AddressEvent::claim : AddressEvent::foreignProbe, packet.from);
		    }
	    });
	if (more)
	{
		m_loop.forget(m_arp.descriptor());
		m_arpAgainAt = now() + kFloodPause;
	}
}

void AddressHolder::feed(AddressEvent event, const Mac& from)
{
	const AddressMachine before = m_machine;
	const AddressStep step = next(m_machine, {event, now(), from, randomNumber()});
	m_machine = step.machine;
	if (event == AddressEvent::claim && before.held())
	{
		++m_conflicts;
		m_lastConflict = wallClock(now());
	}
	m_removals += event == AddressEvent::removed && before.held() ? 1 : 0;
	// The services are told before the address goes, and after it has come.
	if (before.held() && !m_machine.held())
	{
		publish(true);
	}
	perform(step.actions);
	report(event, before);
	if (before.held() != m_machine.held())
	{
		publish(true);
	}
	else if (before.state != m_machine.state || before.holder != m_machine.holder || event == AddressEvent::claim ||
	         event == AddressEvent::removed)
	{
		publish(false);
	}
}

void AddressHolder::perform(const AddressActions& actions)
{
	if (actions.lower)
	{
		removeAddress(m_netlink, m_settings);
	}
	if (actions.raise)
	{
		const int error = m_netlink.add(address(), m_settings.interface + ":ha");
		if (error != 0)
		{
			m_journal.event("failed", m_settings.text + " cannot be raised: " + std::strerror(error));
			feed(AddressEvent::raiseFailed);
			return;
		}
	}
	if (actions.probe)
	{
		m_arp.probe();
	}
	if (actions.announce)
	{
		m_arp.announce();
	}
}

void AddressHolder::report(AddressEvent event, const AddressMachine& before)
{
	const std::string place = m_settings.text + " on " + m_settings.interface;
	const std::string holder = m_machine.holder ? macText(*m_machine.holder) : "";
	if (event == AddressEvent::stall)
	{
		m_journal.event("stalled", "stood still; asks who holds " + m_settings.text);
	}
	if (event == AddressEvent::removed && before.held())
	{
		m_journal.event("removed", place + " was removed by somebody; raised again");
	}
	if (m_machine.state == AddressState::yielded && before.state != m_machine.state)
	{
		m_journal.event("yielded", m_settings.text + " to " + holder);
	}
	else if (m_machine.state == AddressState::waiting && m_machine.holder != before.holder)
	{
		m_journal.event("waiting", m_settings.text + " is held by " + holder);
	}
	else if (m_machine.state == AddressState::offline && before.state != m_machine.state)
	{
		m_journal.event("offline", m_settings.interface + " is missing, down or without carrier");
	}
	else if (event == AddressEvent::claim && before.held())
	{
		m_journal.event("conflict", "another host has claimed " + m_settings.text);
	}
	if (before.held() != m_machine.held())
	{
		m_journal.event(m_machine.held() ? "raised" : "lowered", place);
	}
	if (m_machine.state == AddressState::stopped && before.state != m_machine.state)
	{
		m_journal.event("stopped", "asked to end");
	}
}

void AddressHolder::publish(bool atOnce)
{
	const Millis moment = now();
	if (!atOnce && moment - m_publishedAt < kPublishGap)
	{
		m_publishAt = std::min(m_publishAt, m_publishedAt + kPublishGap);
		return;
	}
	m_publishAt = kNever;
	m_publishedAt = moment;
	writeState(kAddressProgram, {{"state", nameOf(m_machine.state)},
	                             {"held", m_machine.held() ? "yes" : "no"},
	                             {"since", std::to_string(wallClock(m_machine.since))},
	                             {"address", m_settings.text},
	                             {"interface", m_settings.interface},
	                             {"on_conflict", m_settings.defend ? "defend" : "yield"},
	                             {"holder", m_machine.holder ? macText(*m_machine.holder) : ""},
	                             {"conflicts", std::to_string(m_conflicts)},
	                             {"last_conflict", std::to_string(m_lastConflict)},
	                             {"removals", std::to_string(m_removals)},
	                             {"pid", std::to_string(::getpid())}});
}

} // namespace velarix::keeper
