/// How the daemon ends itself when it cannot go on. Other ends are: a pid file that cannot
/// be opened (HAmain.cpp), and an exception that leaves main.
#pragma once

namespace velarix
{

/// Ends the process with the C library's own assertion report on standard
/// error and SIGABRT, in every build type: an operator's scripts search for
/// that line, so it must not vanish from an optimised build.
///
/// @param expression the condition that does not hold, as it is to be printed
/// @param source     the source label (file name without directory and ending)
/// @param line       the fixed line number that goes with the condition
/// @param function   the function's full signature
[[noreturn]] void fatal(const char* expression, const char* source, unsigned line, const char* function);

} // namespace velarix
