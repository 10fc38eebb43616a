#include "keeper/AddressMachine.h"

#include <algorithm>

namespace velarix::keeper
{

namespace
{

using State = AddressState;
using Step = AddressStep;
using Input = const AddressInput&;
using namespace timing;

void enter(AddressMachine& machine, State state, Millis since)
{
	machine.state = state;
	machine.since = since;
	machine.sent = 0;
	machine.answered = false;
	machine.probeAt = kNever;
	machine.announceAt = kNever;
}

/// Sends probe number `sent` + 1 and sets the time of the next one, or of the verdict.
void probe(Step& step, Millis now)
{
	AddressMachine& machine = step.machine;
	++machine.sent;
	machine.probeAt = now + (machine.sent < kProbes ? kProbeGap : kProbeWait);
	step.actions.probe = true;
}

/// At once, or as soon as the limit allows: then ours is the last claim that is heard.
void announce(Step& step, Millis now)
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

void raise(Step& step, Millis now)
{
	step.machine.raisedAt = now;
	step.machine.raiseAt = kNever;
	step.actions.raise = true;
	announce(step, now);
}

void nameHolder(AddressMachine& machine, Input input)
{
	if (machine.holder != input.from)
	{
		machine.holder = input.from;
		machine.holderSince = input.now;
	}
}

void startWaiting(AddressMachine& machine, State state, Input input)
{
	nameHolder(machine, input);
	enter(machine, state, machine.holderSince);
	machine.probeAt = input.now + kWaitingCycle;
}

void startHolding(AddressMachine& machine, Millis now)
{
	enter(machine, State::holding, machine.since);
	machine.probeAt = now + kWatch;
	machine.announceAt = now + kAnnounceAgain;
}

// The reactions.

void stay(Step& /*step*/, Input /*input*/)
{
}

void ask(Step& step, Input input)
{
	enter(step.machine, State::probing, input.now);
	probe(step, input.now);
}

void goOffline(Step& step, Input input)
{
	enter(step.machine, State::offline, input.now);
	step.machine.holder.reset();
}

void retry(Step& step, Input input)
{
	step.machine.probeAt = kNever;
	step.machine.link ? ask(step, input) : stay(step, input);
}

void probeOn(Step& step, Input input)
{
	if (step.machine.sent < kProbes)
	{
		probe(step, input.now);
		return;
	}
	enter(step.machine, State::announcing, input.now);
	step.machine.holder.reset();
	step.machine.sent = 1;
	step.machine.announceAt = input.now + kAnnounceGap;
	raise(step, input.now);
}

void backOff(Step& step, Input input)
{
	enter(step.machine, State::backingOff, input.now);
	step.machine.probeAt = input.now + (step.machine.defend ? input.random % kBackOffDefend
	                                                        : kBackOffYield + input.random % kBackOffYield);
}

void wait(Step& step, Input input)
{
	startWaiting(step.machine, State::waiting, input);
}

void noteHolder(Step& step, Input input)
{
	nameHolder(step.machine, input);
	step.machine.since = step.machine.holderSince;
	step.machine.answered = true;
}

void waitOn(Step& step, Input input)
{
	AddressMachine& machine = step.machine;
	if (machine.sent == 0)
	{
		machine.answered = false;
		probe(step, input.now);
	}
	else if (machine.answered)
	{
		machine.sent = 0;
		machine.probeAt = input.now + kWaitingCycle - kProbeGap;
	}
	else
	{
		// The unanswered probe is the first of the three.
		enter(machine, State::probing, input.now);
		machine.sent = 1;
		probe(step, input.now);
	}
}

/// The address stays where it is while the network is asked.
void recheck(Step& step, Input input)
{
	enter(step.machine, State::rechecking, step.machine.since);
	probe(step, input.now);
}

void defend(Step& step, Input input)
{
	step.machine.defend ? announce(step, input.now) : recheck(step, input);
}

void yield(Step& step, Input input)
{
	step.actions.lower = true;
	step.machine.holder.reset();
	startWaiting(step.machine, State::yielded, input);
}

void announceOn(Step& step, Millis now)
{
	AddressMachine& machine = step.machine;
	machine.announceAt = kNever;
	if (machine.state == State::announcing)
	{
		machine.announceAt = now + kAnnounceGap;
		++machine.sent;
	}
	else if (machine.state == State::holding)
	{
		machine.announceAt = now + kAnnounceAgain;
	}
	if (machine.state == State::announcing && machine.sent >= kAnnouncements)
	{
		startHolding(machine, now);
	}
	announce(step, now);
}

void holdOn(Step& step, Input input)
{
	AddressMachine& machine = step.machine;
	const Millis now = input.now;
	if (now >= machine.raiseAt)
	{
		raise(step, now);
	}
	if (now >= machine.announceAt)
	{
		announceOn(step, now);
	}
	if (now >= machine.probeAt && machine.state == State::holding)
	{
		machine.probeAt = now + kWatch;
		step.actions.probe = true;
	}
	else if (now >= machine.probeAt && machine.sent < kProbes)
	{
		probe(step, now);
	}
	else if (now >= machine.probeAt)
	{
		startHolding(machine, now);
		announce(step, now);
	}
}

void raiseAgain(Step& step, Input input)
{
	if (input.now - step.machine.raisedAt >= kRaiseGap)
	{
		raise(step, input.now);
		return;
	}
	step.machine.raiseAt = step.machine.raisedAt + kRaiseGap;
}

/// Whoever asks may be about to give the address up, after a split in which it announced
/// last: the clients have to hear of this node.
void answerProbe(Step& step, Input input)
{
	if (input.now - step.machine.announcedAt >= kWatch)
	{
		announce(step, input.now);
	}
}

void giveUp(Step& step, Input input)
{
	step.actions.lower = true;
	enter(step.machine, State::offline, input.now);
	step.machine.probeAt = input.now + kOfflineRetry;
}

void end(Step& step, Input input)
{
	step.actions.lower = step.machine.held();
	enter(step.machine, State::stopped, input.now);
}

using Reaction = void (*)(Step&, Input);

// clang-format off
constexpr std::array<std::array<Reaction, 9>, 9> kReactions{{
//                   link up  link down  timer    claim       foreign probe  removed     raise failed  stall    stop
/* OFFLINE     */ {{ ask,     goOffline, retry,   stay,       stay,          stay,       stay,         stay,    end  }},
/* PROBING     */ {{ stay,    goOffline, probeOn, wait,       backOff,       stay,       stay,         ask,     end  }},
/* BACKING_OFF */ {{ stay,    goOffline, ask,     wait,       stay,          stay,       stay,         ask,     end  }},
/* WAITING     */ {{ stay,    goOffline, waitOn,  noteHolder, stay,          stay,       stay,         ask,     end  }},
/* ANNOUNCING  */ {{ recheck, stay,      holdOn,  defend,     answerProbe,   raiseAgain, giveUp,       recheck, end  }},
/* HOLDING     */ {{ recheck, stay,      holdOn,  defend,     answerProbe,   raiseAgain, giveUp,       recheck, end  }},
/* RECHECKING  */ {{ recheck, stay,      holdOn,  yield,      stay,          raiseAgain, giveUp,       recheck, end  }},
/* YIELDED     */ {{ stay,    goOffline, waitOn,  noteHolder, stay,          stay,       stay,         ask,     end  }},
/* STOPPED     */ {{ stay,    stay,      stay,    stay,       stay,          stay,       stay,         stay,    stay }},
}};
// clang-format on

} // namespace

bool AddressMachine::held() const
{
	return state == State::announcing || state == State::holding || state == State::rechecking;
}

Millis AddressMachine::deadline() const
{
	return std::min({probeAt, announceAt, held() ? raiseAt : kNever});
}

AddressStep next(AddressMachine machine, const AddressInput& input)
{
	AddressStep step{machine, {}};
	const bool link = input.event == AddressEvent::linkUp || input.event == AddressEvent::linkDown;
	step.machine.link = link ? input.event == AddressEvent::linkUp : machine.link;
	kReactions.at(static_cast<std::size_t>(machine.state)).at(static_cast<std::size_t>(input.event))(step, input);
	return step;
}

const char* nameOf(AddressState state)
{
	constexpr std::array kNames{"offline", "probing",    "backing-off", "waiting", "announcing",
	                            "holding", "rechecking", "yielded",     "stopped"};
	return kNames.at(static_cast<std::size_t>(state));
}

} // namespace velarix::keeper
