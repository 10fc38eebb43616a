#include "ctl/status/Checklist.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// Free space below which the log's disk is nearly full: about a day of an idle
/// node's log; and below which it is as good as full.
constexpr std::uintmax_t kMegabyte = 1000UL * 1000UL;
constexpr std::uintmax_t kLittleSpace = 120 * kMegabyte;
constexpr std::uintmax_t kNoSpace = 1 * kMegabyte;
/// A partner that is just between two passes refuses once or twice.
constexpr int kRefusals = 3;
constexpr int kFailedStarts = 2;

} // namespace

void Checklist::add(std::string_view id, Grade grade, bool blocks, std::string text)
{
	m_problems.push_back({id, grade, blocks, std::move(text)});
}

bool Checklist::maintenance()
{
	if (!m_state.maintenanceProblem.empty())
	{
		add("maintenance-unreadable", Grade::warning, kHarmless, m_state.maintenanceProblem);
	}
	if (!m_state.maintenance)
	{
		return false;
	}
	const std::string words = m_state.maintenance->words();
	if (m_state.agent.state == AgentState::running)
	{
		add("maintenance-left", Grade::warning, kHarmless,
		    "the agent was continued by hand in the maintenance " + words +
		        "; end that with velarixctl maintenance off");
		return false;
	}
	if (m_state.now > m_state.maintenance->until)
	{
		add("maintenance-forgotten", Grade::critical, kBlocks,
		    "MAINTENANCE " + words + ": its time has passed, and the service is still not watched");
		return true;
	}
	add("maintenance", Grade::warning, kBlocks,
	    "MAINTENANCE " + words + ": nothing fails over and nothing is restarted");
	return true;
}

void Checklist::agent()
{
	if (maintenance())
	{
		return;
	}
	const Agent& agent = m_state.agent;
	switch (agent.state)
	{
	case AgentState::running:
		break;
	case AgentState::frozen:
		add("agent-frozen", Grade::critical, kBlocks, "the agent is frozen: " + agent.text);
		break;
	case AgentState::dead:
	case AgentState::otherProgram:
		add("agent-dead", Grade::critical, kBlocks,
		    "the agent is dead: " + agent.text + "; the programs and the address are as it left them");
		break;
	case AgentState::noPidFile:
		add("agent-not-running", Grade::critical, kBlocks, "the agent does not run: " + agent.text);
		break;
	case AgentState::notKnown:
		add("agent-not-known", Grade::unknown, kHarmless, agent.text);
		break;
	}
	if (!agent.console.empty())
	{
		add("agent-console", Grade::warning, kHarmless,
		    "the agent echoes its log to " + agent.console +
		        ": when nobody reads it, receiver and sender stop; start it with its output in /dev/null");
	}
	if (agent.foreign > 0)
	{
		add("foreign-agent", Grade::warning, kHarmless,
		    "an agent runs as process " + std::to_string(agent.foreign) +
		        ", which the pid file does not name (a new agent writes it two seconds after its start)");
	}
}

void Checklist::sources()
{
	const bool watched = m_state.agent.state == AgentState::running;
	if (!m_state.settings)
	{
		const bool forbidden = m_state.settingsCode == ExitCode::noPermission;
		add("settings-unreadable", Grade::unknown, kHarmless,
		    m_state.settingsProblem + (forbidden ? "; run it as root" : ""));
	}
	else if (watched && m_state.starting)
	{
		add("agent-starting", Grade::warning, kBlocks, "the agent was started just now and has not reported its role");
	}
	else if (watched && m_state.otherZone)
	{
		add("log-time-zone", Grade::unknown, kHarmless,
		    m_state.distrust +
		        "; run velarixctl with the agent's time zone (TZ), or start the agent with the system's");
	}
	else if (watched && m_state.logStale)
	{
		add("log-stale", Grade::critical, kBlocks, m_state.distrust);
	}
	else if (!m_state.tail.problem.empty())
	{
		add("log-unreadable", Grade::unknown, kHarmless, m_state.tail.problem);
	}
	else if (watched && !m_state.role.known())
	{
		add("role-not-known", Grade::unknown, kHarmless, "the role is not known: " + m_state.role.why);
	}
	if (m_state.settingsNewer)
	{
		add("settings-newer", Grade::warning, kHarmless,
		    "the settings were changed after the agent's start: it still works with the former ones");
	}
}

