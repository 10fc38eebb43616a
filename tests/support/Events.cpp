#include "Events.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace
{

constexpr std::size_t kMostEvents = 1000000;

struct Waiting
{
	std::string begin;
	int n; ///< 0: at each
	events::Action action;
	int seen = 0;
};

std::mutex g_mutex;
events::List g_events;
std::vector<Waiting> g_waiting; ///< what waits for the n-th is before what runs at each
std::function<void(const std::string&)> g_observer;
thread_local int g_acting = 0;
bool g_tellsAtTheEnd = false;
std::atomic<std::time_t> g_now{-1};

std::vector<std::function<void()>>& resets()
{
	static std::vector<std::function<void()>> all;
	return all;
}

events::List select(const std::vector<std::string>& prefixes, bool wanted)
{
	events::List result = events::all();
	std::erase_if(result,
	              [&](const std::string& event)
	              {
		              const auto begins = [&](const std::string& prefix) { return event.starts_with(prefix); };
		              return std::any_of(prefixes.begin(), prefixes.end(), begins) != wanted;
	              });
	return result;
}

void waitFor(int n, const std::string& begin, events::Action action)
{
	const std::lock_guard lock(g_mutex);
	std::erase_if(g_waiting, [&](const Waiting& other) { return n == 0 && other.n == 0 && other.begin == begin; });
	const auto place =
	    std::find_if(g_waiting.begin(), g_waiting.end(), [](const Waiting& other) { return other.n == 0; });
	if (action)
	{
		g_waiting.insert(n > 0 ? place : g_waiting.end(), {begin, n, std::move(action)});
	}
}

struct Acting
{
	Acting() { ++g_acting; }
	~Acting() { --g_acting; }
};

} // namespace

namespace events
{

void add(const std::string& event)
{
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
	announce(event);
}

void announce(const std::string& event)
{
	std::vector<Action> due;
	std::function<void(const std::string&)> observer;
	{
		const std::lock_guard lock(g_mutex);
		observer = g_observer;
		for (Waiting& waiting : g_waiting)
		{
			const bool isIt = event.starts_with(waiting.begin);
			waiting.seen += isIt ? 1 : 0;
			if (isIt && (waiting.n == 0 || waiting.seen == waiting.n))
			{
				due.push_back(waiting.action);
			}
		}
	}
	const Acting acting;
	observer ? observer(event) : void();
	for (const Action& action : due)
	{
		action();
	}
}

bool isActing()
{
	return g_acting > 0;
}

void clear()
{
	const std::lock_guard lock(g_mutex);
	g_events.clear();
}

List all()
{
	const std::lock_guard lock(g_mutex);
	return g_events;
}

List only(const std::vector<std::string>& prefixes)
{
	return select(prefixes, true);
}

List without(const std::vector<std::string>& prefixes)
{
	return select(prefixes, false);
}

List join(std::initializer_list<List> lists)
{
	List result;
	for (const List& list : lists)
	{
		result.insert(result.end(), list.begin(), list.end());
	}
	return result;
}

void at(const std::string& begin, Action action)
{
	waitFor(0, begin, std::move(action));
}

void atNth(int n, const std::string& begin, Action action)
{
	waitFor(n, begin, std::move(action));
}

void observe(std::function<void(const std::string&)> observer)
{
	const std::lock_guard lock(g_mutex);
	g_observer = std::move(observer);
}

void tellAtTheEnd()
{
	clear();
	g_tellsAtTheEnd = true;
}

void tell()
{
	if (!g_tellsAtTheEnd)
	{
		return;
	}
	std::fputs(kTold, stderr);
	for (const std::string& event : all())
	{
		std::fprintf(stderr, "%s\n", event.c_str());
	}
}

bool resetForEachTest(std::function<void()> reset)
{
	resets().push_back(std::move(reset));
	return true;
}

List reset()
{
	List missed;
	for (const Waiting& waiting : g_waiting)
	{
		if (waiting.seen < waiting.n)
		{
			missed.push_back(std::to_string(waiting.n) + ": " + waiting.begin);
		}
	}
	g_waiting.clear();
	g_observer = nullptr;
	g_now = -1;
	for (const auto& reset : resets())
	{
		reset();
	}
	clear();
	return missed;
}

void stopClock(std::time_t seconds)
{
	::setenv("TZ", "UTC0", 1);
	::tzset();
	g_now = seconds;
}

} // namespace events

// The library's inline Thread::sleep ends here; production waits for real.
extern "C" void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long milliseconds);
extern "C" void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long milliseconds)
{
	events::add("sleep " + std::to_string(milliseconds));
}

extern "C" std::time_t __real_time(std::time_t* pResult);
extern "C" std::time_t __wrap_time(std::time_t* pResult);
extern "C" std::time_t __wrap_time(std::time_t* pResult)
{
	const std::time_t now = g_now >= 0 ? g_now.load() : __real_time(nullptr);
	if (pResult != nullptr)
	{
		*pResult = now;
	}
	return now;
}
