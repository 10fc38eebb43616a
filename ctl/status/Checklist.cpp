#include "ctl/status/Checklist.h"

#include <Poco/String.h>

#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using enum Grade;

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

void Checklist::addWhen(bool is, std::string_view id, Grade grade, bool blocks, std::string text)
{
	if (is)
	{
		add(id, grade, blocks, std::move(text));
	}
}

void Checklist::addFirst(std::initializer_list<std::pair<bool, Problem>> problems)
{
	const auto* const first = std::ranges::find(problems, true, &std::pair<bool, Problem>::first);
	if (first != problems.end())
	{
		m_problems.push_back(first->second);
	}
}

bool Checklist::maintenance()
{
	addWhen(!m_state.maintenanceProblem.empty(), "maintenance-unreadable", warning, kHarmless,
	        m_state.maintenanceProblem);
	if (!m_state.maintenance)
	{
		return false;
	}
	const std::string words = m_state.maintenance->words();
	if (m_state.agent.state == AgentState::running)
	{
		add("maintenance-left", warning, kHarmless,
		    "the agent was continued by hand in the maintenance " + words +
		        "; end that with velarixctl maintenance off");
		return false;
	}
	const bool forgotten = m_state.now > m_state.maintenance->until;
	add(forgotten ? "maintenance-forgotten" : "maintenance", forgotten ? critical : warning, kBlocks,
	    "MAINTENANCE " + words +
	        (forgotten ? ": its time has passed, and the service is still not watched"
	                   : ": nothing fails over and nothing is restarted"));
	return true;
}

void Checklist::agent()
{
	if (maintenance())
	{
		return;
	}
	const Agent& agent = m_state.agent;
	const bool dead = agent.state == AgentState::dead || agent.state == AgentState::otherProgram;
	addWhen(agent.state == AgentState::frozen, "agent-frozen", critical, kBlocks, "the agent is frozen: " + agent.text);
	addWhen(dead, "agent-dead", critical, kBlocks,
	        "the agent is dead: " + agent.text + "; the programs and the address are as it left them");
	addWhen(agent.state == AgentState::noPidFile, "agent-not-running", critical, kBlocks,
	        "the agent does not run: " + agent.text);
	addWhen(agent.state == AgentState::notKnown, "agent-not-known", unknown, kHarmless, agent.text);
	addWhen(!agent.console.empty(), "agent-console", warning, kHarmless,
	        "the agent echoes its log to " + agent.console +
	            ": when nobody reads it, receiver and sender stop; start it with its output in /dev/null");
	addWhen(agent.foreign > 0, "foreign-agent", warning, kHarmless,
	        "an agent runs as process " + std::to_string(agent.foreign) +
	            ", which the pid file does not name (a new agent writes it two seconds after its start)");
}

void Checklist::sources()
{
	const bool watched = m_state.agent.state == AgentState::running;
	const char* advice = m_state.settingsCode == ExitCode::noPermission ? "; run it as root" : "";
	addFirst({{!m_state.settings, {"settings-unreadable", unknown, kHarmless, m_state.settingsProblem + advice}},
	          {watched && m_state.starting,
	           {"agent-starting", warning, kBlocks, "the agent was started just now and has not reported its role"}},
	          {watched && m_state.otherZone,
	           {"log-time-zone", unknown, kHarmless,
	            m_state.distrust +
	                "; run velarixctl with the agent's time zone (TZ), or start the agent with the system's"}},
	          {watched && m_state.logStale, {"log-stale", critical, kBlocks, m_state.distrust}},
	          {!m_state.tail.problem.empty(), {"log-unreadable", unknown, kHarmless, m_state.tail.problem}},
	          {watched && !m_state.role.known(),
	           {"role-not-known", unknown, kHarmless, "the role is not known: " + m_state.role.why}}});
	addWhen(m_state.settingsNewer, "settings-newer", warning, kHarmless,
	        "the settings were changed after the agent's start: it still works with the former ones");
}

void Checklist::log()
{
	if (m_state.logBegunAhead)
	{
		add("log-begun-ahead", warning, kHarmless,
		    "the log was begun while the clock was ahead, at " + localText(*m_state.logBegunAhead) +
		        ": it is not rotated until a day after that; move it aside and restart the agent");
	}
	if (m_state.logSpace.known() && *m_state.logSpace.reported < kLittleSpace)
	{
		const bool full = *m_state.logSpace.reported < kNoSpace;
		add("log-disk", full ? critical : warning, full,
		    "the disk of the log has " + std::to_string(*m_state.logSpace.reported / kMegabyte) +
		        " MB left: when it is full, the agent's workers end");
	}
}

