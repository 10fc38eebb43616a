#include "AddressMachine.h"

#include <algorithm>

namespace velarix::keeper
{

namespace
{

using State = AddressState;
using namespace timing;

void enter(AddressMachine& machine, State state, Millis since)
{
	machine.state = state;
	machine.since = since;
	machine.sent = 0;
	machine.answered = false;
	machine.probeAt = kNever;
	machine.announceAt = kNever;
	machine.raiseAt = kNever;
}

/// Sends probe number `sent` + 1 and sets the time of the next one, or of the verdict.
void probe(AddressStep& step, Millis now)
{
	AddressMachine& machine = step.machine;
	++machine.sent;
	machine.probeAt = now + (machine.sent < kProbes ? kProbeGap : kProbeWait);
	step.actions.probe = true;
}

void startProbing(AddressStep& step, Millis now)
{
	enter(step.machine, State::probing, now);
	probe(step, now);
}

/// The address stays where it is while the network is asked.
void startRechecking(AddressStep& step, Millis now)
{
	const Millis raiseAt = step.machine.raiseAt;
	enter(step.machine, State::rechecking, step.machine.since);
	step.machine.raiseAt = raiseAt;
	probe(step, now);
}

/// At once, or as soon as the limit allows: then ours is the last claim that is heard.
void announce(AddressStep& step, Millis now)
{
	AddressMachine& machine = step.machine;
	if (now - machine.announcedAt >= kDefendGap)
	{
		machine.announcedAt = now;
		step.actions.announce = true;
	}
	else
	{
		machine.announceAt = std::min(machine.announceAt, machine.announcedAt + kDefendGap);
	}
}

void raise(AddressStep& step, Millis now)
{
	step.machine.raisedAt = now;
	step.machine.raiseAt = kNever;
	step.actions.raise = true;
	announce(step, now);
}

void startHolding(AddressMachine& machine, Millis now)
{
	const Millis raiseAt = machine.raiseAt;
	enter(machine, State::holding, machine.since);
	machine.probeAt = now + kWatch;
	machine.announceAt = now + kAnnounceAgain;
	machine.raiseAt = raiseAt;
}

void startAnnouncing(AddressStep& step, Millis now)
{
	enter(step.machine, State::announcing, now);
	step.machine.holder.reset();
	step.machine.sent = 1;
	step.machine.announceAt = now + kAnnounceGap;
	raise(step, now);
}

/// WAITING or YIELDED. A holder that is known already has held it since then.
void startWaiting(AddressMachine& machine, State state, const Mac& holder, Millis now, Millis knownSince)
{
	const bool known = machine.holder == holder;
	enter(machine, state, now);
	machine.since = known ? knownSince : now;
	machine.holder = holder;
	machine.probeAt = now + kWaitingCycle;
}

void onTimerWaiting(AddressStep& step, Millis now)
{
	AddressMachine& machine = step.machine;
	if (machine.sent == 0)
	{
		machine.sent = 1;
		machine.answered = false;
		machine.probeAt = now + kProbeGap;
		step.actions.probe = true;
	}
	else if (machine.answered)
	{
		machine.sent = 0;
		machine.probeAt = now + kWaitingCycle - kProbeGap;
	}
	else
	{
		// The unanswered probe is the first of the three.
		const Millis since = machine.since;
		enter(machine, State::probing, now);
		machine.since = since;
		machine.sent = 1;
		probe(step, now);
	}
}

void onTimerHeld(AddressStep& step, Millis now)
{
	AddressMachine& machine = step.machine;
	if (now >= machine.raiseAt)
	{
		raise(step, now);
	}
	if (now >= machine.announceAt)
	{
		machine.announceAt = kNever;
		if (machine.state == State::announcing)
		{
			++machine.sent;
			machine.announceAt = now + kAnnounceGap;
		}
		else if (machine.state == State::holding)
		{
			machine.announceAt = now + kAnnounceAgain;
		}
		announce(step, now);
		if (machine.state == State::announcing && machine.sent >= kAnnouncements)
		{
			startHolding(machine, now);
		}
	}
	if (now < machine.probeAt)
	{
		return;
	}
	if (machine.state == State::holding)
	{
		machine.probeAt = now + kWatch;
		step.actions.probe = true;
	}
	else if (machine.sent < kProbes)
	{
		probe(step, now);
	}
	else
	{
		startHolding(machine, now);
		announce(step, now);
	}
}

void onTimer(AddressStep& step, Millis now)
{
	AddressMachine& machine = step.machine;
	switch (machine.state)
	{
	case State::offline:
		machine.probeAt = kNever;
		if (machine.link)
		{
			startProbing(step, now);
		}
		break;
	case State::probing:
		machine.sent < kProbes ? probe(step, now) : startAnnouncing(step, now);
		break;
	case State::backingOff:
		startProbing(step, now);
		break;
	case State::waiting:
	case State::yielded:
		onTimerWaiting(step, now);
		break;
	case State::announcing:
	case State::holding:
	case State::rechecking:
		onTimerHeld(step, now);
		break;
	case State::stopped:
		break;
	}
}

void onClaim(AddressStep& step, const AddressInput& input)
{
	AddressMachine& machine = step.machine;
	switch (machine.state)
	{
	case State::probing:
	case State::backingOff:
		startWaiting(machine, State::waiting, input.from, input.now, machine.since);
		break;
	case State::waiting:
	case State::yielded:
		machine.answered = true;
		if (machine.holder != input.from)
		{
			machine.holder = input.from;
			machine.since = input.now;
		}
		break;
	case State::announcing:
	case State::holding:
		machine.defend ? announce(step, input.now) : startRechecking(step, input.now);
		break;
	case State::rechecking:
		step.actions.lower = true;
		machine.holder.reset();
		startWaiting(machine, State::yielded, input.from, input.now, input.now);
		break;
	case State::offline:
	case State::stopped:
		break;
	}
}

void onForeignProbe(AddressMachine& machine, const AddressInput& input)
{
	if (machine.state != State::probing)
	{
		return;
	}
	const Millis delay = machine.defend ? input.random % kBackOffDefend : kBackOffYield + input.random % kBackOffYield;
	const Millis since = machine.since;
	enter(machine, State::backingOff, input.now);
	machine.since = machine.holder ? since : input.now;
	machine.probeAt = input.now + delay;
}

void onLink(AddressStep& step, bool up, Millis now)
{
	AddressMachine& machine = step.machine;
	machine.link = up;
	if (machine.held())
	{
		if (up)
		{
			startRechecking(step, now);
		}
	}
	else if (machine.state == State::offline && up)
	{
		startProbing(step, now);
	}
	else if (machine.state != State::stopped && !up)
	{
		enter(machine, State::offline, now);
		machine.holder.reset();
	}
}

void onStall(AddressStep& step, Millis now)
{
	if (step.machine.held())
	{
		startRechecking(step, now);
	}
	else if (step.machine.state != State::offline && step.machine.state != State::stopped)
	{
		startProbing(step, now);
	}
}

/// What concerns the address on the interface, and the end.
void onKernel(AddressStep& step, const AddressInput& input)
{
	AddressMachine& machine = step.machine;
	const bool held = machine.held();
	if (input.event == AddressEvent::stop)
	{
		step.actions.lower = held;
		enter(machine, State::stopped, machine.state == State::stopped ? machine.since : input.now);
	}
	else if (held && input.event == AddressEvent::raiseFailed)
	{
		step.actions.lower = true;
		enter(machine, State::offline, input.now);
		machine.probeAt = input.now + kOfflineRetry;
	}
	else if (held && input.now - machine.raisedAt >= kRaiseGap)
	{
		raise(step, input.now);
	}
	else if (held)
	{
		machine.raiseAt = machine.raisedAt + kRaiseGap;
	}
}

} // namespace

Millis AddressMachine::deadline() const
{
	return std::min({probeAt, announceAt, raiseAt});
}

bool AddressMachine::held() const
{
	return state == State::announcing || state == State::holding || state == State::rechecking;
}

AddressStep next(AddressMachine machine, const AddressInput& input)
{
	AddressStep step{machine, {}};
	switch (input.event)
	{
	case AddressEvent::linkUp:
	case AddressEvent::linkDown:
		onLink(step, input.event == AddressEvent::linkUp, input.now);
		break;
	case AddressEvent::timer:
		onTimer(step, input.now);
		break;
	case AddressEvent::claim:
		onClaim(step, input);
		break;
	case AddressEvent::foreignProbe:
		onForeignProbe(step.machine, input);
		break;
	case AddressEvent::stall:
		onStall(step, input.now);
		break;
	case AddressEvent::removed:
	case AddressEvent::raiseFailed:
	case AddressEvent::stop:
		onKernel(step, input);
		break;
	}
	return step;
}

const char* nameOf(AddressState state)
{
	switch (state)
	{
	case State::offline:
		return "offline";
	case State::probing:
		return "probing";
	case State::backingOff:
		return "backing-off";
	case State::waiting:
		return "waiting";
	case State::announcing:
		return "announcing";
	case State::holding:
		return "holding";
	case State::rechecking:
		return "rechecking";
	case State::yielded:
		return "yielded";
	case State::stopped:
		return "stopped";
	}
	return "unknown";
}

} // namespace velarix::keeper
