#include "lab/core/Wait.h"

#include <iostream>
#include <thread>

namespace velarix::lab
{

namespace
{

constexpr Millis pollPause{10};
constexpr Millis observerPause{250};

} // namespace

bool Wait::until(const std::function<bool()>& holds) const
{
	const LabClock clock;
	Millis nextReport{0};
	for (;;)
	{
		if (holds())
		{
			return true;
		}
		const Millis elapsed = clock.now();
		if (elapsed >= limit)
		{
			break;
		}
		if (observer && elapsed >= nextReport)
		{
			observer({what, seen ? seen() : std::string(), elapsed, limit});
			nextReport = elapsed + observerPause;
		}
		std::this_thread::sleep_for(pollPause);
	}
	std::cerr << "gave up waiting for " + what + " after " + secondsText(limit) +
	                 (seen ? "; last seen: " + seen() : std::string()) + "\n";
	return false;
}

bool waitFor(const std::function<bool()>& holds, Millis limit, const std::string& what,
             const std::function<std::string()>& seen)
{
	return Wait{what, limit, seen, {}}.until(holds);
}

} // namespace velarix::lab
