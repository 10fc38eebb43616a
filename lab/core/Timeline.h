/// What happened on a lab, in milliseconds since it was made.
///
/// Four tracks hold states that change (role of each node, owners of the virtual
/// address, who answers the client); beside them stand faults, repairs, phases
/// of a scenario and single actions of the agents. Any thread may add.
#pragma once

#include <algorithm>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

enum class EventKind
{
	phase,   ///< a scenario begins a phase
	fault,   ///< a fault was injected
	repair,  ///< a fault was repaired
	role,    ///< track of one node: starting, master, slave, frozen, no agent, off
	action,  ///< what a node's log tells that it does
	address, ///< track: owners of the virtual address: none, a, b, a+b
	service  ///< track: the node that answers the client: none, a, b
};

struct Event
{
	Millis at{0};
	EventKind kind = EventKind::action;
	std::optional<HostId> host{}; ///< the node it is about
	std::string text;             ///< a track's new value, or what happened
};

/// One track: a kind, and for the roles the node.
struct Track
{
	EventKind kind;
	std::optional<HostId> host{};
};

inline constexpr Track addressTrack{EventKind::address};
inline constexpr Track serviceTrack{EventKind::service};
constexpr Track roleTrack(HostId node)
{
	return {EventKind::role, node};
}

/// An interval in which a track had one value.
struct Interval
{
	Millis from{0};
	Millis to{0};
	std::string value;

	/// How much of it is between two times.
	Millis within(Millis begin, Millis end) const
	{
		return std::max(std::min(to, end) - std::max(from, begin), Millis(0));
	}
};

class Timeline
{
public:
	using Listener = std::function<void(const Event&)>;

	/// Adds an event in its place by time.
	void add(const Event& event);
	/// Adds to a track, unless the track has that value already.
	void change(Track track, Millis at, const std::string& value);

	/// The track's present value; empty before its first.
	std::string current(Track track) const;
	/// All events, in the order of their times.
	std::vector<Event> events() const;
	/// The track's values from its first to `until`.
	std::vector<Interval> intervals(Track track, Millis until) const;

	/// The listener receives every event added from now on, by the thread that
	/// adds it; it must not add events itself. Null ends it.
	void listen(Listener listener);

private:
	mutable std::mutex m_mutex;
	std::mutex m_listenerMutex;
	std::vector<Event> m_events;
	Listener m_listener;

	std::string currentLocked(Track track) const;
	void insertLocked(const Event& event);
	void notifyListener(const Event& event);
};

/// How long the track had this value between two times, in all and without a break.
Millis timeWith(const std::vector<Interval>& intervals, const std::string& value, Millis from, Millis to);
Millis longestWith(const std::vector<Interval>& intervals, const std::string& value, Millis from, Millis to);

/// One line per event.
std::string toText(const Timeline& timeline);
/// One line: time, host, what happened.
std::string toText(const Event& event);

} // namespace velarix::lab
