#include "WaitFor.h"

#include <thread>

testing::AssertionResult waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds limit,
                                 const std::string& what, const std::function<std::string()>& lastSeen)
{
	const auto end = std::chrono::steady_clock::now() + limit;
	while (!predicate())
	{
		if (std::chrono::steady_clock::now() >= end)
		{
			return testing::AssertionFailure() << "no " << what << " within " << limit.count() << " ms"
			                                   << (lastSeen ? "; last seen: " + lastSeen() : std::string());
		}
		std::this_thread::sleep_for(std::chrono::milliseconds(5));
	}
	return testing::AssertionSuccess();
}
