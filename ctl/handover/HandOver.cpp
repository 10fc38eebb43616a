#include "ctl/handover/HandOver.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "inspect/Host.h"
#include "inspect/HostActions.h"
#include "inspect/SettingsKeys.h"

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

} // namespace

HandOver::HandOver(HandOverPlan plan, Look look, Tell tell)
    : m_plan(std::move(plan)), m_look(std::move(look)), m_tell(std::move(tell)), m_begin(host::elapsed()),
      m_signal(SIGTERM)
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

milliseconds HandOver::duration() const
{
	return host::elapsed() - m_begin;
}

void HandOver::tell(const std::string& text) const
{
	m_tell(duration(), text);
}

std::string HandOver::missing() const
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

void HandOver::runCommands(milliseconds timeOut)
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
void HandOver::helpToEnd()
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

void HandOver::ping(const NodeState& state)
{
	const milliseconds now = duration();
	if (m_answers == false)
	{
		m_silence += now - m_lastPing;
	}
	m_lastPing = now;
	m_answers = host::answersPing(state.setting(key::kVirtualIP), kServicePings);
}

bool HandOver::allHold(const NodeState& state)
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

bool HandOver::cameBack(const NodeState& state)
{
	m_gaveUp = m_gaveUp || state.role.is(Role::slave);
	return m_gaveUp && state.role.is(Role::master);
}

HandOver::End HandOver::run(milliseconds timeOut)
{
	runCommands(timeOut);
	while (duration() < timeOut)
	{
		const NodeState state = m_look();
		if (!m_gaveUp)
		{
			helpToEnd();
		}
		ping(state);
		if (allHold(state))
		{
			return End::moved;
		}
		if (cameBack(state))
		{
			return End::cameBack;
		}
		host::pause(kPause);
	}
	return End::timeOut;
}

} // namespace velarix::ctl
