#include "Events.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace
{

constexpr std::size_t kMostEvents = 1000000;

std::mutex g_mutex;
events::List g_events;
std::function<void(long)> g_onSleep;

std::vector<std::function<void()>>& resets()
{
	static std::vector<std::function<void()>> all;
	return all;
}

bool beginsWithOneOf(const std::string& text, const std::vector<std::string>& prefixes)
{
	return std::any_of(prefixes.begin(), prefixes.end(),
	                   [&](const std::string& prefix) { return text.compare(0, prefix.size(), prefix) == 0; });
}

} // namespace

namespace events
{

void clear()
{
	const std::lock_guard lock(g_mutex);
	g_events.clear();
	g_onSleep = nullptr;
}

void add(const std::string& event)
{
	const std::lock_guard lock(g_mutex);
	g_events.push_back(event);
	if (g_events.size() > kMostEvents)
	{
		// A loop that was to end runs away; without its waits it would eat the machine.
		std::fprintf(stderr, "events: more than %zu, the last one: %s\n", kMostEvents, event.c_str());
		std::abort();
	}
}

List all()
{
	const std::lock_guard lock(g_mutex);
	return g_events;
}

List only(const std::vector<std::string>& prefixes)
{
	List result;
	for (const std::string& event : all())
	{
		if (beginsWithOneOf(event, prefixes))
		{
			result.push_back(event);
		}
	}
	return result;
}

List without(const std::vector<std::string>& prefixes)
{
	List result;
	for (const std::string& event : all())
	{
		if (!beginsWithOneOf(event, prefixes))
		{
			result.push_back(event);
		}
	}
	return result;
}

void onSleep(std::function<void(long)> handler)
{
	const std::lock_guard lock(g_mutex);
	g_onSleep = std::move(handler);
}

void endAtSleep(int n)
{
	auto left = std::make_shared<std::atomic<int>>(n);
	onSleep(
	    [left](long)
	    {
		    if (--*left <= 0)
		    {
			    throw EndOfScript{};
		    }
	    });
}

bool resetForEachTest(std::function<void()> reset)
{
	resets().push_back(std::move(reset));
	return true;
}

void resetFakes()
{
	for (const auto& reset : resets())
	{
		reset();
	}
}

} // namespace events

// The library's inline Thread::sleep ends here; production waits for real.
extern "C" void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long milliseconds);
extern "C" void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long milliseconds)
{
	events::add("sleep " + std::to_string(milliseconds));
	std::function<void(long)> handler;
	{
		const std::lock_guard lock(g_mutex);
		handler = g_onSleep;
	}
	if (handler)
	{
		handler(milliseconds);
	}
}
