#include "lab/campaigns/Measure.h"

#include <algorithm>

#include "lab/campaigns/Times.h"

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

std::string valueAt(const std::vector<Interval>& track, Millis time)
{
	std::string value;
	for (const Interval& interval : track)
	{
		if (interval.from <= time)
		{
			value = interval.value;
		}
	}
	return value;
}

void measureOutage(const std::vector<Interval>& service, PhaseRecord& phase)
{
	for (const Interval& interval : service)
	{
		const Millis begin = std::max(interval.from, phase.from);
		const Millis end = std::min(interval.to, phase.to);
		if (interval.value == "none" && end - begin > phase.outage)
		{
			phase.outage = end - begin;
			phase.outageBegin = begin;
			phase.outageEnd = end;
			phase.outageOpen = interval.to >= phase.to;
		}
	}
	phase.noAnswer = timeWith(service, "none", phase.from, phase.to);
}

void measureAnswer(const std::vector<Interval>& service, PhaseRecord& phase)
{
	const Millis begin = std::max(phase.from, phase.to - lastSeconds);
	phase.answer = "mixed";
	for (const char* value : {"none", "a", "b"})
	{
		const Millis share = timeWith(service, value, begin, phase.to);
		if (static_cast<double>(share.count()) >= clearShare * static_cast<double>((phase.to - begin).count()))
		{
			phase.answer = value;
		}
	}
}

void measureMoves(const std::vector<Interval>& address, PhaseRecord& phase)
{
	std::string last;
	for (const Interval& interval : address)
	{
		const bool begins = interval.from > phase.from && interval.from <= phase.to;
		if (isSingle(interval.value) && interval.from <= phase.to)
		{
			phase.moves += begins && !last.empty() && last != interval.value ? 1 : 0;
			last = interval.value;
		}
		if (begins && !phase.firstChange)
		{
			phase.firstChange = interval.from - phase.from;
		}
	}
}

void measureEnded(const Timeline& timeline, PhaseRecord& phase)
{
	std::array<bool, 2> ended{};
	for (const Event& event : timeline.events())
	{
		if (event.kind == EventKind::action && event.host && event.at >= phase.from && event.at <= phase.to &&
		    event.text == "the agent has ended by itself")
		{
			ended[indexOf(*event.host)] = true;
		}
	}
	phase.ended = ended[0] || ended[1] ? ownersText(ended[0], ended[1]) : std::string();
}

/// A node gains the address only while its log calls it master.
void compareGains(const Timeline& timeline, const std::vector<Interval>& address, HostId node, PhaseRecord& phase)
{
	const std::vector<Interval> roles = timeline.intervals(roleTrack(node), phase.to);
	std::string before;
	for (const Interval& interval : address)
	{
		const bool gains = holds(interval.value, node) && !holds(before, node);
		before = interval.value;
		if (!gains || interval.from < phase.from || interval.from > phase.to)
		{
			continue;
		}
		const bool master = valueAt(roles, interval.from) == "master" ||
		                    valueAt(roles, interval.from + observersDiffer) == "master" ||
		                    valueAt(roles, interval.from - observersDiffer) == "master";
		if (!master)
		{
			phase.disagreements.push_back(std::string("node ") + nameOf(node) + " got the address at " +
			                              secondsText(interval.from) + " while its log says " +
			                              valueAt(roles, interval.from));
		}
	}
}

/// In the end a master holds the address and a slave does not.
void compareEnd(const Timeline& timeline, HostId node, PhaseRecord& phase)
{
	const std::string role = valueAt(timeline.intervals(roleTrack(node), phase.to), phase.to);
	const bool owns = holds(phase.owner, node);
	if ((role == "master" && !owns) || (role == "slave" && owns))
	{
		phase.disagreements.push_back(std::string("the log of node ") + nameOf(node) + " says " + role + ", and it " +
		                              (owns ? "holds" : "does not hold") + " the address");
	}
}

/// The last one of the path that was made before the service came back.
std::optional<Event> decisionIn(const Timeline& timeline, const PhaseRecord& phase, const Path& path)
{
	std::optional<Event> decision;
	for (const Event& event : timeline.events())
	{
		if (event.kind == EventKind::action && event.host && event.text == path.anchor && event.at >= phase.from &&
		    event.at <= phase.outageEnd)
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
Millis beyondASecond(const std::vector<ProbeInterval>& probes, Millis from, Millis to)
{
	Millis sum{0};
	for (const ProbeInterval& probe : probes)
	{
		const bool within = probe.from >= from && probe.from < to;
		sum += within ? std::max(probe.length() - Millis(1000), Millis(0)) : Millis(0);
	}
	return sum;
}

} // namespace

void measure(const Timeline& timeline, PhaseRecord& phase)
{
	const std::vector<Interval> service = timeline.intervals(serviceTrack, phase.to);
	const std::vector<Interval> address = timeline.intervals(addressTrack, phase.to);
	phase.owner = valueAt(address, phase.to);
	measureOutage(service, phase);
	measureAnswer(service, phase);
	measureMoves(address, phase);
	measureEnded(timeline, phase);
	phase.splitBrain = timeWith(address, "a+b", phase.from, phase.to);
	phase.splitBrainLongest = longestWith(address, "a+b", phase.from, phase.to);
	phase.noOwner = timeWith(address, "none", phase.from, phase.to);
	for (const HostId node : nodes)
	{
		compareGains(timeline, address, node, phase);
		if (phase.steady)
		{
			compareEnd(timeline, node, phase);
		}
	}
}

Millis lastChange(const Timeline& timeline, Millis from, Millis to)
{
	Millis last = from;
	for (const Track track : {addressTrack, roleTrack(HostId::a), roleTrack(HostId::b)})
	{
		for (const Interval& interval : timeline.intervals(track, to))
		{
			last = interval.from <= to ? std::max(last, interval.from) : last;
		}
	}
	return last;
}

void measureOverhead(const Timeline& timeline, const Observed& observed, const Path& path, const PairSettings& times,
                     PhaseRecord& phase)
{
	if (phase.outage == Millis(0) || phase.outageOpen || path.anchor.empty())
	{
		return;
	}
	const std::optional<Event> decision = decisionIn(timeline, phase, path);
	if (!decision)
	{
		return;
	}
	const LogSeen& log = observed[indexOf(*decision->host)];
	Millis decided = decision->at;
	Millis begun = phase.outageBegin + phase.took;
	if (path.wholePass)
	{
		const std::vector<Millis>& own = log.passes;
		const auto later = std::upper_bound(own.begin(), own.end(), decided);
		const auto index = later - own.begin();
		const Millis started = lastStart(log.starts, decided);
		decided = index > 0 ? own[static_cast<std::size_t>(index - 1)] : decided;
		// A pass of the agent that ran before a reboot is none of this one's.
		const bool another = index > 1 && own[static_cast<std::size_t>(index - 2)] >= started;
		begun = another ? own[static_cast<std::size_t>(index - 2)] : begun;
	}
	if (decided < phase.from)
	{
		return; // made before the phase: it does not answer what happened in it
	}
	const Millis early = std::max(decided - begun - sumOf(path.before, times), Millis(0));
	phase.noticed = decided - phase.outageBegin;
	phase.overhead = phase.outageEnd - decided - sumOf(path.after, times) + early;
	phase.pings = beyondASecond(log.silentProbes, decided, phase.outageEnd) +
	              std::min(early, beyondASecond(log.silentProbes, begun, decided));
}

} // namespace velarix::lab
