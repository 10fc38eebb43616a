/// The headers that nearly every test of the daemon includes, precompiled for all of them.
#pragma once

#include "Daemon.h"
#include "WorkerAccess.h"
