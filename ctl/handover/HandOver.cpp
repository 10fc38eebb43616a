#include "ctl/handover/HandOver.h"

#include <csignal>
#include <iomanip>
#include <sstream>

#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr milliseconds kPause = 200ms;
/// What programs get to end by themselves before they are sent a signal.
constexpr milliseconds kGrace = 10s;
constexpr int kServicePings = 2;

struct Step
{
	std::string what;
	std::function<bool(const NodeState&)> seen;
	bool reported = false;
	bool holds = false;
};

class HandOver
{
public:
	HandOver(const HandOverPlan& plan, std::string partner, Observer& observer, const Context& context)
	    : m_plan(plan), m_partner(std::move(partner)), m_observer(observer), m_context(context)
	{
		m_steps = {
		    {"the programs have ended",
		     [](const NodeState& state) { return state.programs.known() && !state.programs.reported->run; }},
		    {"this node is standby", [](const NodeState& state) { return state.role.is(Role::slave); }},
		    {"the address is gone from this node",
		     [](const NodeState& state) { return state.address.known() && !state.address.reported->held; }},
		    {"the partner is master", [](const NodeState& state) { return state.partnerRole.is(Role::master); }},
		    {"the service address answers", [this](const NodeState& state)
		     { return m_answers == true && state.address.known() && !state.address.reported->held; }},
		    {"the programs run on the partner", [](const NodeState& state) { return state.partnerRuns.is(true); }},
		};
	}

	ExitCode run(milliseconds timeOut)
	{
		runCommands(timeOut);
		while (duration() < timeOut)
		{
			const NodeState state = m_observer.look(m_context.now());
			if (!m_gaveUp)
			{
				helpToEnd();
			}
			ping(state);
			if (allHold(state))
			{
				return moved();
			}
			m_gaveUp = m_gaveUp || state.role.is(Role::slave);
			if (m_gaveUp && state.role.is(Role::master))
			{
				return fail(ExitCode::notAsWished, "this node has taken the service back after " +
				                                       spanText(duration()) + "; see velarixctl events here and on " +
				                                       m_partner);
			}
			host::pause(kPause);
		}
		return fail(ExitCode::timeOut, "not done after " + spanText(duration()) + "; " + missing() +
		                                   ". The agents go on; see velarixctl watch");
	}

private:
	const HandOverPlan& m_plan;
	const std::string m_partner;
	Observer& m_observer;
	const Context& m_context;
	std::vector<Step> m_steps;
	milliseconds m_begin = host::elapsed();
	/// When the programs are helped to their end next (zero until the commands were run), and how.
	milliseconds m_nextSignal{};
	int m_signal = SIGTERM;
	std::optional<bool> m_answers;
	/// How long the service address did not answer this node.
	milliseconds m_silence{};
	milliseconds m_lastPing{};
	bool m_gaveUp = false;

	milliseconds duration() const { return host::elapsed() - m_begin; }

	void tell(const std::string& text) const
	{
		m_context.out << std::setw(8) << spanText(duration()) << "  " << printable(text) << std::endl;
	}

	ExitCode moved() const
	{
		m_context.out << "the service moved to " << printable(m_partner) << " in " << spanText(duration())
		              << "; its address did not answer for " << spanText(m_silence) << '\n';
		return ExitCode::fine;
	}

	ExitCode fail(ExitCode code, const std::string& text) const
	{
		complain(m_context, text);
		return code;
	}

	/// What was not yet as it should be at the last look.
	std::string missing() const
	{
		std::string text;
		for (const Step& step : m_steps)
		{
			if (!step.holds)
			{
				text += (text.empty() ? "not yet seen: " : ", ") + step.what;
			}
		}
		return text;
	}

	void runCommands(milliseconds timeOut)
	{
		for (const std::string& command : m_plan.commands)
		{
			tell("runs without a network: " + command);
			const host::CommandEnd end =
			    host::runWithoutNetwork(command, std::max(timeOut - duration(), milliseconds(0)));
			if (end == host::CommandEnd::tooLong)
			{
				tell("the command did not end in time and was killed");
			}
			else if (end != host::CommandEnd::ended)
			{
				tell(end == host::CommandEnd::noNamespace
				         ? "the kernel gives no network namespace: the command is not run, the programs get a signal"
				         : "no process could be made for the command, the programs get a signal");
				return;
			}
		}
		m_nextSignal = duration() + kGrace;
	}

	/// The kill command may need the network that it did not get.
	void helpToEnd()
	{
		if (duration() < m_nextSignal)
		{
			return;
		}
		for (const host::Process& process : processesNamed(m_plan.names))
		{
			tell(std::string(m_signal == SIGTERM ? "SIGTERM" : "SIGKILL") + " to " + process.name + ", process " +
			     std::to_string(process.pid));
			host::signalProcess(process.pid, process.name, m_signal);
		}
		m_signal = SIGKILL;
		m_nextSignal = duration() + kGrace;
	}

	void ping(const NodeState& state)
	{
		const milliseconds now = duration();
		if (m_answers == false)
		{
			m_silence += now - m_lastPing;
		}
		m_lastPing = now;
		m_answers = host::answersPing(state.setting(key::kVirtualIP), kServicePings);
	}

	bool allHold(const NodeState& state)
	{
		for (Step& step : m_steps)
		{
			step.holds = step.seen(state);
			if (step.holds && !std::exchange(step.reported, true))
			{
				tell(step.what);
			}
		}
		return std::ranges::all_of(m_steps, &Step::holds);
	}
};

