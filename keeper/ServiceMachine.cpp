#include "ServiceMachine.h"

#include <algorithm>
#include <utility>

namespace velarix::keeper
{

namespace
{

using State = ServiceState;
using namespace timing;

void enter(ServiceMachine& machine, State state, Millis now)
{
	machine.state = state;
	machine.since = now;
	machine.timerAt = kNever;
}

void start(ServiceStep& step, Millis now)
{
	enter(step.machine, State::running, now);
	step.machine.gone = false;
	step.machine.failures = 0;
	step.actions.start = true;
}

void finish(ServiceMachine& machine, State state, Millis now)
{
	enter(machine, state, now);
	machine.gone = true;
}

/// TERM now, KILL after `patience`; nothing when nothing is left.
void end(ServiceStep& step, State state, Millis now, Millis patience)
{
	if (step.machine.gone)
	{
		finish(step.machine, state == State::stopping ? State::waiting : State::ended, now);
		return;
	}
	enter(step.machine, state, now);
	step.machine.timerAt = now + patience;
	step.actions.terminate = true;
}

void waitForRestart(ServiceMachine& machine, Millis now)
{
	machine.timerAt = now + kRestartDelay * static_cast<Millis>(machine.deaths.size());
}

void die(ServiceStep& step, Millis now, bool gone)
{
	ServiceMachine& machine = step.machine;
	machine.gone = gone;
	std::erase_if(machine.deaths, [&](Millis death) { return now - death >= machine.within; });
	machine.deaths.push_back(now);
	if (std::cmp_greater(machine.deaths.size(), machine.restarts))
	{
		machine.failed = true;
		end(step, State::failing, now, std::min(machine.stopTimeout, kRemainsTimeout));
		return;
	}
	enter(machine, State::restarting, now);
	if (gone)
	{
		waitForRestart(machine, now);
		return;
	}
	machine.timerAt = now + std::min(machine.stopTimeout, kRemainsTimeout);
	step.actions.terminate = true;
}

void onGone(ServiceStep& step, Millis now)
{
	ServiceMachine& machine = step.machine;
	switch (machine.state)
	{
	case State::running:
		die(step, now, true);
		break;
	case State::restarting:
		if (!machine.gone)
		{
			machine.gone = true;
			waitForRestart(machine, now);
		}
		break;
	case State::stopping:
		finish(machine, State::waiting, now);
		if (machine.held)
		{
			start(step, now);
		}
		break;
	case State::ending:
	case State::failing:
		finish(machine, State::ended, now);
		break;
	case State::waiting:
	case State::ended:
		break;
	}
}

void onTimer(ServiceStep& step, Millis now)
{
	ServiceMachine& machine = step.machine;
	if (machine.state == State::restarting && machine.gone)
	{
		++machine.restarted;
		start(step, now);
	}
	else if (machine.state == State::restarting || machine.state == State::stopping || machine.state == State::ending ||
	         machine.state == State::failing)
	{
		step.actions.kill = true;
		machine.timerAt = now + kKillAgain;
	}
}

void onStop(ServiceStep& step, Millis now)
{
	ServiceMachine& machine = step.machine;
	switch (machine.state)
	{
	case State::waiting:
		finish(machine, State::ended, now);
		break;
	case State::running:
	case State::restarting:
		end(step, State::ending, now, machine.stopTimeout);
		break;
	case State::stopping:
	case State::failing:
		// TERM was sent already: the time for it goes on.
		machine.state = State::ending;
		machine.failed = false;
		break;
	case State::ending:
	case State::ended:
		break;
	}
}

void onAddress(ServiceStep& step, bool held, Millis now)
{
	ServiceMachine& machine = step.machine;
	machine.held = held;
	if (held && machine.state == State::waiting)
	{
		start(step, now);
	}
	else if (!held && (machine.state == State::running || machine.state == State::restarting))
	{
		end(step, State::stopping, now, machine.stopTimeout);
	}
}

} // namespace

ServiceStep next(ServiceMachine machine, ServiceEvent event, Millis now)
{
	ServiceStep step{std::move(machine), {}};
	const bool running = step.machine.state == State::running;
	switch (event)
	{
	case ServiceEvent::held:
	case ServiceEvent::lost:
		onAddress(step, event == ServiceEvent::held, now);
		break;
	case ServiceEvent::died:
		if (running)
		{
			die(step, now, false);
		}
		break;
	case ServiceEvent::gone:
		onGone(step, now);
		break;
	case ServiceEvent::checkOk:
		step.machine.failures = running ? 0 : step.machine.failures;
		break;
	case ServiceEvent::checkFailed:
		if (running && ++step.machine.failures >= step.machine.checkFailures)
		{
			die(step, now, false);
		}
		break;
	case ServiceEvent::timer:
		onTimer(step, now);
		break;
	case ServiceEvent::stop:
		onStop(step, now);
		break;
	}
	return step;
}

const char* nameOf(ServiceState state)
{
	switch (state)
	{
	case State::waiting:
		return "waiting";
	case State::running:
		return "running";
	case State::restarting:
		return "restarting";
	case State::stopping:
		return "stopping";
	case State::ending:
		return "ending";
	case State::failing:
		return "failing";
	case State::ended:
		return "ended";
	}
	return "unknown";
}

} // namespace velarix::keeper
