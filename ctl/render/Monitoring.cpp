// A node's state as Prometheus metrics and as the line of a monitoring plug-in.

#include <set>

#include <Poco/NumberFormatter.h>
#include <Poco/String.h>

#include "ctl/render/StateViews.h"
#include "inspect/Names.h"
#include "inspect/Printable.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

std::optional<double> epoch(const std::optional<Instant>& time)
{
	return time ? std::optional(inSeconds(*time)) : std::nullopt;
}

template <typename Value> std::optional<double> known(const Figure<Value>& figure)
{
	return figure.known() ? std::optional(static_cast<double>(*figure.reported)) : std::nullopt;
}

void addRoles(Exposition& out, std::string_view name, std::string_view help, const Figure<Role>& role)
{
	out.gauge(name, help);
	for (const Role each : {Role::master, Role::slave})
	{
		out.sample(role.is(each), {{"role", wordOf(each)}});
	}
}

void addInfo(Exposition& out, const NodeState& state)
{
	const std::string configured = state.setting(key::kMode) == "1" ? "master" : "slave";
	out.gauge("info", "What this node is, in its labels; always 1.");
	out.sample(true, {{"version", VELARIX_VERSION},
	                  {"configured_role", state.settings ? configured : ""},
	                  {"address", printable(state.setting(key::kThisServerIP))},
	                  {"partner", printable(state.setting(key::kPartnerIP))},
	                  {"virtual_ip", printable(state.setting(key::kVirtualIP))}});
}

void addAgent(Exposition& out, const NodeState& state)
{
	const Agent& agent = state.agent;
	if (agent.state != AgentState::notKnown)
	{
		out.single("agent_up", "Whether the agent of the pid file runs.", agent.state == AgentState::running);
	}
	out.single("maintenance", "Whether an administrator has put this node into maintenance.",
	           state.maintenance.has_value());
	out.single("agent_start_time_seconds", "When the agent was started.", epoch(agent.since));
	if (agent.lives())
	{
		out.single("agent_threads", "Threads of the agent; four are right.", agent.threads);
	}
	out.single("log_last_message_timestamp_seconds", "When the log's last message was written.",
	           epoch(state.snapshot().lastMessage));
	out.single("log_free_bytes", "Free space on the disk of the log.", known(state.logSpace));
	out.single("log_trusted", "Whether the log tells how the node is now.", state.distrust.empty());
}

void addPair(Exposition& out, const NodeState& state)
{
	addRoles(out, "role", "The role of this node; both 0 when it is not known.", state.role);
	addRoles(out, "partner_role", "The role in the partner's heartbeats; both 0 when it is not heard.",
	         state.partnerRole);
	out.single("partner_last_heartbeat_timestamp_seconds", "When the partner's last heartbeat came in.",
	           epoch(state.heartbeat.at));
	out.single("last_heartbeat_sent_timestamp_seconds", "When this node's last heartbeat went out.",
	           epoch(state.sent.at));
	out.single("partner_programs_running", "Whether the programs run on the partner.", known(state.partnerRuns));
	out.single("partner_asking", "Whether the partner asks this node to take the service.", known(state.partnerAsks));
	out.single("asking", "Whether this node asks its partner to take the service.", known(state.asking));
	out.single("network_ok", "This node's own verdict on its network.", known(state.networkOk));
}

void addPrograms(Exposition& out, const NodeState& state)
{
	if (!state.programs.known())
	{
		return;
	}
	const Programs& programs = *state.programs.reported;
	out.single("programs_configured", "Managed programs in the settings.", static_cast<double>(programs.each.size()));
	out.single("programs_running", "Whether the programs run, by the agent's count.", programs.run);
	out.gauge("program_processes", "Processes whose name contains that of a managed program.");
	std::set<std::string> reported;
	for (const ProgramCount& program : programs.each)
	{
		// Programs of one name have the same processes, and one sample.
		if (reported.insert(program.name).second)
		{
			out.sample(program.processes, {{"program", printable(program.name)}});
		}
	}
}

