/// Every managed program is two processes: the guard, which has the name that the agent
/// counts and does nothing, and its only child, the worker, which does everything.
///
/// Neither leaves anything behind when the other one is killed: the worker ends in good
/// order when its guard dies, and the guard ends what its worker left. Both adopt the
/// orphans of their descendants, so that nothing that a service forks gets away.
#pragma once

#include <functional>
#include <string>

namespace velarix::keeper
{

/// Becomes the guard of `program`.
/// @param worker    what the worker does; its result is its exit status
/// @param aftermath called in the guard when the worker was killed or failed
/// @return the worker's exit status; EX_OK when another `program` lives already, which
///         goes on; EX_SOFTWARE when the worker was killed
int guard(const std::string& program, const std::function<int()>& worker, const std::function<void()>& aftermath);

} // namespace velarix::keeper
