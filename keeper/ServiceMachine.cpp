#include "keeper/ServiceMachine.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velarix::keeper
{

namespace
{

using State = ServiceState;
using Step = ServiceStep;
using namespace timing;

void enter(ServiceMachine& machine, State state, Millis now)
{
	machine.state = state;
	machine.since = now;
	machine.timerAt = kNever;
}

void restartIn(ServiceMachine& machine, Millis now)
{
	machine.gone = true;
	machine.timerAt = now + kRestartDelay * static_cast<Millis>(machine.deaths.size());
}

/// TERM now, KILL after `patience`; the state behind it when nothing is left.
void endIn(Step& step, State state, Millis now, Millis patience)
{
	if (step.machine.gone)
	{
		enter(step.machine, state == State::stopping ? State::waiting : State::ended, now);
		return;
	}
	enter(step.machine, state, now);
	step.machine.timerAt = now + patience;
	step.actions.terminate = true;
}

// The reactions.

void stay(Step& /*step*/, Millis /*now*/)
{
}

void start(Step& step, Millis now)
{
	enter(step.machine, State::running, now);
	step.machine.gone = false;
	step.machine.failures = 0;
	step.actions.start = true;
}

void die(Step& step, Millis now)
{
	ServiceMachine& machine = step.machine;
	std::erase_if(machine.deaths, [&](Millis death) { return now - death >= machine.within; });
	machine.deaths.push_back(now);
	machine.failed = std::cmp_greater(machine.deaths.size(), machine.restarts);
	if (machine.failed || !machine.gone)
	{
		endIn(step, machine.failed ? State::failing : State::restarting, now,
		      std::min(machine.stopTimeout, kRemainsTimeout));
		return;
	}
	enter(machine, State::restarting, now);
	restartIn(machine, now);
}

void dieAtOnce(Step& step, Millis now)
{
	step.machine.gone = true;
	die(step, now);
}

void beWell(Step& step, Millis /*now*/)
{
	step.machine.failures = 0;
}

void beIll(Step& step, Millis now)
{
	if (++step.machine.failures >= step.machine.checkFailures)
	{
		die(step, now);
	}
}

void beGone(Step& step, Millis now)
{
	if (!step.machine.gone)
	{
		restartIn(step.machine, now);
	}
}

void kill(Step& step, Millis now)
{
	step.actions.kill = true;
	step.machine.timerAt = now + kKillAgain;
}

void restart(Step& step, Millis now)
{
	if (!step.machine.gone)
	{
		kill(step, now);
		return;
	}
	++step.machine.restarted;
	start(step, now);
}

void stopHere(Step& step, Millis now)
{
	endIn(step, State::stopping, now, step.machine.stopTimeout);
}

void waitAgain(Step& step, Millis now)
{
	step.machine.gone = true;
	enter(step.machine, State::waiting, now);
	if (step.machine.held)
	{
		start(step, now);
	}
}

void end(Step& step, Millis now)
{
	endIn(step, State::ending, now, step.machine.stopTimeout);
}

/// TERM was sent already: the time for it goes on.
void endToo(Step& step, Millis /*now*/)
{
	step.machine.state = State::ending;
	step.machine.failed = false;
}

void finish(Step& step, Millis now)
{
	step.machine.gone = true;
	enter(step.machine, State::ended, now);
}

using Reaction = void (*)(Step&, Millis);

// clang-format off
constexpr std::array<std::array<Reaction, 8>, 7> kReactions{{
//                  held   lost      died  gone       check ok  failed  timer    stop
/* WAITING    */ {{ start, stay,     stay, stay,      stay,     stay,   stay,    end    }},
/* RUNNING    */ {{ stay,  stopHere, die,  dieAtOnce, beWell,   beIll,  stay,    end    }},
/* RESTARTING */ {{ stay,  stopHere, stay, beGone,    stay,     stay,   restart, end    }},
/* STOPPING   */ {{ stay,  stay,     stay, waitAgain, stay,     stay,   kill,    endToo }},
/* ENDING     */ {{ stay,  stay,     stay, finish,    stay,     stay,   kill,    stay   }},
/* FAILING    */ {{ stay,  stay,     stay, finish,    stay,     stay,   kill,    endToo }},
/* ENDED      */ {{ stay,  stay,     stay, stay,      stay,     stay,   stay,    stay   }},
}};
// clang-format on

} // namespace

ServiceStep next(ServiceMachine machine, ServiceEvent event, Millis now)
{
	Step step{std::move(machine), {}};
	const bool address = event == ServiceEvent::held || event == ServiceEvent::lost;
	step.machine.held = address ? event == ServiceEvent::held : step.machine.held;
	kReactions.at(static_cast<std::size_t>(step.machine.state)).at(static_cast<std::size_t>(event))(step, now);
	return step;
}

const char* nameOf(ServiceState state)
{
	constexpr std::array kNames{"waiting", "running", "restarting", "stopping", "ending", "failing", "ended"};
	return kNames.at(static_cast<std::size_t>(state));
}

} // namespace velarix::keeper