void addReach(Exposition& out, const KeeperProgram& reach)
{
	out.gauge("keeper_reachability_state", "Whether this node reaches its targets, in the label; always 1.");
	out.sample(true, {{"state", printable(reach.state)}});
	out.gauge("keeper_target_answers", "Whether a reachability target answers pings.");
	for (const keeper::TargetState& target : reach.targets)
	{
		out.sample(target.state == "answers", {{"target", printable(target.address)}});
	}
}

void addKeeper(Exposition& out, const NodeState& state)
{
	if (!state.keeper)
	{
		return;
	}
	const KeeperProgram& address = state.keeper->address;
	out.gauge("keeper_address_state", "The state of the virtual address to the keeper, in the label; always 1.");
	out.sample(true, {{"state", printable(address.state)}});
	out.single("keeper_address_conflicts", "Claims of other hosts while this node held the address.",
	           address.conflicts);
	out.single("keeper_marker", "Whether the marker of the address is there.", state.keeper->marked);
	out.gauge("keeper_service_state", "The state of a service to the keeper, in the label; always 1.");
	for (const KeeperProgram& service : state.keeper->services)
	{
		out.sample(true, {{"service", printable(service.name)}, {"state", printable(service.state)}});
	}
	out.gauge("keeper_service_restarts", "Restarts of a service since the start of its supervisor.");
	for (const KeeperProgram& service : state.keeper->services)
	{
		out.sample(service.restarts, {{"service", printable(service.name)}});
	}
	if (state.keeper->reach)
	{
		addReach(out, *state.keeper->reach);
	}
}

void addTunnel(Exposition& out, const NodeState& state)
{
	if (!state.tunnel)
	{
		return;
	}
	out.single("tunnel_down", "Whether the partner answers beside the tunnel of the heartbeats and not in it.",
	           state.tunnel->down || !state.tunnel->present);
	if (const std::optional<host::TunnelSession>& session = state.tunnel->session)
	{
		out.single("tunnel_last_handshake_timestamp_seconds", "When the tunnel's last handshake was.",
		           epoch(session->handshake));
		out.single("tunnel_received_bytes", "Received in the tunnel since it is up.",
		           static_cast<double>(session->received));
		out.single("tunnel_sent_bytes", "Sent in the tunnel since it is up.", static_cast<double>(session->sent));
	}
}

void addKernel(Exposition& out, const NodeState& state)
{
	addPrograms(out, state);
	addKeeper(out, state);
	if (state.address.known())
	{
		out.single("virtual_ip_held", "Whether the virtual address is on this node.", state.address.reported->held);
	}
	out.gauge("interface_carrier", "Whether an interface has carrier; left out for one that is not there or down.");
	for (const auto& [name, use, interface] :
	     {std::tuple(kServiceInterface, "service", &state.serviceInterface),
	      std::tuple(kCommunicationInterface, "communication", &state.communicationInterface)})
	{
		if (interface->known())
		{
			out.sample(*interface->reported, {{"interface", name}, {"use", use}});
		}
	}
	addTunnel(out, state);
	out.single("gateway_reachable", "Whether the gateway answers a ping.", known(state.gatewayAnswers));
}

void addFaults(Exposition& out, const NodeState& state)
{
	if (!state.distrust.empty())
	{
		return;
	}
	out.gauge("fault", "What the agent found wrong and not yet right again.");
	for (std::size_t number = 0; number < kFaults; ++number)
	{
		const auto fault = static_cast<Fault>(number);
		out.sample(state.snapshot().fault(fault).there, {{"fault", wordOf(fault)}});
	}
}

void addJudgement(Exposition& out, const Judgement& judgement)
{
	out.single("fail_over_ready", "Whether a failover would work now.", judgement.failOverWorks);
	out.gauge("problem", "What velarixctl status finds wrong now; 1 for each.");
	// Two samples with the same labels make the whole text unreadable.
	std::set<std::string_view> reported;
	for (const Problem& problem : judgement.problems)
	{
		if (reported.insert(problem.id).second)
		{
			out.sample(true, {{"problem", problem.id}, {"severity", wordOf(problem.grade)}});
		}
	}
}

