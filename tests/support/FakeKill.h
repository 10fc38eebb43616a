/// The scripted stand-in for src/process/Kill.cpp: the same symbols. The
/// production kill cannot fail, so this is the way to its callers' failure paths.
#pragma once

#include <functional>

namespace fakekill
{

/// Result of each kill of the managed programs from now on.
void killGives(bool result);
/// From now on a kill of the managed programs calls `thrower`, which throws.
void killThrows(std::function<void()> thrower);

} // namespace fakekill
