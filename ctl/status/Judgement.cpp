#include "ctl/status/Judgement.h"

#include "inspect/Names.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using enum Grade;

/// Whether a failover to or from this node would not work.
constexpr bool kBlocks = true;
constexpr bool kHarmless = false;

/// Free space below which the log's disk is nearly full: about a day of an idle
/// node's log; and below which it is as good as full.
constexpr std::uintmax_t kMegabyte = 1000UL * 1000UL;
constexpr std::uintmax_t kLittleSpace = 120 * kMegabyte;
constexpr std::uintmax_t kNoSpace = 1 * kMegabyte;
/// A partner that is just between two passes refuses once or twice.
constexpr int kRefusals = 3;
constexpr int kFailedStarts = 2;
/// A split-brain of the address is reported for so long after its last conflict. The keeper
/// asks once a second.
constexpr std::chrono::seconds kConflict{15};

/// The single questions, by what they are about.
class Checklist
{
public:
	explicit Checklist(const NodeState& state) : m_state(state) {}

	std::vector<Problem> problems() &&
	{
		agent();
		sources();
		log();
		keeper();
		tunnel();
		if (m_state.role.known())
		{
			workers();
			interfaces();
			m_state.partnerRole.known() ? partner() : unheardPartner();
			m_master ? master() : standby();
		}
		return std::move(m_problems);
	}

private:
	const NodeState& m_state;
	const Snapshot& m_snapshot = m_state.snapshot();
	const bool m_master = m_state.role.is(Role::master);
	std::vector<Problem> m_problems;

	void addWhen(bool is, std::string_view id, Grade grade, bool blocks, const std::string& text)
	{
		if (is)
		{
			m_problems.push_back({id, grade, blocks, text});
		}
	}

	/// Adds the first one that there is.
	void addFirst(std::initializer_list<std::pair<bool, Problem>> problems)
	{
		const auto* const first = std::ranges::find(problems, true, &std::pair<bool, Problem>::first);
		if (first != problems.end())
		{
			m_problems.push_back(first->second);
		}
	}

	/// @return whether somebody works on the node, who knows that the agent does nothing
	bool maintenance()
	{
		addWhen(!m_state.maintenanceProblem.empty(), "maintenance-unreadable", warning, kHarmless,
		        m_state.maintenanceProblem);
		if (!m_state.maintenance)
		{
			return false;
		}
		const std::string words = m_state.maintenance->words();
		const bool left = m_state.agent.state == AgentState::running;
		const bool forgotten = m_state.now > m_state.maintenance->until;
		addFirst({{left,
		           {"maintenance-left", warning, kHarmless,
		            "the agent was continued by hand in the maintenance " + words +
		                "; end that with velarixctl maintenance off"}},
		          {forgotten,
		           {"maintenance-forgotten", critical, kBlocks,
		            "MAINTENANCE " + words + ": its time has passed, and the service is still not watched"}},
		          {true,
		           {"maintenance", warning, kBlocks,
		            "MAINTENANCE " + words + ": nothing fails over and nothing is restarted"}}});
		return !left;
	}

	/// The agent's process.
	void agent()
	{
		if (maintenance())
		{
			return;
		}
		const Agent& agent = m_state.agent;
		const bool dead = agent.state == AgentState::dead || agent.state == AgentState::otherProgram;
		addFirst({{agent.state == AgentState::frozen,
		           {"agent-frozen", critical, kBlocks, "the agent is frozen: " + agent.text}},
		          {dead,
		           {"agent-dead", critical, kBlocks,
		            "the agent is dead: " + agent.text + "; the programs and the address are as it left them"}},
		          {agent.state == AgentState::noPidFile,
		           {"agent-not-running", critical, kBlocks, "the agent does not run: " + agent.text}},
		          {agent.state == AgentState::notKnown, {"agent-not-known", unknown, kHarmless, agent.text}}});
		addWhen(!agent.console.empty(), "agent-console", warning, kHarmless,
		        "the agent echoes its log to " + agent.console +
		            ": when nobody reads it, receiver and sender stop; start it with its output in /dev/null");
		addWhen(agent.foreign > 0, "foreign-agent", warning, kHarmless,
		        "an agent runs as process " + std::to_string(agent.foreign) +
		            ", which the pid file does not name (a new agent writes it two seconds after its start)");
	}

