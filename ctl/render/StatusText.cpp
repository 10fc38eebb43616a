#include "ctl/render/StateViews.h"

#include "inspect/Names.h"
#include "inspect/Printable.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

constexpr std::size_t kLabelWidth = 13;

/// Colours of a terminal.
constexpr std::string_view kPlain;
constexpr std::string_view kGood = "\033[32m";
constexpr std::string_view kDoubtful = "\033[33m";
constexpr std::string_view kBad = "\033[31m";

struct Rows
{
	bool colours;
	std::string all{};

	/// Names of processes and values of settings may hold anything, and a terminal
	/// obeys it.
	void add(const std::string& label, const std::string& text, std::string_view colour = kPlain)
	{
		const bool paints = colours && !colour.empty();
		all += label + std::string(kLabelWidth - label.size(), ' ') + std::string(paints ? colour : "") +
		       printable(text) + (paints ? "\033[0m\n" : "\n");
	}
};

/// "  [0.4 s]"; what was looked at just now has "[now]".
std::string ageMark(const NodeState& state, const std::optional<Instant>& at)
{
	const std::optional<Milliseconds> age = state.age(at);
	if (!age)
	{
		return {};
	}
	return "  [" + (*age == Milliseconds(0) ? "now" : spanText(*age)) + "]";
}

/// The figure in words with its age, or why it is not known and what was reported
/// last. The reason that all figures of the log share stands in the rows of role
/// and log alone.
template <typename Value, typename Say>
std::string words(const NodeState& state, const Figure<Value>& figure, const Say& say, bool shareReason = true)
{
	if (figure.known())
	{
		return say(*figure.reported) + ageMark(state, figure.at);
	}
	const bool shared = shareReason && figure.why == state.distrust;
	const std::string last =
	    figure.reported ? "; reported last: " + say(*figure.reported) + ageMark(state, figure.at) : std::string();
	return "not known" + (shared ? "" : ": " + figure.why) + last;
}

/// The setting with a blank behind it; empty without it.
std::string named(const NodeState& state, const char* name)
{
	const std::string text = state.setting(name);
	return text.empty() ? text : text + " ";
}

std::string yesOrNo(const NodeState& state, const Figure<bool>& figure, const std::string& yes, const std::string& no)
{
	return words(state, figure, [&](bool is) { return is ? yes : no; });
}

void addAgent(Rows& rows, const NodeState& state)
{
	const Agent& agent = state.agent;
	const std::string life = agent.since ? spanText(*state.age(agent.since)) : std::string();
	if (agent.state == AgentState::running)
	{
		rows.add("agent",
		         "runs as process " + std::to_string(agent.pid) + ", " + std::to_string(agent.threads) + " threads" +
		             (agent.since ? ", for " + life : std::string()) + ageMark(state, state.now),
		         agent.threads < kAgentThreads ? kBad : kGood);
		return;
	}
	const bool frozen = agent.state == AgentState::frozen;
	if (frozen && state.maintenance)
	{
		rows.add("agent", "MAINTENANCE " + state.maintenance->words(), kDoubtful);
		return;
	}
	static constexpr std::array heads{"", "FROZEN: ", "DEAD: ", "DEAD: ", "DOES NOT RUN: ", "not known: "};
	rows.add("agent",
	         heads.at(static_cast<std::size_t>(agent.state)) + agent.text +
	             (frozen && agent.since ? "; started " + life + " ago" : ""),
	         agent.state == AgentState::notKnown ? kDoubtful : kBad);
}

void addRole(Rows& rows, const NodeState& state)
{
	const std::string since =
	    state.role.known() && state.role.since ? ", for " + spanText(*state.age(state.role.since)) : std::string();
	const std::string text = words(
	    state, state.role, [&](Role role) { return std::string(textOf(role)) + since; }, false);
	rows.add("role", text, state.role.known() ? kGood : kDoubtful);
	// A standby's agent looks at no carrier.
	const bool cut = state.serviceInterface.is(false) || state.communicationInterface.is(false);
	rows.add("own network", yesOrNo(state, state.networkOk,
	                                cut ? "judged OK by the agent, although an interface has NO carrier" : "judged OK",
	                                "judged NOT OK"));
	rows.add("ask", yesOrNo(state, state.asking,
	                        state.asks() ? "PENDING: the partner is asked to take the service"
	                                     : "left from an earlier failover: without effect on a master",
	                        "none pending"));
}

