/// Readiness of a database beside the managed programs. The daemon ships the
/// waiting loop and a check that always succeeds. Not called by the daemon.
#pragma once

#include "velarix/velarix.h"

/// Waits for the database, asking once a second, a hundred times at most.
/// @return true as soon as DBFileCheck is true, false after the last try
bool isDBOn(MODE* pMode);

/// The place for a real database check (DatabaseCheck.cpp).
/// @return true
bool DBFileCheck(MODE* pMode);
