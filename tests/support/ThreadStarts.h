/// Stand-in for the start of a library thread: the start is recorded and no
/// thread runs, so the order in which the workers come up is a plain sequence.
#pragma once

#include <functional>
#include <string>

#include <Poco/Runnable.h>
#include <Poco/Thread.h>

/// Each start is recorded in Events as "start ProcessChecker", "start
/// CHeartReciver" or "start CHeartSender".
namespace threadstarts
{

/// From now on the start of `worker` (a class name) calls `thrower`, which throws.
void startThrows(const std::string& worker, std::function<void()> thrower);

} // namespace threadstarts