std::string partnerWords(const Heartbeat& heartbeat)
{
	const char* stopped =
	    heartbeat.master ? ", its programs do NOT run" : ", its programs are stopped, as they should be";
	return std::string(textOf(heartbeat.master ? Role::master : Role::slave)) +
	       (heartbeat.running ? ", its programs run" : stopped) +
	       (heartbeat.asking && !heartbeat.master ? ", ASKS for a take-over" : "");
}

void addPartner(Rows& rows, const NodeState& state)
{
	Figure<Heartbeat> partner = state.heartbeat;
	if (partner.known())
	{
		partner.why = state.partnerRole.why;
	}
	rows.add("partner", named(state, key::kPartnerIP) + words(state, partner, partnerWords),
	         partner.known() ? kGood : kDoubtful);
	const auto ago = [&](const Figure<Heartbeat>& beat, const char* what)
	{ return beat.at ? what + (" " + spanText(*state.age(beat))) + " ago" : "none " + std::string(what); };
	rows.add("heartbeats", ago(state.heartbeat, "received") + ", " + ago(state.sent, "sent"));
}

std::string programWords(const Programs& programs)
{
	std::string text =
	    std::to_string(programs.each.size()) + " configured, " + (programs.run ? "running" : "not running");
	const char* separator = ": ";
	for (const ProgramCount& program : programs.each)
	{
		text += separator + program.name + " (" + std::to_string(program.processes) +
		        (program.processes == 1 ? " process)" : " processes)");
		separator = ", ";
	}
	return text;
}

std::string addressWords(const NodeState& state, const HeldAddress& address)
{
	const std::string name = state.setting(key::kVirtualIP);
	if (!address.held)
	{
		return name + " is not on this node";
	}
	return name + "/" + std::to_string(address.prefix) + " is on " + address.interface +
	       (address.label == address.interface ? "" : " as " + address.label);
}

/// ", for 3 min 4 s"; empty without a time.
std::string spanOf(const NodeState& state, const KeeperProgram& program)
{
	return program.since ? ", for " + spanText(*state.age(program.since)) : "";
}

/// Without its time.
std::string addressSentence(const KeeperProgram& address)
{
	const std::string& state = address.state;
	return state == "yielded"      ? "gave the address up to " + address.holder
	       : state == "waiting"    ? "waits for the address, held by " + address.holder
	       : state == "rechecking" ? "holds the address, asks whether another host holds it as well"
	       : state == "holding" || state == "announcing" ? "holds the address"
	       : state == "stopped"                          ? "does not hold the address"
	                                                     : "does not hold the address: " + state;
}

void addKeeper(Rows& rows, const NodeState& state)
{
	if (!state.keeper)
	{
		return;
	}
	const KeeperProgram& address = state.keeper->address;
	rows.add("keeper", addressSentence(address) + spanOf(state, address), address.waits() ? kDoubtful : kPlain);
	for (const KeeperProgram& service : state.keeper->services)
	{
		std::string text = service.name + " " + service.state + spanOf(state, service);
		if (service.runs)
		{
			text += ", restarts " + std::to_string(service.restarts) + ", last check " + service.check;
		}
		rows.add("", text, service.state == "failed" ? kBad : kPlain);
	}
}

void addTunnel(Rows& rows, const NodeState& state)
{
	if (!state.tunnel)
	{
		return;
	}
	const std::optional<host::TunnelSession>& session = state.tunnel->session;
	std::string text = "not known: " + state.tunnel->why;
	if (session)
	{
		text = (session->handshake ? "last handshake " + spanText(*state.age(session->handshake)) + " ago"
		                           : "no handshake") +
		       ", " + std::to_string(session->received) + " bytes received, " + std::to_string(session->sent) + " sent";
	}
	rows.add("tunnel", text, state.tunnel->down || !state.tunnel->present ? kBad : kPlain);
}

