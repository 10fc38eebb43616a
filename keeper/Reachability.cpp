// ha-reach: sees whether this node reaches its targets, and holds the reachability address (GATEWAY_IP) on lo
// as long as it does (ReachMachine.h). The agent pings that address to judge its own network. Killed, it leaves
// the address to the next ha-reach; when there is none, or it is frozen, the kernel removes the address.
#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <utility>

#include <arpa/inet.h>
#include <linux/capability.h>
#include <sysexits.h>
#include <unistd.h>

#include "inspect/EchoSocket.h"
#include "inspect/HostProcesses.h"
#include "inspect/Names.h"
#include "keeper/Guard.h"
#include "keeper/Network.h"
#include "keeper/PartnerLink.h"
#include "keeper/Process.h"
#include "keeper/ReachMachine.h"
#include "keeper/Runtime.h"
#include "keeper/SettingsWatch.h"

namespace velarix::keeper
{

namespace
{

/// A flood is read in pieces of this many datagrams, with a pause behind each.
constexpr int kDatagramsAtOnce = 64;
constexpr Millis kFloodPause = 10;
/// Killed or frozen, it leaves the address for so long and two rounds.
constexpr Millis kKept = 10'000;
constexpr Millis kRefresh = 3'000;
constexpr const char* kPidFile = "/usr/velarix/pid/VelarixHA.pid";

constexpr std::array kWords{"fails", "reaches", "ready"};

/// @return whether this node's agent works; in maintenance it is stopped
bool agentWorks()
{
	pid_t pid = 0;
	std::ifstream(kPidFile) >> pid;
	const std::optional<inspect::host::Process> agent = inspect::host::process(pid);
	return agent && agent->name == inspect::kAgentName && agent->user == 0 && agent->state != 'T' &&
	       agent->state != 'Z';
}

std::optional<Key> keyOrReport(Journal& journal)
{
	std::string error;
	const std::optional<Key> key = readKey(kKeyFile, error);
	journal.eventIf(!key, "failed", error + "; the partner cannot be asked");
	return key;
}

/// @return the reachability address as that of an interface
AddressSettings reachAddress(const ReachSettings& settings)
{
	return {.address = ::inet_addr(settings.address.c_str()), .text = settings.address, .interface = "lo"};
}

/// A target's pings.
struct Pings
{
	inspect::EchoSocket socket;
	bool answered = false; ///< the last one
	long long since = 0;   ///< of what is known of the target; CLOCK_REALTIME in seconds
};

class Reachability
{
public:
	explicit Reachability(const Settings& settings)
	    : m_watch(settings), m_settings(settings.reach), m_address(reachAddress(m_settings)), m_journal(kReachProgram),
	      m_link(m_settings, keyOrReport(m_journal), [this] { return word(); }), m_targets(m_settings.targets.size()),
	      m_pings(m_settings.targets.size())
	{
		m_machine.interval = m_settings.interval * 1000LL;
		m_since = wallClock(now());
		std::ranges::for_each(m_pings, [this](Pings& pings) { pings.since = m_since; });
	}

	int run()
	{
		keepCapabilities({CAP_NET_ADMIN, CAP_NET_BIND_SERVICE, CAP_NET_RAW});
		m_loop.watchSignals([this, guard = ::getppid()](int signal) { signal == SIGCHLD ? void() : end(guard); });
		m_loop.watch(m_bell.descriptor(),
		             [this]
		             {
			             m_bell.quiet();
			             const std::optional<Sight> seen = look(m_address);
			             if (m_machine.held && seen && !seen->present)
			             {
				             m_journal.event("removed", m_address.text + " was removed by somebody; set again");
				             raise();
			             }
		             });
		// Left by one that was killed; whether it may be there is asked now.
		m_machine.held = look(m_address).value_or(Sight()).present;
		m_journal.event("started", m_address.text + " as long as " + std::to_string(m_settings.needed) + " of " +
		                               std::to_string(m_targets.size()) + " targets answer");
		m_roundAt = now();
		while (m_machine.state != ReachState::stopped)
		{
			turn();
		}
		return m_changed ? EX_TEMPFAIL : EX_OK;
	}

private:
	void end(pid_t guard)
	{
		if (::getppid() == guard)
		{
			feed(ReachEvent::stop);
			return;
		}
		m_journal.event("killed", "its guard; " + m_address.text + " is left to the next one");
		m_machine.state = ReachState::stopped;
	}