/// The pair does not come to rest, whatever each single moment looks like.
void Checklist::flapping()
{
	const auto recent = std::ranges::count_if(m_state.snapshot().roleChanges,
	                                          [this](Instant time) { return time > m_state.now - kFlapping; });
	addWhen(recent >= kFlappingChanges, "flapping", critical, kHarmless,
	        "the service comes and goes: the role changed " + std::to_string(recent) + " times in five minutes");
}

/// The receiver does nothing else then, so that the log soon no longer tells the role.
void Checklist::start()
{
	const int failed = m_state.snapshot().failedStarts;
	addWhen(m_state.agent.lives() && otherHolder().empty() && m_state.snapshot().takeOver && failed >= kFailedStarts,
	        "start-fails", critical, kBlocks,
	        "the virtual address cannot be raised: its start has failed " + std::to_string(failed) +
	            " times in a row; velarixctl events shows what the command printed");
}

void Checklist::tunnel()
{
	if (!m_state.tunnel || m_state.tunnel->settings.endpoint.empty())
	{
		return;
	}
	addWhen(!m_state.tunnel->present, "tunnel-missing", critical, kBlocks,
	        "the heartbeats have no way: there is no interface wg-ha; systemctl status velarix-tunnel");
	addWhen(m_state.tunnel->down, "tunnel-down", critical, kBlocks,
	        "the tunnel is down, the cable is not: the partner answers at " + m_state.tunnel->settings.endpoint +
	            " and not in the tunnel, and each node takes the other for dead; velarixctl check tells more");
}

void Checklist::workers()
{
	const Snapshot& snapshot = m_state.snapshot();
	// The agent makes its workers two seconds after its start.
	constexpr std::chrono::seconds begin{10};
	const bool made = !m_state.agent.since || m_state.now - *m_state.agent.since >= begin;
	if (m_state.agent.threads < kAgentThreads && made)
	{
		add("thread-lost", critical, kBlocks,
		    "the agent has " + std::to_string(m_state.agent.threads) + " threads instead of " +
		        std::to_string(kAgentThreads) + ": a worker has ended, restart the agent");
	}
	else if (const std::optional<Milliseconds> silent = m_state.age(snapshot.lastOfReceiver);
	         silent && !snapshot.takeOver && *silent > m_state.timing.receiverPause())
	{
		add("receiver-stuck", critical, kBlocks,
		    "the receiver has logged nothing for " + spanText(*silent) + ": a command or ping of it does not end");
	}
}

void Checklist::interfaces()
{
	const bool master = m_state.role.is(Role::master);
	addWhen(!m_state.communicationInterface.is(true), "communication-interface", warning, kBlocks,
	        std::string("the communication interface ") + kCommunicationInterface + " has no carrier");
	// A master without it gives up by itself: a failover at work.
	addWhen(!m_state.serviceInterface.is(true), "service-interface", master ? critical : warning, !master,
	        std::string("the service interface ") + kServiceInterface + " has no carrier");
	addWhen(m_state.gatewayAnswers.is(false), "gateway", master ? critical : warning, !master,
	        "the gateway " + m_state.setting(key::kGatewayIP) + " does not answer: " +
	            (master ? "this node gives up the service" : "this node would not keep the service"));
}

void Checklist::unheardPartner()
{
	const Snapshot& snapshot = m_state.snapshot();
	const bool master = m_state.role.is(Role::master);
	const std::string since = m_state.heartbeat.at ? "no heartbeat for " + spanText(*m_state.age(m_state.heartbeat))
	                                               : "no heartbeat in the part of the log that was read";
	addFirst({{master && !m_state.otherHolder.empty(),
	           {"duplicate-address", critical, kBlocks,
	            "split-brain: the host " + m_state.otherHolder +
	                " has the virtual address too, and the partner does not answer: " + since}},
	          {!master && snapshot.fault(Fault::heartbeats).there,
	           {"partner-mute", critical, kBlocks,
	            "the partner's host answers pings but its agent sends no heartbeats (" + since +
	                "): this node does not take over while it answers"}},
	          {true,
	           {kPartnerSilent, warning, master,
	            "the partner does not answer: " + since +
	                (master ? ""
	                        : "; this node has counted " + std::to_string(snapshot.silences) +
	                              " of 3 missed heartbeats")}}});
}

