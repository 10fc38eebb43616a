// ha-address: holds the virtual address while it lives (AddressMachine.h), and keeps the
// marker (Network.h).
#include <algorithm>
#include <csignal>
#include <cstring>

#include <linux/capability.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include "keeper/Guard.h"
#include "keeper/Network.h"
#include "keeper/Process.h"
#include "keeper/Runtime.h"

namespace velarix::keeper
{

namespace
{

/// A flood is read in pieces of this many packets, with a pause behind each.
constexpr int kPacketsAtOnce = 64;
constexpr Millis kFloodPause = 10;
/// A storm of changes costs one look at the interfaces in this time.
constexpr Millis kLookGap = 10;
/// The state file is written at most this often, unless the address came or went.
constexpr Millis kPublishGap = 50;
/// An interface has so long for its carrier to come.
constexpr Millis kUnheard = 1'000;
/// The agent has so long to give up a node whose service has ended for good.
constexpr Millis kUseless = 10'000;
/// Whoever waits for the address asks more often.
constexpr Millis kAskedAgain = 2'000;
/// What is asked for meanwhile is not considered: that reads files.
constexpr Millis kConsiderGap = 50;

std::uint32_t randomNumber()
{
	std::uint32_t number = 0;
	[[maybe_unused]] const ssize_t length = ::getrandom(&number, sizeof number, 0);
	return number;
}

/// Something that is done at most every so often, and later rather than not at all.
struct Due
{
	Millis gap;
	Millis at = kNever;
	Millis last = -1'000'000;

	/// As soon as it may be done.
	void want(Millis moment) { at = std::min(at, std::max(moment, last + gap)); }
	/// @return whether it is to be done now, and takes that for done
	bool take(Millis moment)
	{
		const bool due = moment >= at;
		at = due ? kNever : at;
		last = due ? moment : last;
		return due;
	}
};

class AddressHolder
{
public:
	AddressHolder(AddressSettings settings, std::vector<std::string> services)
	    : m_settings(std::move(settings)), m_services(std::move(services)),
	      m_journal(kAddressProgram), m_look{kLookGap}, m_publish{kPublishGap}
	{
		m_machine.defend = m_settings.defend;
		m_machine.since = now();
	}

	int run()
	{
		keepCapabilities({CAP_NET_ADMIN, CAP_NET_RAW});
		m_loop.watchSignals(
		    [this](int signal)
		    {
			    signal != SIGCHLD ? feed(AddressEvent::stop) : void();
			    m_ending = m_ending > 0 && ::waitpid(m_ending, nullptr, WNOHANG) == 0 ? m_ending : 0;
		    });
		m_loop.watch(m_bell.descriptor(),
		             [this]
		             {
			             m_bell.quiet();
			             m_look.want(now());
		             });
		// Left by somebody; whether it may be held here is only asked now.
		removeAddress(m_settings);
		m_journal.event("started", m_settings.text + " on " + m_settings.interface +
		                               (m_settings.defend ? ", defends it" : ", yields on a conflict"));
		// Before anybody reads that there is no carrier.
		lookAround();
		publish();
		while (m_machine.state != AddressState::stopped)
		{
			turn();
		}
		return EX_OK;
	}

private:
	void turn()
	{
		const Millis due = std::min({m_machine.deadline(), m_look.at, m_publish.at, m_arpAgainAt, m_unheardAt});
		m_loop.wait(due);
		const Millis lastTurn = std::exchange(m_turn, now());
		if (due != kNever && stalled(lastTurn, m_turn))
		{
			// Whoever holds it now answers our probe. What was claimed meanwhile may be over.
			m_arp.receive(kPacketsAtOnce, [](const ArpPacket&) {});
			feed(AddressEvent::stall);
		}
		m_loop.dispatch();
		if (m_look.take(now()))
		{
			lookAround();
		}
		if (now() >= m_arpAgainAt)
		{
			m_loop.watch(m_arp.descriptor(), [this] { readArpSocket(); });
			m_arpAgainAt = kNever;
		}
		if (now() >= m_unheardAt)
		{
			// Nobody hears it, no service is started, and the agent finds the missing carrier: it would
			// look for the address first, and give up without asking the partner to take over.
			m_unheardAt = kNever;
			m_machine.state == AddressState::offline ? feed(AddressEvent::linkUp) : void();
		}
		if (now() >= m_machine.deadline())
		{
			// An answer counts that came before the verdict, however late we are.
			readArpSocket();
		}
		if (now() >= m_machine.deadline())
		{
			feed(AddressEvent::timer);
		}
		if (m_publish.take(now()))
		{
			publish();
		}
	}

