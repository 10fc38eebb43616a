#include <csignal>
#include <filesystem>
#include <map>
#include <memory>

#include "ctl/status/Maintenance.h"
#include "ctl/status/NodeState.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/HostActions.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

constexpr double kHour = 3600;
constexpr double kShortest = 60;
constexpr double kLongest = 30 * 24 * kHour;
/// A signal is delivered at once; a machine under load needs a moment to show it.
constexpr int kLooks = 50;
constexpr std::chrono::milliseconds kBetweenLooks{20};

struct MaintenanceOptions
{
	std::string word;
	std::string reason;
	/// Seconds.
	double time = 4 * kHour;
	bool force = false;
};

void needRoot()
{
	if (host::user() != 0)
	{
		throw Failure(ExitCode::noPermission, "only root may stop and continue the agent; run it as root");
	}
}

bool isStopped(pid_t pid)
{
	const std::optional<host::Process> process = host::process(pid);
	return process && process->state == 'T';
}

void signalWatchers(int signal)
{
	for (const host::Process& watcher : serviceWatchers())
	{
		host::signalProcess(watcher.pid, watcher.name, signal);
	}
}

/// Those that start services again first, so that none of them sees what the other no longer does.
void signalAll(const NodeState& state, int signal)
{
	signalWatchers(signal);
	const std::optional<host::Process> agent = host::process(state.agent.pid);
	if (!agent || !host::isAgent(*agent) || !host::signalProcess(agent->pid, agent->name, signal))
	{
		throw Failure(ExitCode::notAsWished, "the agent, process " + std::to_string(state.agent.pid) +
		                                         ", cannot be signalled: look at velarixctl status");
	}
	for (int look = 0; isStopped(agent->pid) != (signal == SIGSTOP); ++look)
	{
		if (look == kLooks)
		{
			throw Failure(ExitCode::notAsWished, "the agent did not follow the signal: look at velarixctl status");
		}
		host::pause(kBetweenLooks);
	}
}

NodeState lookAround(const Context& context)
{
	NodeState state = Observer(context.paths, false).look(context.now());
	if (!state.settings)
	{
		throw Failure(state.settingsCode, state.settingsProblem);
	}
	return state;
}

ExitCode begin(const MaintenanceOptions& options, const Context& context)
{
	const NodeState state = lookAround(context);
	if (!state.agent.lives())
	{
		complain(context, "refused: " + state.agent.text + "; without an agent nothing fails over anyway");
		return ExitCode::refused;
	}
	if (state.snapshot().takeOver)
	{
		complain(context, "refused: this node is taking the service; try again when it has it");
		return ExitCode::refused;
	}
	const std::filesystem::path& record = context.paths.maintenance;
	const Maintenance now{context.now(), context.now() + std::chrono::seconds(static_cast<long>(options.time)),
	                      options.reason};
	writeMaintenance(record, now);
	try
	{
		signalAll(state, SIGSTOP);
	}
	catch (const Failure&)
	{
		signalWatchers(SIGCONT);
		std::filesystem::remove(record);
		throw;
	}
	context.out << "maintenance " << now.words() << "\nnothing fails over and nothing is restarted here; end it with "
	            << "velarixctl maintenance off\n";
	return ExitCode::fine;
}

/// @return why the agent would give the service up as soon as it goes on; empty when it would not
std::string harm(const NodeState& state)
{
	if (state.role.reported != Role::master)
	{
		return {};
	}
	if (state.programs.known() && !state.programs.reported->run)
	{
		std::string missing;
		for (const ProgramCount& program : state.programs.reported->each)
		{
			missing += program.processes > 0 ? "" : " " + program.name;
		}
		return "this node is master and does not run" + missing;
	}
	return state.address.known() && !state.address.reported->held
	           ? "this node is master without the virtual address " + state.setting(key::kVirtualIP)
	           : std::string();
}

ExitCode end(const MaintenanceOptions& options, const Context& context)
{
	const NodeState state = lookAround(context);
	if (!state.maintenance && state.agent.state != AgentState::frozen)
	{
		signalWatchers(SIGCONT);
		context.out << "this node is not in maintenance\n";
		return ExitCode::fine;
	}
	if (state.agent.state == AgentState::frozen)
	{
		const std::string why = harm(state);
		if (!why.empty() && !options.force)
		{
			complain(context, "refused: " + why +
			                      ": the agent would give the service up; start it by hand first, "
			                      "or let it move with --force");
			return ExitCode::refused;
		}
		signalAll(state, SIGCONT);
	}
	signalWatchers(SIGCONT);
	std::filesystem::remove(context.paths.maintenance);
	context.out << (state.agent.lives() ? "maintenance is over: the agent goes on\n"
	                                    : "maintenance is over; the agent does not run: start it with "
	                                      "systemctl start velarix-ha\n");
	return ExitCode::fine;
}

ExitCode runMaintenance(const MaintenanceOptions& options, const Context& context)
{
	needRoot();
	return options.word == "on" ? begin(options, context) : end(options, context);
}

} // namespace

void addMaintenance(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<MaintenanceOptions>();
	Verb(app, "maintenance", "nothing fails over or is restarted while somebody works here")
	    .choice("WORD", options->word, {"on", "off"},
	            "on: begin it, on the standby first; off: end it, on the master first")
	    .option("--reason", options->reason, "TEXT", "what is being done; status shows it")
	    .span("--for", options->time, kShortest, kLongest, "afterwards it counts as forgotten, and is reported (4h)")
	    .flag("--force", options->force, "end it also where the service moves then: a master without its programs")
	    .run(context, [options, &context] { return runMaintenance(*options, context); });
}

} // namespace velarix::ctl