void Checklist::log()
{
	if (m_state.logBegunAhead)
	{
		add("log-begun-ahead", Grade::warning, kHarmless,
		    "the log was begun while the clock was ahead, at " + localText(*m_state.logBegunAhead) +
		        ": it is not rotated until a day after that; move it aside and restart the agent");
	}
	if (m_state.logSpace.known() && *m_state.logSpace.reported < kLittleSpace)
	{
		const bool full = *m_state.logSpace.reported < kNoSpace;
		add("log-disk", full ? Grade::critical : Grade::warning, full,
		    "the disk of the log has " + std::to_string(*m_state.logSpace.reported / kMegabyte) +
		        " MB left: when it is full, the agent's workers end");
	}
}

/// The pair does not come to rest, whatever each single moment looks like.
void Checklist::flapping()
{
	const std::vector<Instant>& changes = m_state.snapshot().roleChanges;
	const auto recent = std::ranges::count_if(changes, [this](Instant time) { return time > m_state.now - kFlapping; });
	if (recent >= kFlappingChanges)
	{
		add("flapping", Grade::critical, kHarmless,
		    "the service comes and goes: the role changed " + std::to_string(recent) + " times in five minutes");
	}
}

/// The receiver does nothing else then, so that the log soon no longer tells the role.
void Checklist::start()
{
	if (m_state.agent.lives() && otherHolder().empty() && m_state.snapshot().takeOver &&
	    m_state.snapshot().failedStarts >= kFailedStarts)
	{
		add("start-fails", Grade::critical, kBlocks,
		    "the virtual address cannot be raised: its start has failed " +
		        std::to_string(m_state.snapshot().failedStarts) +
		        " times in a row; velarixctl events shows what the command printed");
	}
}

void Checklist::tunnel()
{
	if (!m_state.tunnel || m_state.tunnel->settings.endpoint.empty())
	{
		return;
	}
	if (!m_state.tunnel->present)
	{
		add("tunnel-missing", Grade::critical, kBlocks,
		    "the heartbeats have no way: there is no interface wg-ha; systemctl status velarix-tunnel");
	}
	else if (m_state.tunnel->down)
	{
		add("tunnel-down", Grade::critical, kBlocks,
		    "the tunnel is down, the cable is not: the partner answers at " + m_state.tunnel->settings.endpoint +
		        " and not in the tunnel, and each node takes the other for dead; velarixctl check tells more");
	}
}

void Checklist::workers()
{
	const Snapshot& snapshot = m_state.snapshot();
	// The agent makes its workers two seconds after its start.
	constexpr std::chrono::seconds begin{10};
	const bool made = !m_state.agent.since || m_state.now - *m_state.agent.since >= begin;
	if (m_state.agent.threads < kAgentThreads && made)
	{
		add("thread-lost", Grade::critical, kBlocks,
		    "the agent has " + std::to_string(m_state.agent.threads) + " threads instead of " +
		        std::to_string(kAgentThreads) + ": a worker has ended, restart the agent");
	}
	else if (const std::optional<Milliseconds> silent = m_state.age(snapshot.lastOfReceiver);
	         silent && !snapshot.takeOver && *silent > m_state.timing.receiverPause())
	{
		add("receiver-stuck", Grade::critical, kBlocks,
		    "the receiver has logged nothing for " + spanText(*silent) + ": a command or ping of it does not end");
	}
}

void Checklist::interfaces()
{
	if (!m_state.communicationInterface.is(true))
	{
		add("communication-interface", Grade::warning, kBlocks,
		    std::string("the communication interface ") + kCommunicationInterface + " has no carrier");
	}
	if (!m_state.serviceInterface.is(true))
	{
		// A master without it gives up by itself: a failover at work.
		add("service-interface", m_state.role.is(Role::master) ? Grade::critical : Grade::warning,
		    m_state.role.is(Role::slave),
		    std::string("the service interface ") + kServiceInterface + " has no carrier");
	}
	if (m_state.gatewayAnswers.is(false))
	{
		add("gateway", m_state.role.is(Role::master) ? Grade::critical : Grade::warning, m_state.role.is(Role::slave),
		    "the gateway " + m_state.setting(key::kGatewayIP) + " does not answer: " +
		        (m_state.role.is(Role::slave) ? "this node would not keep the service"
		                                      : "this node gives up the service"));
	}
}

