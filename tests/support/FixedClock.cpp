#include "FixedClock.h"

#include <atomic>
#include <cstdlib>

#include "Events.h"

namespace
{

std::atomic<std::time_t> g_now{-1};

void useZone(const char* zone)
{
	::setenv("TZ", zone, 1);
	::tzset();
}

} // namespace

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

namespace
{

const bool g_isReset = events::resetForEachTest(
    []
    {
	    useZone("UTC0");
	    g_now = -1;
    });

} // namespace

namespace fixedclock
{

void stopAt(std::time_t seconds, const char* zone)
{
	useZone(zone);
	g_now = seconds;
}

} // namespace fixedclock
