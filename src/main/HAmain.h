/// What the entry point offers besides main.
#pragma once

#include "velarix/velarix.h"

/// Prints the farewell on standard output, "Good Bye!!! [text]" or without the
/// brackets for a null `text`, and ends the process with status 0.
[[noreturn]] void ExitProgram(const char* text);

/// @return the configured role, "AGENT.MODE": 1 for 1, 2 for every other value
MODE getAgentMode();