	void turn()
	{
		m_loop.wait(std::min({m_roundAt, m_machine.askAt, m_readAgainAt}));
		// Answers count that came before the verdict, however late we are.
		m_loop.dispatch();
		if (now() >= m_readAgainAt)
		{
			m_loop.watch(m_link.descriptor(), [this] { readPartner(); });
			m_readAgainAt = kNever;
		}
		if (now() >= m_roundAt)
		{
			round();
		}
		if (now() >= m_machine.askAt)
		{
			feed(ReachEvent::timer);
		}
	}

	void round()
	{
		m_roundAt = now() + m_machine.interval;
		for (std::size_t i = 0; i < m_targets.size(); ++i)
		{
			ping(i);
		}
		openLink();
		if (m_machine.held && (!m_set || now() >= m_refreshAt))
		{
			raise();
		}
		judge();
		publish();
		m_changed = m_watch.changed(m_journal);
		m_changed ? feed(ReachEvent::stop) : void();
	}

	void openLink()
	{
		if (m_link.open())
		{
			m_loop.watch(m_link.descriptor(), [this] { readPartner(); });
		}
		const int error = m_link.bindError();
		m_journal.eventIf(std::exchange(m_bindError, error) != error && error != 0, "failed",
		                  "the partner cannot be asked: " + m_settings.own + " UDP port " +
		                      std::to_string(m_settings.port) + ": " + std::strerror(error));
	}

	/// Closes the round before and begins the next one.
	void ping(std::size_t index)
	{
		Pings& pings = m_pings.at(index);
		const std::string& target = m_settings.targets.at(index);
		if (pings.socket.sequence() > 0 && !pings.answered && m_targets.at(index).miss(m_settings.failures))
		{
			pings.since = wallClock(now());
			m_journal.event("target-lost",
			                target + " has not answered " + std::to_string(m_settings.failures) + " pings in a row");
		}
		// Routes and own addresses may have changed since it was opened.
		if (!pings.answered)
		{
			pings.socket ? m_loop.forget(pings.socket.descriptor()) : void();
			pings.socket = inspect::EchoSocket(target);
			if (pings.socket)
			{
				m_loop.watch(pings.socket.descriptor(), [this, index] { readPing(index); });
			}
		}
		pings.answered = false;
		pings.socket.request();
	}

	void readPing(std::size_t index)
	{
		Pings& pings = m_pings.at(index);
		while (const std::optional<std::uint16_t> sequence = pings.socket.answer())
		{
			const bool current = *sequence == pings.socket.sequence();
			const bool first = current && !std::exchange(pings.answered, true);
			const bool back = m_targets.at(index).lost;
			if (first && m_targets.at(index).hit())
			{
				pings.since = wallClock(now());
				m_journal.event(back ? "target-back" : "target-found", m_settings.targets.at(index) + " answers");
				judge();
				publish();
			}
		}
	}

	void readPartner()
	{
		int limit = kDatagramsAtOnce;
		while (const std::optional<PartnerWord> answer = m_link.read(limit))
		{
			constexpr std::array kEvents{ReachEvent::partnerFails, ReachEvent::partnerReaches,
			                             ReachEvent::partnerReady};
			m_asked = false;
			m_partner = kWords.at(static_cast<std::size_t>(*answer));
			feed(kEvents.at(static_cast<std::size_t>(*answer)));
			publish();
		}
		if (limit == 0)
		{
			m_loop.forget(m_link.descriptor());
			m_readAgainAt = now() + kFloodPause;
		}
	}

	void judge()
	{
		if (const std::optional<ReachEvent> event = verdict(m_targets, m_settings.needed))
		{
			feed(*event);
		}
	}

	PartnerWord word() const
	{
		const bool reaches = steady(m_targets, m_settings.needed, m_settings.failures);
		return !reaches ? PartnerWord::fails : (agentWorks() ? PartnerWord::ready : PartnerWord::reaches);
	}

