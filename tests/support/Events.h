/// The record of what the code under test did to the outside, in order.
///
/// One text per action:
///   log LETTER SOURCE:LINE TEXT     a log line (letter D, I, W, E, C)
///   command COMMAND                 a shell command behind a pipe
///   system COMMAND                  a command run through system()
///   launch PATH                     a program launched directly
///   ping ADDRESS xCOUNT             an echo request burst
///   sleep MILLISECONDS              a wait (not waited in tests)
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace events
{

using List = std::vector<std::string>;

void clear();
/// Appends one event. Safe from several threads.
void add(const std::string& event);
/// @return all events so far
List all();
/// @return the events that begin with one of the prefixes, in order
List only(const std::vector<std::string>& prefixes);
/// @return the events that begin with none of the prefixes, in order
List without(const std::vector<std::string>& prefixes);

/// Thrown out of a wait to leave a loop that has no end. Not derived from any
/// exception that the code under test catches by type.
struct EndOfScript
{
};

/// Called with the milliseconds of each wait after it was recorded; the default
/// does nothing. Reset by clear.
void onSleep(std::function<void(long)> handler);
/// Leaves the code under test (EndOfScript) at the n-th wait, counted from 1.
void endAtSleep(int n);

/// A fake forgets its script before and after each test of the daemon.
/// @return true, for the constant whose initialisation calls this
bool resetForEachTest(std::function<void()> reset);
void resetFakes();

} // namespace events