	/// Settings and log: whether anything is known.
	void sources()
	{
		const bool watched = m_state.agent.state == AgentState::running;
		const char* advice = m_state.settingsCode == ExitCode::noPermission ? "; run it as root" : "";
		addFirst(
		    {{!m_state.settings, {"settings-unreadable", unknown, kHarmless, m_state.settingsProblem + advice}},
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

	/// The log's own soundness, and what it reported whether it is fresh or not.
	void log()
	{
		addWhen(m_state.logBegunAhead.has_value(), "log-begun-ahead", warning, kHarmless,
		        "the log was begun while the clock was ahead, at " +
		            localText(m_state.logBegunAhead.value_or(m_state.now)) +
		            ": it is not rotated until a day after that; move it aside and restart the agent");
		const std::uintmax_t space = m_state.logSpace.known() ? *m_state.logSpace.reported : kLittleSpace;
		addWhen(space < kLittleSpace, "log-disk", space < kNoSpace ? critical : warning, space < kNoSpace,
		        "the disk of the log has " + std::to_string(space / kMegabyte) +
		            " MB left: when it is full, the agent's workers end");
		// The pair does not come to rest, whatever each single moment looks like.
		const auto recent = std::ranges::count_if(m_snapshot.roleChanges,
		                                          [this](Instant time) { return time > m_state.now - kFlapping; });
		addWhen(recent >= kFlappingChanges, "flapping", critical, kHarmless,
		        "the service comes and goes: the role changed " + std::to_string(recent) + " times in five minutes");
		// The receiver does nothing else then, so that the log soon no longer tells the role.
		const int failed = m_snapshot.failedStarts;
		addWhen(m_state.agent.lives() && otherHolder().empty() && m_snapshot.takeOver && failed >= kFailedStarts,
		        "start-fails", critical, kBlocks,
		        "the virtual address cannot be raised: its start has failed " + std::to_string(failed) +
		            " times in a row; velarixctl events shows what the command printed");
	}

	/// Without the marker ha-address waits only as long as the agent's start command runs, and
	/// the log has what that printed: "ADDRESS is held by HOLDER since TIME".
	/// @return the hardware address of the host that has the virtual address instead of this
	///         node; empty for none
	std::string otherHolder() const
	{
		if (!m_state.keeper || m_state.keeper->address.waits())
		{
			return m_state.keeper ? m_state.keeper->address.holder : "";
		}
		static const Pattern held(" is held by ([^ ]*)");
		const Pattern::Groups found = held.found(m_snapshot.startOutput);
		return m_snapshot.takeOver && m_snapshot.failedStarts > 0 && !found.empty() ? found[1] : "";
	}

	/// What the keeper sees, which holds the address and runs the services.
	void keeper()
	{
		if (!m_state.keeper)
		{
			return;
		}
		address(m_state.keeper->address);
		for (const KeeperProgram& service : m_state.keeper->services)
		{
			addFirst({{service.state == "failed",
			           {"service-failed", warning, kBlocks,
			            service.name + " died too often on this node: " + service.reason +
			                "; when it is repaired, clear this with rm /run/velarix-ha/" + service.name + ".state"}},
			          {service.state == "restarting" || service.check.starts_with("failed"),
			           {"service-unwell", warning, kHarmless,
			            service.name + " is " + service.state + ", its last check " + service.check +
			                (service.reason.empty() ? "" : "; it died last: " + service.reason)}}});
		}
		if (m_state.keeper->reach)
		{
			reachability(*m_state.keeper->reach);
		}
		addWhen(m_state.agent.lives() && !m_state.keeper->marked, "marker-missing", warning, kHarmless,
		        "the marker of the virtual address is missing: the next take-over sets it again, or keeper mark");
	}

	/// Whose the other holder is nobody can tell. A partner that is not heard is the likely
	/// one; one that says it is standby is not.
	void address(const KeeperProgram& address)
	{
		const std::string holder = otherHolder();
		const std::string span = address.since ? " for " + spanText(*m_state.age(address.since)) : "";
		addFirst({{!holder.empty() && m_state.partnerRole.is(Role::slave),
		           {"address-taken", critical, kBlocks,
		            "another host, " + holder + ", holds the virtual address" + span +
		                ", and the partner does not: find it in the switch"}},
		          {!holder.empty(),
		           {kAddressWithPartner, warning, kHarmless,
		            "the network between the nodes is cut: the partner (" + holder + ") holds the address and serves" +
		                span + "; nothing to do here but to repair that network"}},
		          {address.lastConflict && m_state.now - *address.lastConflict < kConflict,
		           {"address-conflict", critical, kHarmless,
		            "split-brain: another host holds the virtual address, too; conflicts so far: " +
		                std::to_string(address.conflicts)}}});
	}

	void reachability(const KeeperProgram& reach)
	{
		std::string lost;
		for (const keeper::TargetState& target : reach.targets)
		{
			lost += target.state == "lost" ? (lost.empty() ? "" : ", ") + target.address : "";
		}
		// A master may be moved away from them.
		const bool blocks = m_state.role.is(Role::slave);
		addFirst({{!reach.runs || reach.state == "frozen",
		           {"reach-stopped", critical, blocks,
		            std::string("ha-reach ") + (reach.runs ? "is frozen" : "does not run") +
		                ": the gateway address is missing, and this node cannot keep the service; systemctl restart "
		                "velarix-reach"}},
		          {reach.state == "isolated",
		           {"reach-isolated", critical, blocks,
		            "this node is isolated: neither its targets (" + lost + ") nor the partner's keeper answer"}},
		          {reach.state == "partner-only",
		           {"reach-partner-only", warning, blocks,
		            "only the partner reaches its targets; here do not answer: " + lost}},
		          {reach.state == "shared-outage",
		           {"reach-shared-outage", warning, kHarmless,
		            "neither node reaches its targets, nothing moves; here do not answer: " + lost}},
		          {!lost.empty(), {"target-lost", warning, kHarmless, "reachability targets do not answer: " + lost}}});
		addWhen(reach.partner == "silent" && reach.state == "reachable" && m_state.partnerRole.known(), "reach-partner",
		        warning, kHarmless,
		        "the partner's ha-reach does not answer: it does not run, has another key, or a firewall drops UDP; "
		        "when this node loses its targets it gives up");
	}

	/// The way of the heartbeats, where it is a tunnel.
	void tunnel()
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

	void workers()
	{
		// The agent makes its workers two seconds after its start.
		constexpr std::chrono::seconds begin{10};
		const bool made = !m_state.agent.since || m_state.now - *m_state.agent.since >= begin;
		const Milliseconds silent = m_state.age(m_snapshot.lastOfReceiver).value_or(Milliseconds(0));
		addFirst(
		    {{m_state.agent.threads < kAgentThreads && made,
		      {"thread-lost", critical, kBlocks,
		       "the agent has " + std::to_string(m_state.agent.threads) + " threads instead of " +
		           std::to_string(kAgentThreads) + ": a worker has ended, restart the agent"}},
		     {!m_snapshot.takeOver && silent > m_state.timing.receiverPause(),
		      {"receiver-stuck", critical, kBlocks,
		       "the receiver has logged nothing for " + spanText(silent) + ": a command or ping of it does not end"}}});
	}

	void interfaces()
	{
		addWhen(!m_state.communicationInterface.is(true), "communication-interface", warning, kBlocks,
		        std::string("the communication interface ") + kCommunicationInterface + " has no carrier");
		// A master without it gives up by itself: a failover at work.
		addWhen(!m_state.serviceInterface.is(true), "service-interface", m_master ? critical : warning, !m_master,
		        std::string("the service interface ") + kServiceInterface + " has no carrier");
		addWhen(m_state.gatewayAnswers.is(false), "gateway", m_master ? critical : warning, !m_master,
		        "the gateway " + m_state.setting(key::kGatewayIP) + " does not answer: " +
		            (m_master ? "this node gives up the service" : "this node would not keep the service"));
	}

	void unheardPartner()
	{
		const std::string since = m_state.heartbeat.at ? "no heartbeat for " + spanText(*m_state.age(m_state.heartbeat))
		                                               : "no heartbeat in the part of the log that was read";
		const std::string counted =
		    m_master ? ""
		             : "; this node has counted " + std::to_string(m_snapshot.silences) + " of 3 missed heartbeats";
		addFirst({{m_master && !m_state.otherHolder.empty(),
		           {"duplicate-address", critical, kBlocks,
		            "split-brain: the host " + m_state.otherHolder +
		                " has the virtual address too, and the partner does not answer: " + since}},
		          {!m_master && m_snapshot.fault(Fault::heartbeats).there,
		           {"partner-mute", critical, kBlocks,
		            "the partner's host answers pings but its agent sends no heartbeats (" + since +
		                "): this node does not take over while it answers"}},
		          {true, {kPartnerSilent, warning, m_master, "the partner does not answer: " + since + counted}}});
	}

	void partner()
	{
		addWhen(m_master && m_state.partnerRole.is(Role::master), "two-masters", critical, kBlocks,
		        "both nodes are master");
		addWhen(!m_master && m_state.partnerRole.is(Role::slave), "no-master", critical, kBlocks,
		        "both nodes are standby: nobody serves");
		addWhen(m_state.isAsked(), "partner-asks", warning, kBlocks, "the partner asks: it has given up the service");
		addWhen(m_state.asks(), "asks", warning, kBlocks, "this node asks its partner: it has given up the service");
		addWhen(m_snapshot.fault(Fault::partnerPort).there && m_snapshot.refusals >= kRefusals, "partner-refuses",
		        warning, kBlocks,
		        "the partner does not accept this node's heartbeats: its receiver does not work, or a firewall is "
		        "between them");
	}

	void master()
	{
		if (m_snapshot.takeOver)
		{
			addWhen(true, "taking-over", warning, kBlocks,
			        "this node is taking the service since " + spanText(*m_state.age(m_snapshot.takeOver->time)));
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

	void standby()
	{
		addWhen(m_state.address.known() && m_state.address.reported->held, "address-on-slave", critical, kHarmless,
		        "this node is standby, but the virtual address " + m_state.setting(key::kVirtualIP) + " is on it");
		const Programs programs = m_state.programs.known() ? *m_state.programs.reported : Programs{};
		for (const ProgramCount& program : programs.each)
		{
			addWhen(program.executable == false, "program-file", warning, kBlocks,
			        program.path + " is not there or may not be executed");
		}
		addWhen(programs.run && !programs.each.empty(), "programs-on-slave", warning, kHarmless,
		        "this node is standby, but its programs run: a take-over would kill them first");
	}
};

} // namespace

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
	Judgement judgement{Checklist(state).problems(), std::nullopt};
	const bool blocked = std::ranges::any_of(judgement.problems, &Problem::blocks);
	if (blocked || std::ranges::find(judgement.problems, unknown, &Problem::grade) == judgement.problems.end())
	{
		judgement.failOverWorks = !blocked;
	}
	return judgement;
}

} // namespace velarix::ctl