void Checklist::unheardPartner()
{
	const Snapshot& snapshot = m_state.snapshot();
	const std::string since = m_state.heartbeat.at ? "no heartbeat for " + spanText(*m_state.age(m_state.heartbeat))
	                                               : "no heartbeat in the part of the log that was read";
	if (m_state.role.is(Role::master) && !m_state.otherHolder.empty())
	{
		add("duplicate-address", Grade::critical, kBlocks,
		    "split-brain: the host " + m_state.otherHolder +
		        " has the virtual address too, and the partner does not answer: " + since);
	}
	else if (m_state.role.is(Role::master))
	{
		add(kPartnerSilent, Grade::warning, kBlocks, "the partner does not answer: " + since);
	}
	else if (snapshot.fault(Fault::heartbeats).there)
	{
		add("partner-mute", Grade::critical, kBlocks,
		    "the partner's host answers pings but its agent sends no heartbeats (" + since +
		        "): this node does not take over while it answers");
	}
	else
	{
		add(kPartnerSilent, Grade::warning, kHarmless,
		    "the partner does not answer: " + since + "; this node has counted " + std::to_string(snapshot.silences) +
		        " of 3 missed heartbeats");
	}
}

void Checklist::partner()
{
	if (!m_state.partnerRole.known())
	{
		unheardPartner();
		return;
	}
	if (m_state.role.is(Role::master) && m_state.partnerRole.is(Role::master))
	{
		add("two-masters", Grade::critical, kBlocks, "both nodes are master");
	}
	else if (m_state.role.is(Role::slave) && m_state.partnerRole.is(Role::slave))
	{
		add("no-master", Grade::critical, kBlocks, "both nodes are standby: nobody serves");
	}
	if (m_state.partnerAsks.is(true))
	{
		add("partner-asks", Grade::warning, kBlocks, "the partner asks: it has given up the service");
	}
	if (m_state.asking.is(true))
	{
		add("asks", Grade::warning, kBlocks, "this node asks its partner: it has given up the service");
	}
	if (m_state.snapshot().fault(Fault::partnerPort).there && m_state.snapshot().refusals >= kRefusals)
	{
		add("partner-refuses", Grade::warning, kBlocks,
		    "the partner does not accept this node's heartbeats: its receiver does not work, or a firewall is "
		    "between them");
	}
}

void Checklist::master()
{
	if (const std::optional<Event>& takeOver = m_state.snapshot().takeOver)
	{
		add("taking-over", Grade::warning, kBlocks,
		    "this node is taking the service since " + spanText(*m_state.age(takeOver->time)));
		return;
	}
	if (m_state.address.known() && !m_state.address.reported->held && otherHolder().empty())
	{
		add("address-missing", Grade::critical, kHarmless,
		    "this node is master, but the virtual address " + m_state.setting(key::kVirtualIP) + " is not on it");
	}
	else if (m_state.address.known() && m_state.address.reported->held && !m_state.address.reported->listed)
	{
		add("address-unlisted", Grade::warning, kHarmless,
		    "ifconfig, where the agent looks, does not list the virtual address: give it a label");
	}
	if (m_state.programs.known() && !m_state.programs.reported->run)
	{
		add("programs-missing", Grade::critical, kHarmless, "this node is master, but its programs do not run");
	}
}

void Checklist::standby()
{
	if (m_state.address.known() && m_state.address.reported->held)
	{
		add("address-on-slave", Grade::critical, kHarmless,
		    "this node is standby, but the virtual address " + m_state.setting(key::kVirtualIP) + " is on it");
	}
	programs();
}

void Checklist::programs()
{
	if (!m_state.programs.known())
	{
		return;
	}
	for (const ProgramCount& program : m_state.programs.reported->each)
	{
		if (program.executable == false)
		{
			add("program-file", Grade::warning, kBlocks, program.path + " is not there or may not be executed");
		}
	}
	if (m_state.programs.reported->run && !m_state.programs.reported->each.empty())
	{
		add("programs-on-slave", Grade::warning, kHarmless,
		    "this node is standby, but its programs run: a take-over would kill them first");
	}
}

} // namespace velarix::ctl
