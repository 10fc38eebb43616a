/// Whether this node reaches its targets, and what follows from it. Pure functions, as
/// AddressMachine.h.
///
///   UNKNOWN        not enough answers yet; the reachability address stays as it is
///   REACHABLE      enough targets answer
///   ASKING         too few do: the partner is asked, and the address stays as it is
///   SHARED_OUTAGE  the partner reaches too few as well: nothing moves
///   PARTNER_ONLY   the partner reaches its targets: it gets the service, if it can take it
///   ISOLATED       targets and partner were lost together: the address is removed, and the
///                  agent gives up
///   STOPPED        the end; the address is removed
///
/// With a partner that answers the address stays: an agent that misses it gives up without
/// asking its partner, and as configured master takes the service back. The handover
/// goes by a missing program instead, for which the agent does ask (Guard.h).
///
/// A partner that stops answering after it has answered once since the targets were lost is
/// another failure, which says nothing about this node: nothing moves.
///
/// Two nodes lose a target at different moments of the same interval. So a node loses its
/// targets only after `failures` misses, at least three, and a partner reaches its own only
/// after as many answers in a row: whoever has lost them has a partner that has missed one.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "keeper/AddressMachine.h"

namespace velarix::keeper
{

/// One target.
struct Target
{
	bool answers = false;
	bool lost = false; ///< neither: not known yet
	int hits = 0;      ///< in a row
	int misses = 0;    ///< in a row

	/// @return whether it answers only now
	bool hit();
	/// @return whether it is lost only now
	bool miss(int failures);
};

enum class ReachState : std::uint8_t
{
	unknown,
	reachable,
	asking,
	sharedOutage,
	partnerOnly,
	isolated,
	stopped
};

enum class ReachEvent : std::uint8_t
{
	enough,         ///< as many targets as needed answer
	tooFew,         ///< they cannot, since the others are lost
	partnerReady,   ///< the partner reaches its targets, and its agent can take the service
	partnerReaches, ///< it does, and its agent cannot
	partnerFails,   ///< it does not
	timer,
	stop
};

namespace timing
{
inline constexpr Millis kAskGap = 200;
/// No answer for this long: the partner does not answer.
inline constexpr Millis kAskFor = 1'000;
/// While all is well, so that a wrong key or firewall is seen before it matters.
inline constexpr Millis kAskWell = 5'000;
/// Without a loss for this long: the next one may hand over again.
inline constexpr Millis kWellFor = 60'000;
} // namespace timing

struct ReachMachine
{
	Millis interval = 1'000;

	ReachState state = ReachState::unknown;
	bool held = false;       ///< the reachability address is to be there
	bool handedOver = false; ///< and not well for a minute since
	Millis askAt = kNever;
	Millis forgetAt = 0;      ///< in REACHABLE: that it has handed over
	Millis silentAt = kNever; ///< of ASKING: nobody has answered
};

struct ReachActions
{
	bool raise = false;
	bool lower = false;
	bool ask = false;
	bool handOver = false; ///< if the service is here
	bool operator==(const ReachActions&) const = default;
};

struct ReachStep
{
	ReachMachine machine;
	ReachActions actions;
};

ReachStep next(ReachMachine machine, ReachEvent event, Millis now);

/// @return the event that all targets together make; nothing while too few are known
std::optional<ReachEvent> verdict(const std::vector<Target>& targets, int needed);
/// @return whether enough of them have answered `failures` times in a row: what is reported to the partner
bool steady(const std::vector<Target>& targets, int needed, int failures);

const char* nameOf(ReachState state);

} // namespace velarix::keeper
