#include "ctl/handover/HandOver.h"

#include <algorithm>
#include <csignal>
#include <functional>
#include <iomanip>
#include <optional>
#include <utility>

#include "inspect/Host.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

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
			if (cameBack(state))
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
	/// When the programs are helped to their end next, and how.
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
		m_nextSignal = kGrace;
		for (const std::string& command : m_plan.commands)
		{
			tell("runs without a network: " + command);
			switch (host::runWithoutNetwork(command, std::max(timeOut - duration(), milliseconds(0))))
			{
			case host::CommandEnd::ended:
				break;
			case host::CommandEnd::tooLong:
				tell("the command did not end in time and was killed");
				break;
			case host::CommandEnd::noNamespace:
				tell("the kernel gives no network namespace: the command is not run, the programs get a signal");
				m_nextSignal = 0ms;
				return;
			case host::CommandEnd::notStarted:
				tell("no process could be made for the command, the programs get a signal");
				m_nextSignal = 0ms;
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

	bool cameBack(const NodeState& state)
	{
		m_gaveUp = m_gaveUp || state.role.is(Role::slave);
		return m_gaveUp && state.role.is(Role::master);
	}
};

} // namespace

ExitCode handOver(const HandOverPlan& plan, const std::string& partner, Observer& observer, milliseconds timeOut,
                  const Context& context)
{
	return HandOver(plan, partner, observer, context).run(timeOut);
}

} // namespace velarix::ctl
