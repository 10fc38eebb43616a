#include "lab/campaigns/matrix/Measure.h"

#include <algorithm>

#include "lab/campaigns/matrix/Waits.h"
#include "lab/core/Owners.h"

namespace velarix::lab
{

namespace
{

/// The share of the last seconds that makes an answer the answer.
constexpr Millis lastSeconds{5000};
constexpr double clearShare = 0.8;

/// Logs and addresses are observed by threads of their own; on a loaded machine one of
/// them may be late by some tenths of a second.
constexpr Millis observersDiffer{700};

std::string valueAt(const std::vector<Interval>& lane, Millis time)
{
	std::string value;
	for (const Interval& interval : lane)
	{
		if (interval.from <= time)
		{
			value = interval.value;
		}
	}
	return value;
}

void measureOutage(const std::vector<Interval>& service, LegRecord& leg)
{
	for (const Interval& interval : service)
	{
		const Millis begin = std::max(interval.from, leg.from);
		const Millis end = std::min(interval.to, leg.to);
		if (interval.value == "none" && end - begin > leg.outage)
		{
			leg.outage = end - begin;
			leg.outageBegin = begin;
			leg.outageEnd = end;
			leg.outageOpen = interval.to >= leg.to;
		}
	}
	leg.noAnswer = timeWith(service, {"none"}, leg.from, leg.to);
}

void measureAnswer(const std::vector<Interval>& service, LegRecord& leg)
{
	const Millis begin = std::max(leg.from, leg.to - lastSeconds);
	leg.answer = "mixed";
	for (const char* value : {"none", "a", "b"})
	{
		const Millis share = timeWith(service, {value}, begin, leg.to);
		if (static_cast<double>(share.count()) >= clearShare * static_cast<double>((leg.to - begin).count()))
		{
			leg.answer = value;
		}
	}
}

void measureMoves(const std::vector<Interval>& address, LegRecord& leg)
{
	std::string last;
	for (const Interval& interval : address)
	{
		const bool begins = interval.from > leg.from && interval.from <= leg.to;
		if (isSingle(interval.value) && interval.from <= leg.to)
		{
			leg.moves += begins && !last.empty() && last != interval.value ? 1 : 0;
			last = interval.value;
		}
		if (begins && !leg.firstChange)
		{
			leg.firstChange = interval.from - leg.from;
		}
	}
}

void measureEnded(const Timeline& timeline, LegRecord& leg)
{
	std::array<bool, 2> ended{};
	for (const Event& event : timeline.events())
	{
		if (event.kind == EventKind::action && event.host && event.at >= leg.from && event.at <= leg.to &&
		    event.text == "the agent has ended by itself")
		{
			ended[static_cast<std::size_t>(*event.host)] = true;
		}
	}
	leg.ended = ended[0] || ended[1] ? ownersText(ended[0], ended[1]) : std::string();
}

/// A node gains the address only while its log calls it master.
void compareGains(const Timeline& timeline, const std::vector<Interval>& address, HostId node, LegRecord& leg)
{
	const std::vector<Interval> roles = timeline.intervals(roleLane(node), leg.to);
	std::string before;
	for (const Interval& interval : address)
	{
		const bool gains = holds(interval.value, node) && !holds(before, node);
		before = interval.value;
		if (!gains || interval.from < leg.from || interval.from > leg.to)
		{
			continue;
		}
		const bool master = valueAt(roles, interval.from) == "master" ||
		                    valueAt(roles, interval.from + observersDiffer) == "master" ||
		                    valueAt(roles, interval.from - observersDiffer) == "master";
		if (!master)
		{
			leg.disagreements.push_back(std::string("node ") + nameOf(node) + " got the address at " +
			                            secondsText(interval.from) + " while its log says " +
			                            valueAt(roles, interval.from));
		}
	}
}

/// In the end a master holds the address and a slave does not.
void compareEnd(const Timeline& timeline, HostId node, LegRecord& leg)
{
	const std::string role = valueAt(timeline.intervals(roleLane(node), leg.to), leg.to);
	const bool owns = holds(leg.owner, node);
	if ((role == "master" && !owns) || (role == "slave" && owns))
	{
		leg.disagreements.push_back(std::string("the log of node ") + nameOf(node) + " says " + role + ", and it " +
		                            (owns ? "holds" : "does not hold") + " the address");
	}
}

/// The last one of the path that was made before the service came back.
std::optional<Event> decisionIn(const Timeline& timeline, const LegRecord& leg, const Path& path)
{
	std::optional<Event> decision;
	for (const Event& event : timeline.events())
	{
		if (event.kind == EventKind::action && event.host && event.text == path.anchor && event.at >= leg.from &&
		    event.at <= leg.outageEnd)
		{
			decision = event;
		}
	}
	return decision;
}

/// When the agent that runs at that time began; long ago when its start was not seen.
Millis lastStart(const std::vector<Millis>& starts, Millis at)
{
	const auto later = std::upper_bound(starts.begin(), starts.end(), at);
	return later == starts.begin() ? Millis::min() : *std::prev(later);
}

/// What the probes that began between two times lasted beyond a second each.
Millis beyondASecond(const std::vector<Stretch>& probes, Millis from, Millis to)
{
	Millis sum{0};
	for (const Stretch& probe : probes)
	{
		const bool within = probe.from >= from && probe.from < to;
		sum += within ? std::max(probe.length() - Millis(1000), Millis(0)) : Millis(0);
	}
	return sum;
}

} // namespace

void measure(const Timeline& timeline, LegRecord& leg)
{
	const std::vector<Interval> service = timeline.intervals(serviceLane, leg.to);
	const std::vector<Interval> address = timeline.intervals(addressLane, leg.to);
	leg.owner = valueAt(address, leg.to);
	measureOutage(service, leg);
	measureAnswer(service, leg);
	measureMoves(address, leg);
	measureEnded(timeline, leg);
	leg.twoOwners = timeWith(address, {"a+b"}, leg.from, leg.to);
	leg.twoOwnersLongest = longestWith(address, {"a+b"}, leg.from, leg.to);
	leg.noOwner = timeWith(address, {"none"}, leg.from, leg.to);
	for (const HostId node : nodes)
	{
		compareGains(timeline, address, node, leg);
		if (leg.steady)
		{
			compareEnd(timeline, node, leg);
		}
	}
}

Millis lastChange(const Timeline& timeline, Millis from, Millis to)
{
	Millis last = from;
	for (const Lane lane : {addressLane, roleLane(HostId::a), roleLane(HostId::b)})
	{
		for (const Interval& interval : timeline.intervals(lane, to))
		{
			last = interval.from <= to ? std::max(last, interval.from) : last;
		}
	}
	return last;
}

void measureOverhead(const Timeline& timeline, const Observed& observed, const Path& path, const PairTimes& times,
                     LegRecord& leg)
{
	if (leg.outage == Millis(0) || leg.outageOpen || path.anchor.empty())
	{
		return;
	}
	const std::optional<Event> decision = decisionIn(timeline, leg, path);
	if (!decision)
	{
		return;
	}
	const auto node = static_cast<std::size_t>(*decision->host);
	Millis decided = decision->at;
	Millis begun = leg.outageBegin + leg.took;
	if (path.wholePass)
	{
		const std::vector<Millis>& own = observed.passes[node];
		const auto later = std::upper_bound(own.begin(), own.end(), decided);
		const auto index = later - own.begin();
		const Millis started = lastStart(observed.starts[node], decided);
		decided = index > 0 ? own[static_cast<std::size_t>(index - 1)] : decided;
		// A pass of the agent that ran before a reboot is none of this one's.
		const bool another = index > 1 && own[static_cast<std::size_t>(index - 2)] >= started;
		begun = another ? own[static_cast<std::size_t>(index - 2)] : begun;
	}
	if (decided < leg.from)
	{
		return; // made before the leg: it does not answer what happened in it
	}
	const std::vector<Stretch>& probes = observed.silentProbes[node];
	const Millis early = std::max(decided - begun - sumOf(path.before, times), Millis(0));
	leg.noticed = decided - leg.outageBegin;
	leg.overhead = leg.outageEnd - decided - sumOf(path.after, times) + early;
	leg.pings = beyondASecond(probes, decided, leg.outageEnd) + std::min(early, beyondASecond(probes, begun, decided));
}

} // namespace velarix::lab