void addReach(Rows& rows, const NodeState& state)
{
	if (!state.keeper || !state.keeper->reach)
	{
		return;
	}
	const KeeperProgram& reach = *state.keeper->reach;
	rows.add("reachability",
	         reach.state + spanOf(state, reach) + (reach.partner.empty() ? "" : ", partner " + reach.partner));
	for (const keeper::TargetState& target : reach.targets)
	{
		const Instant since(std::chrono::seconds(target.since));
		rows.add("",
		         target.address + (target.state == "lost" ? " does NOT answer" : " " + target.state) + ", for " +
		             spanText(*state.age(since)),
		         target.state == "lost" ? kDoubtful : kPlain);
	}
}

void addKernel(Rows& rows, const NodeState& state)
{
	rows.add("programs", words(state, state.programs, programWords));
	rows.add("address",
	         words(state, state.address, [&](const HeldAddress& address) { return addressWords(state, address); }));
	addKeeper(rows, state);
	const auto carrier = [&](const Figure<bool>& interface)
	{ return yesOrNo(state, interface, "carrier", "NO carrier"); };
	rows.add("interfaces", std::string(kServiceInterface) + " (service) " + carrier(state.serviceInterface) + ", " +
	                           kCommunicationInterface + " (communication) " + carrier(state.communicationInterface));
	addTunnel(rows, state);
	addReach(rows, state);
	rows.add("gateway",
	         named(state, key::kGatewayIP) + yesOrNo(state, state.gatewayAnswers, "answers", "does NOT answer"));
}

void addChange(Rows& rows, const NodeState& state)
{
	const LastChange& change = state.lastChange;
	std::string text = "not known: the log does not tell";
	if (change.event)
	{
		text = localText(change.event->time) + " " + describe(*change.event) + ageMark(state, change.event->time);
	}
	else if (change.searchedTo)
	{
		text = "none since " + localText(*change.searchedTo) + ", as far back as the log was read";
	}
	rows.add("last change", text);
}

void addLog(Rows& rows, const NodeState& state)
{
	const std::optional<Instant>& last = state.snapshot().lastMessage;
	rows.add("log",
	         state.tail.problem.empty() ? state.log.string() + ", last line" + ageMark(state, last)
	                                    : state.tail.problem,
	         state.distrust.empty() ? kPlain : kDoubtful);
}

void addJudgement(Rows& rows, const NodeState& state, const Judgement& judgement)
{
	// The partner itself may know better: velarixctl pair asks it.
	const std::string heard = state.role.is(Role::master) ? ", as far as the partner's heartbeats tell" : "";
	if (!judgement.failOverWorks)
	{
		rows.add("failover", "not known whether it would work", kDoubtful);
	}
	else
	{
		rows.add("failover", *judgement.failOverWorks ? "would work now" + heard : "would NOT work now",
		         *judgement.failOverWorks ? kGood : kBad);
	}
	for (const Problem& problem : judgement.problems)
	{
		rows.add("", std::string(wordOf(problem.grade)) + ": " + problem.text + "  [" + std::string(problem.id) + "]",
		         problem.grade == Grade::critical ? kBad : kDoubtful);
	}
}

} // namespace

std::string statusText(const NodeState& state, const Judgement& judgement, bool colour)
{
	Rows rows{colour};
	const std::string address = state.setting(key::kThisServerIP);
	const std::string host = state.elsewhere ? "another root" : state.host;
	rows.add("node", address.empty() ? host : host + ", " + address);
	addRole(rows, state);
	addAgent(rows, state);
	addPartner(rows, state);
	addKernel(rows, state);
	addChange(rows, state);
	addLog(rows, state);
	addJudgement(rows, state, judgement);
	return rows.all;
}

} // namespace velarix::ctl
