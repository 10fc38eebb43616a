/// The scripted stand-in for src/net/DatabaseCheck.cpp: the same symbol.
#pragma once

#include "velarix/velarix.h"

namespace fakedatabase
{

/// The check fails this many times from now on and succeeds then. Each check is
/// recorded as the event "database check".
void failTimes(int times);
/// @return the pointer that the last check was given
MODE* lastMode();

} // namespace fakedatabase