	void lookAround()
	{
		const std::optional<Sight> seen = look(m_settings);
		if (!seen)
		{
			m_look.want(now() + kLookGap);
			return;
		}
		const Sight before = std::exchange(m_sight, *seen);
		const bool changed =
		    m_sight.index != 0 && (m_sight.index != before.index || m_sight.mac != before.mac || !m_arp);
		if (changed)
		{
			openArp();
		}
		m_sight.up = m_sight.up && m_arp;
		if (m_sight.up != before.up || (m_sight.up && changed))
		{
			feed(m_sight.up ? AddressEvent::linkUp : AddressEvent::linkDown);
		}
		m_unheardAt = m_arp && m_sight.index != 0 && !m_sight.up ? std::min(m_unheardAt, now() + kUnheard) : kNever;
		if (before.present && !m_sight.present)
		{
			feed(AddressEvent::removed);
		}
		if (!m_sight.marker)
		{
			setMarker(m_settings);
		}
	}

	void openArp()
	{
		if (m_arp && m_arpAgainAt == kNever)
		{
			m_loop.forget(m_arp.descriptor());
		}
		m_arpAgainAt = kNever;
		m_arp = ArpSocket(m_sight.index, m_settings.address, m_sight.mac);
		if (!m_arp)
		{
			m_journal.event("failed", "no packet socket on " + m_settings.interface + ": " + std::strerror(errno));
			m_look.want(now() + timing::kOfflineRetry);
			return;
		}
		m_loop.watch(m_arp.descriptor(), [this] { readArpSocket(); });
	}

	void readArpSocket()
	{
		const bool more = m_arp.receive(
		    kPacketsAtOnce,
		    [this](const ArpPacket& packet)
		    {
			    if (packet.kind != ArpKind::none && std::ranges::find(m_sight.own, packet.from) == m_sight.own.end())
			    {
				    feed(packet.kind == ArpKind::claim ? AddressEvent::claim : AddressEvent::foreignProbe, packet.from);
				    packet.kind == ArpKind::foreignProbe ? considerProbe() : void();
			    }
		    });
		if (more && m_arpAgainAt == kNever)
		{
			m_loop.forget(m_arp.descriptor());
			m_arpAgainAt = now() + kFloodPause;
		}
	}

	/// A standby's agent leaves the address where it is when its programs do not all run, and one that
	/// was to be handed over is none that runs. The node that is master then waits for it in vain, and
	/// nobody serves. Where this node is master, its agent has given up before.
	void considerProbe()
	{
		const Millis moment = now();
		if (m_askedAt != kNever && moment - m_askedAt < kConsiderGap)
		{
			return;
		}
		const bool ended = addressIsHidden() || std::ranges::any_of(m_services, hasEnded);
		const bool again = m_askedAt != kNever && moment - m_askedAt < kAskedAgain;
		m_askedAt = moment;
		m_uselessAt = !ended || !m_machine.held() ? kNever : (again ? std::min(m_uselessAt, moment) : moment);
		if (m_uselessAt != kNever && moment - m_uselessAt >= kUseless && nothingIsLeft())
		{
			m_journal.event("yielded",
			                m_settings.text + ": handed over, or a service has ended here; another host asks for it");
			feed(AddressEvent::stop);
		}
	}

	/// What a killed supervisor has left is ended first, by "keeper stop": the service runs on one node
	/// only. That has the capabilities which this process has given away.
	bool nothingIsLeft()
	{
		const auto left =
		    std::ranges::find_if(m_services, [](const std::string& service)
		                         { return hasEnded(service) && valueOf(readState(service), "started") == "yes"; });
		if (left != m_services.end() && m_ending == 0 && now() >= m_endAgainAt)
		{
			m_endAgainAt = now() + kUseless;
			std::string error;
			m_ending = std::max(start({}, {"/proc/self/exe", "stop", *left}, RunAs::self, error), 0);
			Journal(*left).event("stopping", "its supervisor was killed, and another host asks for the address" +
			                                     (error.empty() ? "" : ": " + error));
		}
		return left == m_services.end();
	}

