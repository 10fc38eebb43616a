#include "keeper/ReachMachine.h"

#include <algorithm>
#include <utility>

namespace velarix::keeper
{

namespace
{

using State = ReachState;
using Step = ReachStep;
using namespace timing;

void enter(Step& step, State state, bool held)
{
	ReachMachine& machine = step.machine;
	machine.state = state;
	machine.silentAt = kNever;
	step.actions.raise = held && !machine.held;
	step.actions.lower = !held && machine.held;
	machine.held = held;
}

// The reactions.

void stay(Step& /*step*/, Millis /*now*/)
{
}

void query(Step& step, Millis now)
{
	step.actions.ask = true;
	// Targets that come and go must not move the service each time.
	step.machine.handedOver =
	    step.machine.handedOver && (step.machine.state != State::reachable || now < step.machine.forgetAt);
	step.machine.askAt = now + (step.machine.state == State::asking      ? kAskGap
	                            : step.machine.state == State::reachable ? kAskWell
	                                                                     : step.machine.interval);
}

void reach(Step& step, Millis now)
{
	enter(step, State::reachable, true);
	step.machine.forgetAt = now + kWellFor;
	query(step, now);
}

void doubt(Step& step, Millis now)
{
	enter(step, State::asking, step.machine.held);
	step.machine.silentAt = now + kAskFor;
	query(step, now);
}

void askOn(Step& step, Millis now)
{
	if (now >= step.machine.silentAt)
	{
		enter(step, State::isolated, false);
	}
	query(step, now);
}

void share(Step& step, Millis now)
{
	enter(step, State::sharedOutage, true);
	step.machine.askAt = now + step.machine.interval;
}

void defer(Step& step, Millis now)
{
	enter(step, State::partnerOnly, true);
	step.machine.askAt = now + step.machine.interval;
}

/// Once: a partner that hands the service back is worse off than this node.
void giveOnce(Step& step, Millis /*now*/)
{
	step.actions.handOver = !std::exchange(step.machine.handedOver, true);
}

void give(Step& step, Millis now)
{
	defer(step, now);
	giveOnce(step, now);
}

void end(Step& step, Millis /*now*/)
{
	enter(step, State::stopped, false);
	step.machine.askAt = kNever;
}

using Reaction = void (*)(Step&, Millis);

// clang-format off
constexpr std::array<std::array<Reaction, 7>, 7> kReactions{{
//                     enough  too few  partner ready  partner reaches  partner fails  timer  stop
/* UNKNOWN       */ {{ reach,  doubt,   stay,          stay,            stay,          stay,  end  }},
/* REACHABLE     */ {{ stay,   doubt,   stay,          stay,            stay,          query, end  }},
/* ASKING        */ {{ reach,  stay,    give,          defer,           share,         askOn, end  }},
/* SHARED_OUTAGE */ {{ reach,  stay,    give,          defer,           stay,          query, end  }},
/* PARTNER_ONLY  */ {{ reach,  stay,    giveOnce,      stay,            share,         query, end  }},
/* ISOLATED      */ {{ reach,  stay,    give,          defer,           share,         query, end  }},
/* STOPPED       */ {{ stay,   stay,    stay,          stay,            stay,          stay,  stay }},
}};
// clang-format on

} // namespace

bool Target::hit()
{
	++hits;
	misses = 0;
	lost = false;
	return !std::exchange(answers, true);
}

bool Target::miss(int failures)
{
	++misses;
	hits = 0;
	if (misses < failures || lost)
	{
		return false;
	}
	answers = false;
	lost = true;
	return true;
}

ReachStep next(ReachMachine machine, ReachEvent event, Millis now)
{
	ReachStep step{machine, {}};
	kReactions.at(static_cast<std::size_t>(machine.state)).at(static_cast<std::size_t>(event))(step, now);
	return step;
}

std::optional<ReachEvent> verdict(const std::vector<Target>& targets, int needed)
{
	if (std::ranges::count(targets, true, &Target::answers) >= needed)
	{
		return ReachEvent::enough;
	}
	const bool possible = std::ranges::count(targets, false, &Target::lost) >= needed;
	return possible ? std::nullopt : std::optional(ReachEvent::tooFew);
}

bool steady(const std::vector<Target>& targets, int needed, int failures)
{
	return std::ranges::count_if(targets, [&](const Target& target) { return target.hits >= failures; }) >= needed;
}

const char* nameOf(ReachState state)
{
	constexpr std::array kNames{"unknown",      "reachable", "asking", "shared-outage",
	                            "partner-only", "isolated",  "stopped"};
	return kNames.at(static_cast<std::size_t>(state));
}

} // namespace velarix::keeper