/// Worst first. The age of the last heartbeat is judged by the limits alone.
std::vector<Problem> remarks(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits)
{
	std::vector<Problem> all = judgement.problems;
	if (state.heartbeat.known())
	{
		std::erase_if(all, [](const Problem& problem) { return problem.id == kPartnerSilent; });
		const Milliseconds age = *state.age(state.heartbeat);
		const bool serves = std::ranges::find(all, kAddressWithPartner, &Problem::id) != all.end();
		if (inSeconds(age) >= limits.warning)
		{
			all.push_back({kPartnerSilent,
			               inSeconds(age) >= limits.critical && !serves ? Grade::critical : Grade::warning, false,
			               "the partner's last heartbeat is " + spanText(age) + " old"});
		}
	}
	std::ranges::stable_sort(all, std::greater(), [](const Problem& one) { return rankOf(one.grade); });
	return all;
}

std::string fineText(const NodeState& state, const Judgement& judgement)
{
	// A partner that has missed heartbeats within the limits is not yet a problem, and
	// whether it could take the service is not said.
	const std::string partner = state.partnerRole.known()
	                                ? std::string(textOf(*state.partnerRole.reported))
	                                : "last heard " + spanText(*state.age(state.heartbeat)) + " ago";
	return std::string(textOf(*state.role.reported)) + ", partner " + state.setting(key::kPartnerIP) + " " + partner +
	       (judgement.failOverWorks == true ? ", a failover would work" : "");
}

std::string performance(const NodeState& state, const NagiosLimits& limits)
{
	std::string text;
	const auto add = [&](const std::string& figure) { text += (text.empty() ? "|" : " ") + figure; };
	const auto format = [](double value) { return Poco::NumberFormatter::format(value); };
	if (state.heartbeat.known())
	{
		add("heartbeat_age=" + format(inSeconds(*state.age(state.heartbeat))) + "s;" + format(limits.warning) + ";" +
		    format(limits.critical) + ";0");
	}
	if (const std::optional<Milliseconds> age = state.age(state.snapshot().lastMessage))
	{
		add("log_age=" + format(inSeconds(*age)) + "s;" + format(inSeconds(state.timing.logPause())) + ";;0");
	}
	if (state.agent.lives())
	{
		add("threads=" + std::to_string(state.agent.threads) + ";;" + std::to_string(kAgentThreads) + ":;0");
	}
	if (state.programs.known())
	{
		add("processes=" + std::to_string(state.programs.reported->processes) + ";;;0");
	}
	if (state.address.known())
	{
		add("address=" + std::string(state.address.reported->held ? "1" : "0") + ";;;0;1");
	}
	return text;
}

} // namespace

std::string metricsText(const NodeState& state, const Judgement& judgement, const Counters& counters)
{
	Exposition out;
	addInfo(out, state);
	addAgent(out, state);
	addPair(out, state);
	out.single("last_role_change_timestamp_seconds", "When the role changed last.",
	           epoch(state.lastChange.event ? state.lastChange.event->time : counters.roleChanged));
	addKernel(out, state);
	addFaults(out, state);
	addJudgement(out, judgement);
	writeCounters(out, counters);
	return out.text();
}

std::string pluginWordOf(Grade grade)
{
	return Poco::toUpper(std::string(wordOf(grade)));
}

std::string pluginLine(Grade grade, const std::vector<std::string>& texts)
{
	std::string text =
	    "VELARIX " + pluginWordOf(grade) + " - " + Poco::cat(std::string("; "), texts.begin(), texts.end());
	std::ranges::replace(text, '|', '/');
	std::ranges::replace(text, '\n', ' ');
	return printable(text);
}

NagiosLine nagiosLine(const NodeState& state, const Judgement& judgement, const NagiosLimits& limits)
{
	const std::vector<Problem> all = remarks(state, judgement, limits);
	std::vector<std::string> texts;
	std::ranges::transform(all, std::back_inserter(texts), &Problem::text);
	if (all.empty())
	{
		texts.push_back(fineText(state, judgement));
	}
	const Grade worst = all.empty() ? Grade::ok : all.front().grade;
	return {worst, pluginLine(worst, texts) + performance(state, limits)};
}

} // namespace velarix::ctl
