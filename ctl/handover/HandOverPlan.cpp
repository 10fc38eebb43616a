#include "ctl/handover/HandOver.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>

#include "inspect/InputFile.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

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
	plan.targets = processesNamed(plan.names);
	refuseByCount(plan, programNames(*state.settings));
	refuseByRunScript(plan, programs, paths);
	return plan;
}

} // namespace velarix::ctl
