/// The states of the virtual address and what changes them: RFC 5227 with the
/// times of a server pair. A pure function: no clock, no socket, nothing shared.
///
///   OFFLINE      the interface is missing, down or without carrier, or refused the address
///   PROBING      asks whether the address is free: three ARP probes, then silence
///   BACKING_OFF  another host probes for the same address; try again in a moment
///   WAITING      another host holds the address; asks again every 200 ms
///   ANNOUNCING   raised; five announcements in the first second
///   HOLDING      one probe a second finds a second holder, one announcement a minute
///   RECHECKING   raised, but perhaps by another host as well: whoever answers keeps it
///   YIELDED      was held here and given up to another host; else as WAITING
///   STOPPED      the end
///
/// What each event does in each state is one table, at the end of AddressMachine.cpp. In
/// ANNOUNCING, HOLDING and RECHECKING the address is on the interface: "held".
///
/// A claim is any ARP packet that names the address as its sender's. Where the
/// configured master hears one it announces; the other node asks the network once
/// more and yields when anybody answers: that takes a round trip, and one forged or
/// late packet does not cost the service. A holder that hears a probe announces, at most
/// once a second: whoever asks may be about to yield, and clients may know him.
/// Carrier lost while holding changes nothing: a flap of a switch port must not
/// restart the services, and the agent hands over when it lasts.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>

namespace velarix::keeper
{

/// Milliseconds of CLOCK_BOOTTIME, which goes on while the machine is suspended.
using Millis = std::int64_t;
inline constexpr Millis kNever = std::numeric_limits<Millis>::max();

using Mac = std::array<std::uint8_t, 6>;

enum class AddressState : std::uint8_t
{
	offline,
	probing,
	backingOff,
	waiting,
	announcing,
	holding,
	rechecking,
	yielded,
	stopped
};

enum class AddressEvent : std::uint8_t
{
	linkUp,
	linkDown,
	timer,        ///< deadline() has come
	claim,        ///< another host names the address as its own
	foreignProbe, ///< another host asks whether it is free
	removed,      ///< it is gone from the interface, and not by us
	raiseFailed,  ///< the kernel refused it
	stall,        ///< this process stood still for kStall or longer
	stop
};

namespace timing
{
inline constexpr int kProbes = 3;
inline constexpr Millis kProbeGap = 75;
/// Silence for this long after the last probe: the address is free.
inline constexpr Millis kProbeWait = 100;
inline constexpr Millis kWaitingCycle = 200;
inline constexpr int kAnnouncements = 5;
inline constexpr Millis kAnnounceGap = 250;
inline constexpr Millis kAnnounceAgain = 60'000;
inline constexpr Millis kWatch = 1'000;
/// The shortest time between two announcements: what an attacker can make us send.
inline constexpr Millis kDefendGap = 100;
/// The same for raising an address that is removed again and again.
inline constexpr Millis kRaiseGap = 20;
inline constexpr Millis kOfflineRetry = 1'000;
/// Two that probe at once back off for different times, so that they do not meet
/// again: the one that defends below 250 ms, the other one 500 to 1000 ms.
inline constexpr Millis kBackOffDefend = 250;
inline constexpr Millis kBackOffYield = 500;
inline constexpr Millis kStall = 3'000;
} // namespace timing

struct AddressMachine
{
	AddressState state = AddressState::offline;
	bool defend = false;        ///< on_conflict = defend
	bool link = false;          ///< interface up and with carrier
	bool answered = false;      ///< a claim came since the last probe of WAITING
	int sent = 0;               ///< probes or announcements of this round
	Millis since = 0;           ///< when this state began; held: when it was raised; WAITING: since when this holder
	std::optional<Mac> holder;  ///< who holds it instead of us
	Millis holderSince = 0;     ///< when that one was heard first
	Millis probeAt = kNever;    ///< when the next probe or verdict is due
	Millis announceAt = kNever; ///< when the next announcement is due
	Millis raiseAt = kNever;    ///< when a removed address may be raised again
	Millis announcedAt = -60'000;
	Millis raisedAt = -60'000;

	/// @return whether the address is to be on the interface
	bool held() const;
	/// @return when the next timer event is due, kNever for none
	Millis deadline() const;
};

struct AddressInput
{
	AddressEvent event = AddressEvent::timer;
	Millis now = 0;
	Mac from{};               ///< of claim and foreignProbe
	std::uint32_t random = 0; ///< for the back-off
};

/// What is to be done, in this order.
struct AddressActions
{
	bool lower = false;
	bool raise = false;
	bool probe = false;
	bool announce = false;
	bool operator==(const AddressActions&) const = default;
};

struct AddressStep
{
	AddressMachine machine;
	AddressActions actions;
};

AddressStep next(AddressMachine machine, const AddressInput& input);

/// @return as in state files and output: "holding", "backing-off"
const char* nameOf(AddressState state);

/// @return whether a loop that armed a timer and comes back at `now` stood still
inline bool stalled(Millis lastTurn, Millis now)
{
	return now - lastTurn >= timing::kStall;
}

} // namespace velarix::keeper
