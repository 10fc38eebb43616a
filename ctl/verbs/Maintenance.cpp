#include <csignal>

#include <nlohmann/json.hpp>

#include "ctl/handover/NodeLock.h"
#include "ctl/pair/PairReport.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

/// A signal is delivered at once; a machine under load needs a moment to show it.
constexpr int kLooks = 50;
constexpr std::chrono::milliseconds kBetweenLooks{20};

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

ExitCode refuse(const Context& context, const std::string& why)
{
	complain(context, "refused: " + why);
	return ExitCode::refused;
}

/// An agent that is stopped between the end of the programs and the take-over leaves nobody serving.
/// @return why an agent must not be stopped now; empty when it may
std::string moveUnderWay(const NodeState& state)
{
	if (state.snapshot().takeOver)
	{
		return "this node is taking the service; try again when it has it";
	}
	// Nothing of it is known of a frozen agent, whose maintenance may be prolonged; without a partner nothing moves.
	const bool ended = state.programs.known() && !state.programs.reported->run;
	const bool leaves = state.partnerRole.known() && (state.asks() || (state.role.is(Role::master) && ended));
	const bool comes = state.isAsked() || (state.partnerRole.is(Role::master) && state.partnerRuns.is(false));
	return leaves || comes ? "a switchover or failover is under way; try again when one node is master and serves" : "";
}

ExitCode begin(const MaintenanceOptions& options, const Context& context)
{
	const Descriptor lock = lockNode(context.paths);
	const NodeState state = lookAround(context);
	if (!state.agent.lives())
	{
		return refuse(context, state.agent.text + "; without an agent nothing fails over anyway");
	}
	if (const std::string why = moveUnderWay(state); !why.empty())
	{
		return refuse(context, why);
	}
	const std::filesystem::path& record = context.paths.maintenance;
	const Maintenance now{context.now(), context.now() + std::chrono::seconds(static_cast<long>(options.time)),
	                      options.reason};
	if (state.maintenance)
	{
		complain(context, "this replaces the maintenance " + state.maintenance->words());
	}
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
	recordAct(context, kMaintenanceOn, now.words());
	context.out << "maintenance " << now.words() << "\nnothing fails over and nothing is restarted here; end it with "
	            << "velarixctl maintenance off\n";
	if (!options.pair)
	{
		context.out << "this node alone; both at once: velarixctl maintenance on --pair\n";
	}
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
	if (state.address.known() && !state.address.reported->held)
	{
		return "this node is master without the virtual address " + state.setting(key::kVirtualIP);
	}
	if (state.gatewayAnswers.is(false))
	{
		return "this node is master and its gateway " + state.setting(key::kGatewayIP) + " does not answer";
	}
	return state.serviceInterface.is(true)
	           ? ""
	           : std::string("this node is master and ") + kServiceInterface + " has no carrier";
}

ExitCode end(const MaintenanceOptions& options, const Context& context)
{
	const Descriptor lock = lockNode(context.paths);
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
			return refuse(context, why + ": the agent would give the service up; repair that first, "
			                             "or let it move with --force");
		}
		if (!why.empty())
		{
			recordAct(context, kSwitchover, "the maintenance ends without the service");
		}
		signalAll(state, SIGCONT);
	}
	signalWatchers(SIGCONT);
	std::filesystem::remove(context.paths.maintenance);
	// Back after a power cut, it would keep the agent from starting.
	syncDirectory(context.paths.maintenance.parent_path());
	recordAct(context, kMaintenanceOff, "");
	context.out << (state.agent.lives() ? "maintenance is over: the agent goes on\n"
	                                    : "maintenance is over; the agent does not run: start it with "
	                                      "systemctl start velarix-ha\n");
	return ExitCode::fine;
}

/// Both nodes, in the order in which none is watched by a partner that misses it: the standby
/// begins, the master ends.
class OnBoth
{
public:
	OnBoth(const MaintenanceOptions& options, const Context& context)
	    : m_options(options), m_context(context), m_partner(options.ssh, kPatience, context.paths)
	{
	}

	ExitCode run()
	{
		const std::string why = look();
		if (!why.empty())
		{
			return refuse(m_context, why + "; nothing was done");
		}
		const bool on = m_options.word == "on";
		const ExitCode code = m_master == on ? partnerFirst(on) : thisNodeFirst(on);
		if (code == ExitCode::fine)
		{
			m_context.out << "the partner, " << m_partner.target()
			              << (on ? ", is in maintenance too\n" : ", goes on too\n");
		}
		return code;
	}

private:
	static constexpr std::chrono::seconds kPatience{30};
	const MaintenanceOptions& m_options;
	const Context& m_context;
	Partner m_partner;
	bool m_master = false;

	/// @return why it is not tried: the order is not known, or a move is under way
	std::string look()
	{
		// What this node would refuse is not begun on the other one.
		const Descriptor lock = lockNode(m_context.paths);
		const NodeState state = lookAround(m_context);
		std::string why = m_options.word == "on" ? moveUnderWay(state) : "";
		if (!why.empty())
		{
			return why;
		}
		const Json report = m_partner.status(state, why);
		if (report.is_null())
		{
			return "the partner cannot be asked: " + why;
		}
		const std::string here(wordOf(state.role.reported.value_or(Role::unknown)));
		const std::string there = lastRoleOf(report);
		m_master = here == "master";
		return (m_master && there == "slave") || (here == "slave" && there == "master")
		           ? ""
		           : "this node is " + here + " and the partner " + (there.empty() ? "not known" : there) +
		                 ", so the order is not known: do it on each node";
	}

	ExitCode here(bool on) const { return on ? begin(m_options, m_context) : end(m_options, m_context); }

	bool there(bool on) const
	{
		std::vector<std::string> words{"maintenance", on ? "on" : "off"};
		if (on)
		{
			words.insert(words.end(), {"--for", std::to_string(static_cast<long>(m_options.time)) + "s"});
			words.insert(words.end(), {"--reason", m_options.reason});
		}
		else if (m_options.force)
		{
			words.emplace_back("--force");
		}
		const host::ProgramEnd end = m_partner.run(words);
		if (!end.fine())
		{
			complain(m_context, "on the partner, " + m_partner.target() + ", it " + end.reason());
		}
		return end.fine();
	}

	ExitCode partnerFirst(bool on) const
	{
		// What fails may have been done all the same: an answer can be lost.
		ExitCode code = ExitCode::notAsWished;
		try
		{
			code = there(on) ? here(on) : code;
		}
		catch (const Failure& failure)
		{
			complain(m_context, failure.what());
			code = failure.code();
		}
		if (code != ExitCode::fine && on)
		{
			complain(m_context, there(false) ? "the partner is not in maintenance any more"
			                                 : "see to the partner: it may be in maintenance");
		}
		return code;
	}

	ExitCode thisNodeFirst(bool on) const
	{
		const ExitCode code = here(on);
		if (code != ExitCode::fine || there(on))
		{
			return code;
		}
		if (on)
		{
			there(false);
			end(m_options, m_context);
		}
		complain(m_context, on ? "the maintenance is ended here again; see to the partner"
		                       : "the partner is still in maintenance: end it there");
		return ExitCode::notAsWished;
	}
};

} // namespace

ExitCode runMaintenance(const MaintenanceOptions& options, const Context& context)
{
	if (host::user() != 0)
	{
		throw Failure(ExitCode::noPermission, "only root may stop and continue the agent; run it as root");
	}
	if (options.pair)
	{
		return OnBoth(options, context).run();
	}
	return options.word == "on" ? begin(options, context) : end(options, context);
}

} // namespace velarix::ctl