/// What may be wrong and leaves a switchover possible all the same.
constexpr std::array<std::string_view, 5> kTolerated{"settings-newer", "address-unlisted", "agent-console",
                                                     "log-begun-ahead", "marker-missing"};

/// What two passes of the receiver take beyond the partner's interval.
constexpr std::chrono::seconds kLate{3};

void refuseByRole(HandOverPlan& plan, const NodeState& state)
{
	if (!state.settings)
	{
		plan.refusals.push_back(state.settingsProblem);
	}
	else if (state.maintenance && state.agent.state == AgentState::frozen)
	{
		plan.refusals.push_back("MAINTENANCE " + state.maintenance->words() +
		                        ": end the maintenance first: velarixctl maintenance off");
	}
	else if (!state.role.known())
	{
		plan.refusals.push_back("the role of this node is not known: " + state.role.why);
	}
	else if (state.role.is(Role::slave))
	{
		plan.refusals.push_back("this node is standby: run it on the master, the partner " +
		                        state.setting(key::kPartnerIP));
	}
}

void refuseByProblems(HandOverPlan& plan, const Judgement& judgement)
{
	for (const Problem& problem : judgement.problems)
	{
		if (std::ranges::find(kTolerated, problem.id) == kTolerated.end())
		{
			plan.refusals.push_back(problem.text);
		}
	}
}

/// The state calls a partner silent after what a loaded machine may take. A
/// service that is given away needs a partner that lives now: one that has frozen
/// leaves both nodes slave.
void refuseBySilence(HandOverPlan& plan, const NodeState& state)
{
	const Milliseconds limit = 2 * state.timing.interval + kLate;
	const std::optional<Milliseconds> age = state.age(state.heartbeat);
	if (state.partnerRole.known() && age && *age > limit)
	{
		plan.refusals.push_back("the partner's last heartbeat is " + spanText(*age) +
		                        " old: it is not certain that the partner lives");
	}
}

bool isOneOf(const std::vector<std::string>& names, const host::Process& process)
{
	return std::ranges::find(names, process.name) != names.end() && process.state != 'Z' && process.state != 'X';
}

/// The agent counts every process whose name contains a program's name. When
/// enough of them stay, it never notices that the programs have gone.
void refuseByCount(HandOverPlan& plan, const std::vector<std::string>& names)
{
	if (names.empty())
	{
		plan.refusals.emplace_back("no program is configured, so the agent would not notice anything");
		return;
	}
	int staying = 0;
	std::string who;
	for (const host::Process& process : host::processes().value_or(std::vector<host::Process>{}))
	{
		const int count = isOneOf(plan.names, process) ? 0 : matches(process.statusLine, names);
		staying += count;
		if (count > 0)
		{
			who += (who.empty() ? "" : ", ") + process.name + " (" + std::to_string(process.pid) +
			       (process.state == 'Z' ? ", ended but not awaited)" : ")");
		}
	}
	if (staying >= static_cast<int>(names.size()))
	{
		plan.refusals.push_back("the agent would not notice that the programs have gone, since it counts these too: " +
		                        who);
	}
}

/// @return the programs that the agent starts, from the run script it wrote at
///         its own start: each second line, with " &" behind it
std::vector<std::string> startedPrograms(const Paths& paths)
{
	std::vector<std::string> programs;
	std::istringstream script(readInputFile(paths.runScript));
	for (std::string line; std::getline(script, line) && std::getline(script, line);)
	{
		programs.push_back(line.substr(0, line.rfind(" &")));
	}
	return programs;
}

void refuseByRunScript(HandOverPlan& plan, const std::vector<std::string>& programs, const Paths& paths)
{
	try
	{
		if (startedPrograms(paths) != programs)
		{
			plan.refusals.push_back("the programs in the settings are not those in " + paths.runScript.string() +
			                        ", which the agent made at its start: restart it first");
		}
	}
	catch (const Failure& failure)
	{
		plan.refusals.emplace_back(failure.what());
	}
}

} // namespace

ExitCode handOver(const HandOverPlan& plan, const std::string& partner, Observer& observer, milliseconds timeOut,
                  const Context& context)
{
	return HandOver(plan, partner, observer, context).run(timeOut);
}

std::vector<host::Process> processesNamed(const std::vector<std::string>& names)
{
	std::vector<host::Process> all = host::processes().value_or(std::vector<host::Process>{});
	std::erase_if(all, [&](const host::Process& process) { return !isOneOf(names, process); });
	return all;
}

HandOverPlan planHandOver(const NodeState& state, const Judgement& judgement, const Paths& paths)
{
	HandOverPlan plan;
	refuseByRole(plan, state);
	if (!plan.refusals.empty())
	{
		return plan;
	}
	refuseByProblems(plan, judgement);
	refuseBySilence(plan, state);
	const std::vector<std::string> programs = state.settings->programs();
	plan.names = programNames(*state.settings);
	// Without the address the agent would give up for another reason, and ask nobody: the
	// configured master would take the service back. It drops the address itself.
	if (plan.names.size() > 1)
	{
		std::erase(plan.names, keeper::kAddressProgram);
	}
	for (const std::string& name : plan.names)
	{
		plan.commands.push_back(state.setting(key::kKillCommand) + " " + name);
	}
	refuseByCount(plan, programNames(*state.settings));
	refuseByRunScript(plan, programs, paths);
	return plan;
}

} // namespace velarix::ctl
