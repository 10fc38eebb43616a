/// The record of what the code under test did to the outside, in order, and what tests do
/// at such a moment.
///
/// One text per event:
///   log LETTER SOURCE:LINE TEXT     a log line (letter D, I, W, E, C)
///   command COMMAND                 a shell command behind a pipe
///   system COMMAND                  a command run through system()
///   launch PATH                     a program launched directly
///   ping ADDRESS xCOUNT             an echo request burst
///   sleep MILLISECONDS              a wait (not waited in tests)
/// and what the fakes of a program add to it.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace events
{

using List = std::vector<std::string>;
using Action = std::function<void()>;

/// Appends one event, and then runs the actions that wait for it. Safe from several threads.
void add(const std::string& event);
/// Runs the actions that wait for an event which is not recorded.
void announce(const std::string& event);
/// @return whether the calling thread is inside an action
bool isActing();

/// Forgets the recorded events; the actions stay.
void clear();
/// @return all events so far
List all();
/// @return the events that begin with one of the prefixes, in order
List only(const std::vector<std::string>& prefixes);
/// @return the events that begin with none of the prefixes, in order
List without(const std::vector<std::string>& prefixes);
/// @return the lists, one after the other
List join(std::initializer_list<List> lists);

/// From now on `action` runs after each event that begins so. It may change the world (a
/// carrier, a role) or throw, which leaves the code under test there. An empty one: no longer.
void at(const std::string& begin, Action action);
/// At the n-th such event from now on alone. The test fails when it does not come.
void atNth(int n, const std::string& begin, Action action);
/// `observer` gets every event; an empty one ends that.
void observe(std::function<void(const std::string&)> observer);

template <typename Exception> Action throws(const Exception& exception)
{
	return [exception] { throw exception; };
}

/// Thrown to leave a loop that has no end. Not derived from any exception that the code under
/// test catches by type.
struct EndOfScript
{
};

/// Leaves the code under test (EndOfScript) at the n-th event that begins so.
inline void endAt(int n, const std::string& begin)
{
	atNth(n, begin, throws(EndOfScript{}));
}

/// For death tests: a fatal condition writes the events from now on to standard error, behind
/// kTold and directly before its report.
void tellAtTheEnd();
void tell();
inline constexpr char kTold[] = "all that happened:\n";

/// A fake forgets its script before each test of the daemon.
/// @return true, for the constant whose initialisation calls this
bool resetForEachTest(std::function<void()> reset);
/// Forgets events, actions and scripts.
/// @return what never came of what atNth waited for
List reset();

/// To the test's end the clock shows `seconds` since 1970, local time being UTC.
void stopClock(std::time_t seconds);

} // namespace events
