#include "lab/core/Timeline.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace velarix::lab
{

namespace
{

bool inTrack(const Event& event, Track track)
{
	return event.kind == track.kind && event.host == track.host;
}

std::string sentenceFor(const Event& event)
{
	// In the order of the enumerators.
	static constexpr std::array<const char*, 7> beginnings{"---- ",
	                                                       "FAULT    ",
	                                                       "repaired   ",
	                                                       "role     ",
	                                                       "         ",
	                                                       "address  owned by ",
	                                                       "service  answered by node "};
	const bool silent = event.kind == EventKind::service && event.text == "none";
	return silent ? "service  does not answer the client"
	              : beginnings.at(static_cast<std::size_t>(event.kind)) + event.text;
}

} // namespace

void Timeline::add(const Event& event)
{
	{
		const std::lock_guard lock(m_mutex);
		insertLocked(event);
	}
	notifyListener(event);
}

void Timeline::change(Track track, Millis at, const std::string& value)
{
	const Event event{at, track.kind, track.host, value};
	{
		const std::lock_guard lock(m_mutex);
		if (currentLocked(track) == value)
		{
			return;
		}
		insertLocked(event);
	}
	notifyListener(event);
}

std::string Timeline::current(Track track) const
{
	const std::lock_guard lock(m_mutex);
	return currentLocked(track);
}

std::string Timeline::currentLocked(Track track) const
{
	const auto last =
	    std::find_if(m_events.rbegin(), m_events.rend(), [&](const Event& event) { return inTrack(event, track); });
	return last == m_events.rend() ? std::string() : last->text;
}

void Timeline::insertLocked(const Event& event)
{
	const auto place = std::upper_bound(m_events.begin(), m_events.end(), event,
	                                    [](const Event& left, const Event& right) { return left.at < right.at; });
	m_events.insert(place, event);
}

void Timeline::notifyListener(const Event& event)
{
	const std::lock_guard lock(m_listenerMutex);
	if (m_listener)
	{
		m_listener(event);
	}
}

void Timeline::listen(Listener listener)
{
	const std::lock_guard lock(m_listenerMutex);
	m_listener = std::move(listener);
}

std::vector<Event> Timeline::events() const
{
	const std::lock_guard lock(m_mutex);
	return m_events;
}

std::vector<Interval> Timeline::intervals(Track track, Millis until) const
{
	std::vector<Interval> found;
	for (const Event& event : events())
	{
		if (!inTrack(event, track))
		{
			continue;
		}
		if (!found.empty())
		{
			found.back().to = event.at;
		}
		found.push_back({event.at, std::max(event.at, until), event.text});
	}
	return found;
}

Millis timeWith(const std::vector<Interval>& intervals, const std::string& value, Millis from, Millis to)
{
	Millis total{0};
	for (const Interval& interval : intervals)
	{
		total += interval.value == value ? interval.within(from, to) : Millis(0);
	}
	return total;
}

Millis longestWith(const std::vector<Interval>& intervals, const std::string& value, Millis from, Millis to)
{
	Millis longest{0};
	for (const Interval& interval : intervals)
	{
		longest = interval.value == value ? std::max(longest, interval.within(from, to)) : longest;
	}
	return longest;
}

std::string toText(const Event& event)
{
	char time[32];
	std::snprintf(time, sizeof time, "%9.3f", static_cast<double>(event.at.count()) / 1000.0);
	const std::string who = event.host ? nameOf(*event.host) : " ";
	return std::string(time) + "  " + who + "  " + sentenceFor(event);
}

std::string toText(const Timeline& timeline)
{
	std::string text;
	for (const Event& event : timeline.events())
	{
		text += toText(event) + "\n";
	}
	return text;
}

} // namespace velarix::lab