	void feed(ReachEvent event)
	{
		const ReachState before = m_machine.state;
		const ReachStep step = next(m_machine, event, now());
		m_machine = step.machine;
		if (step.actions.lower)
		{
			removeAddress(m_address);
		}
		if (step.actions.raise)
		{
			raise();
		}
		if (step.actions.ask)
		{
			m_partner = m_asked ? "silent" : m_partner;
			m_asked = true;
			m_link.ask();
		}
		if (step.actions.handOver)
		{
			handOver();
		}
		if (before != m_machine.state)
		{
			m_since = wallClock(now());
			report(before);
			publish();
		}
	}

	void raise()
	{
		m_refreshAt = now() + kRefresh;
		const int error = addAddress(m_address, static_cast<std::uint32_t>((kKept + 2 * m_machine.interval) / 1000));
		m_set = error == 0;
		m_journal.eventIf(!m_set, "failed", m_address.text + " cannot be set on lo: " + std::strerror(error));
	}

	void handOver()
	{
		const bool held = valueOf(readState(kAddressProgram), "held") == "yes";
		if (agentWorks() && held && holderOf(kAddressProgram, Part::worker) != 0)
		{
			m_journal.event("handing-over", "the partner reaches its targets, and gets the service");
			hideAddressProgram();
		}
	}

	void report(ReachState before)
	{
		const auto entered = [&](ReachState state) { return m_machine.state == state; };
		const bool set = before == ReachState::unknown || before == ReachState::isolated;
		const std::string gone = m_address.text + " is removed";
		m_journal.eventIf(entered(ReachState::reachable), "reachable",
		                  "enough targets answer" + (set ? ", " + m_address.text + " is set" : ""));
		m_journal.eventIf(entered(ReachState::sharedOutage), "shared-outage",
		                  "the partner does not reach its targets either: nothing moves");
		m_journal.eventIf(entered(ReachState::partnerOnly), "partner-only",
		                  "the partner reaches its targets, this node does not");
		m_journal.eventIf(entered(ReachState::isolated), "isolated", "neither targets nor the partner answer: " + gone);
		m_journal.eventIf(entered(ReachState::stopped), "stopped",
		                  (m_changed ? "its settings were changed, " : "asked to end, ") + gone);
	}

	/// Services are woken by every file that is written there: only what is new.
	void publish()
	{
		Fields fields{{"state", nameOf(m_machine.state)},
		              {"held", m_machine.held ? "yes" : "no"},
		              {"since", std::to_string(m_since)},
		              {"address", m_address.text},
		              {"needed", std::to_string(m_settings.needed)},
		              {"partner", m_partner},
		              {"pid", std::to_string(::getpid())}};
		for (std::size_t i = 0; i < m_targets.size(); ++i)
		{
			const char* state = m_targets[i].answers ? "answers" : (m_targets[i].lost ? "lost" : "unknown");
			fields.emplace_back("target." + m_settings.targets[i],
			                    std::string(state) + " " + std::to_string(m_pings[i].since));
		}
		if (fields != m_published)
		{
			writeState(kReachProgram, fields);
			m_published = std::move(fields);
		}
	}

	SettingsWatch m_watch; ///< before the key is read
	ReachSettings m_settings;
	AddressSettings m_address;
	Journal m_journal;
	Loop m_loop;
	NetlinkBell m_bell;
	PartnerLink m_link;
	ReachMachine m_machine;
	long long m_since = 0; ///< of its state; CLOCK_REALTIME in seconds
	std::vector<Target> m_targets;
	std::vector<Pings> m_pings;
	bool m_set = false;                ///< the last raise succeeded
	bool m_changed = false;            ///< there are new settings
	int m_bindError = 0;               ///< as reported
	std::string m_partner = "unknown"; ///< fails, reaches, ready, silent
	bool m_asked = false;              ///< and not answered yet
	Millis m_refreshAt = 0;            ///< before the kernel removes the address
	Millis m_roundAt = 0;
	Millis m_readAgainAt = kNever; ///< after a flood of datagrams
	Fields m_published;
};

} // namespace

int watchTargets(const Settings& settings)
{
	return Reachability(settings).run();
}

} // namespace velarix::keeper