void Checklist::partner()
{
	if (!m_state.partnerRole.known())
	{
		unheardPartner();
		return;
	}
	addWhen(m_state.role.is(Role::master) && m_state.partnerRole.is(Role::master), "two-masters", critical, kBlocks,
	        "both nodes are master");
	addWhen(m_state.role.is(Role::slave) && m_state.partnerRole.is(Role::slave), "no-master", critical, kBlocks,
	        "both nodes are standby: nobody serves");
	addWhen(m_state.partnerAsks.is(true), "partner-asks", warning, kBlocks,
	        "the partner asks: it has given up the service");
	addWhen(m_state.asking.is(true), "asks", warning, kBlocks,
	        "this node asks its partner: it has given up the service");
	addWhen(m_state.snapshot().fault(Fault::partnerPort).there && m_state.snapshot().refusals >= kRefusals,
	        "partner-refuses", warning, kBlocks,
	        "the partner does not accept this node's heartbeats: its receiver does not work, or a firewall is "
	        "between them");
}

void Checklist::master()
{
	if (const std::optional<Event>& takeOver = m_state.snapshot().takeOver)
	{
		add("taking-over", warning, kBlocks,
		    "this node is taking the service since " + spanText(*m_state.age(takeOver->time)));
		return;
	}
	const HeldAddress* const address = m_state.address.known() ? &*m_state.address.reported : nullptr;
	addWhen(address != nullptr && !address->held && otherHolder().empty(), "address-missing", critical, kHarmless,
	        "this node is master, but the virtual address " + m_state.setting(key::kVirtualIP) + " is not on it");
	addWhen(address != nullptr && address->held && !address->listed, "address-unlisted", warning, kHarmless,
	        "ifconfig, where the agent looks, does not list the virtual address: give it a label");
	addWhen(m_state.programs.known() && !m_state.programs.reported->run, "programs-missing", critical, kHarmless,
	        "this node is master, but its programs do not run");
}

void Checklist::standby()
{
	addWhen(m_state.address.known() && m_state.address.reported->held, "address-on-slave", critical, kHarmless,
	        "this node is standby, but the virtual address " + m_state.setting(key::kVirtualIP) + " is on it");
	if (!m_state.programs.known())
	{
		return;
	}
	const std::vector<ProgramCount>& programs = m_state.programs.reported->each;
	for (const ProgramCount& program : programs)
	{
		addWhen(program.executable == false, "program-file", warning, kBlocks,
		        program.path + " is not there or may not be executed");
	}
	addWhen(m_state.programs.reported->run && !programs.empty(), "programs-on-slave", warning, kHarmless,
	        "this node is standby, but its programs run: a take-over would kill them first");
}

std::string_view wordOf(Grade grade)
{
	constexpr std::array<std::string_view, 4> words{"ok", "warning", "critical", "unknown"};
	return words.at(static_cast<std::size_t>(grade));
}

std::string pluginWordOf(Grade grade)
{
	return Poco::toUpper(std::string(wordOf(grade)));
}

int rankOf(Grade grade)
{
	constexpr std::array<int, 4> ranks{0, 1, 3, 2};
	return ranks.at(static_cast<std::size_t>(grade));
}

std::vector<std::string> Judgement::reasons() const
{
	std::vector<std::string> texts;
	for (const Problem& problem : problems)
	{
		if (failOverWorks ? problem.blocks : problem.grade == Grade::unknown)
		{
			texts.push_back(problem.text);
		}
	}
	return texts;
}

Judgement judge(const NodeState& state)
{
	Checklist list(state);
	list.agent();
	list.sources();
	list.log();
	list.flapping();
	list.start();
	list.keeper();
	list.tunnel();
	if (state.role.known())
	{
		list.workers();
		list.interfaces();
		list.partner();
		state.role.is(Role::master) ? list.master() : list.standby();
	}
	Judgement judgement;
	judgement.problems = std::move(list).problems();
	const auto is = [&](const auto& test) { return std::ranges::any_of(judgement.problems, test); };
	if (is([](const Problem& problem) { return problem.blocks; }))
	{
		judgement.failOverWorks = false;
	}
	else if (!is([](const Problem& problem) { return problem.grade == Grade::unknown; }))
	{
		judgement.failOverWorks = true;
	}
	return judgement;
}

} // namespace velarix::ctl