	void feed(AddressEvent event, const Mac& from = {})
	{
		const AddressMachine before = m_machine;
		const AddressStep step = next(m_machine, {event, now(), from, randomNumber()});
		m_machine = step.machine;
		const bool cameOrWent = before.held() != m_machine.held();
		m_unheard = m_unheard || (cameOrWent && m_machine.held() && !m_sight.up);
		if (event == AddressEvent::claim && before.held())
		{
			++m_conflicts;
			m_lastConflict = wallClock(now());
		}
		m_removals += event == AddressEvent::removed && before.held() ? 1 : 0;
		// The services hear of it before the address goes, and after it has come. In maintenance
		// their supervisors are stopped, and would let them run on without it.
		if (cameOrWent && before.held())
		{
			for (const std::string& service : m_services)
			{
				LivingProcess(service, Part::worker).signal(SIGCONT);
			}
			publish();
		}
		perform(step.actions);
		report(event, before);
		if (cameOrWent)
		{
			publish();
		}
		else if (before.state != m_machine.state || before.holder != m_machine.holder || event == AddressEvent::claim ||
		         event == AddressEvent::removed)
		{
			m_publish.want(now());
		}
	}

	void perform(const AddressActions& actions)
	{
		if (actions.lower)
		{
			removeAddress(m_settings);
			m_sight.present = false;
		}
		if (actions.raise)
		{
			const int error = addAddress(m_settings);
			m_sight.present = error == 0;
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

	void report(AddressEvent cause, const AddressMachine& before)
	{
		const std::string place = m_settings.text + " on " + m_settings.interface;
		const std::string holder = m_machine.holder ? macText(*m_machine.holder) : "";
		const bool claimed = cause == AddressEvent::claim && before.held() && m_machine.held();
		const bool found = m_machine.state == AddressState::waiting && m_machine.holder != before.holder;
		const auto entered = [&](AddressState state) { return m_machine.state == state && before.state != state; };
		m_journal.eventIf(cause == AddressEvent::stall, "stalled", "stood still; asks who holds " + m_settings.text);
		m_journal.eventIf(cause == AddressEvent::removed && before.held(), "removed",
		                  place + " was removed by somebody; raised again");
		m_journal.eventIf(claimed, "conflict", "another host has claimed " + m_settings.text);
		m_journal.eventIf(entered(AddressState::yielded), "yielded", m_settings.text + " to " + holder);
		m_journal.eventIf(found, "waiting", m_settings.text + " is held by " + holder);
		m_journal.eventIf(entered(AddressState::offline), "offline",
		                  m_settings.interface + " is missing, down or without carrier");
		m_journal.eventIf(!before.held() && m_machine.held(), "raised", place);
		m_journal.eventIf(before.held() && !m_machine.held(), "lowered", place);
		m_journal.eventIf(entered(AddressState::stopped), "stopped", "asked to end");
	}

	/// @return whether the services may run: not with an address that nobody else has heard of
	bool mayServe()
	{
		m_unheard = m_unheard && m_machine.held() && (!m_sight.up || m_machine.state == AddressState::rechecking);
		return m_machine.held() && !m_unheard;
	}

	void publish()
	{
		m_publish.at = 0;
		m_publish.take(now());
		writeState(kAddressProgram, {{"state", nameOf(m_machine.state)},
		                             {"held", mayServe() ? "yes" : "no"},
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

	AddressSettings m_settings;
	std::vector<std::string> m_services;
	Journal m_journal;
	Loop m_loop;
	NetlinkBell m_bell;
	ArpSocket m_arp;
	Sight m_sight;
	AddressMachine m_machine;
	Millis m_turn = now(); ///< when the loop was here last
	Due m_look;
	Due m_publish;
	Millis m_arpAgainAt = kNever; ///< reading of a flood goes on then
	Millis m_unheardAt = kNever;  ///< without carrier it is raised all the same then
	bool m_unheard = false;       ///< raised so, and nobody has been asked since
	Millis m_askedAt = kNever;    ///< when another host probed last
	Millis m_uselessAt = kNever;  ///< since when others have asked for it in vain while a service has ended here
	pid_t m_ending = 0;           ///< ends what is left of a service
	Millis m_endAgainAt = 0;      ///< no sooner
	int m_conflicts = 0;
	long long m_lastConflict = 0; ///< CLOCK_REALTIME in seconds
	int m_removals = 0;
};

} // namespace

int holdAddress(const AddressSettings& settings, const std::vector<std::string>& services)
{
	return AddressHolder(settings, services).run();
}

} // namespace velarix::keeper
