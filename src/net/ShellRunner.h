/// The shell runner: the only way to the operating system's tools.
#pragma once

#include <string>

/// Result of shellCommand when the command could not be started.
inline constexpr char kShellError[] = "velarixErr";

/// Runs `command` in a shell and waits for the end of its output, without a
/// time limit.
/// @return the whole standard output, every line (or piece of 255 bytes of a
///         longer one) followed by one extra line feed; kShellError, after a
///         pause of one second, when the command could not be started. A command
///         that starts and fails is not told apart: its output counts.
std::string shellCommand(std::string& command);
