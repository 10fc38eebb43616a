/// The rest of the made-up machine: what its processes have beyond their names,
/// its network's answers, the passing of time and what a hand-over does to it.
/// `freshHost` makes it quiet again: nothing answers, nothing happens.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "inspect/HostActions.h"

struct FakeMachine
{
	std::map<pid_t, std::chrono::system_clock::time_point> starts;
	/// Processes that are there, but that /proc does not show to this user.
	std::set<pid_t> hidden;
	/// Where the standard output of these processes goes; nobody knows of others.
	std::map<pid_t, std::string> outputs;
	/// Reported for these paths; no other file has a time.
	std::map<std::string, std::chrono::system_clock::time_point> changed;
	/// Addresses that answer pings.
	std::set<std::string> answering;

	/// Moves with each pause and each ping.
	std::chrono::milliseconds elapsed{};
	/// Called at each pause, after the time has moved.
	std::function<void(std::chrono::milliseconds)> onPause;

	/// Command lines that were run without a network, and "SIGNAL PID" sent.
	std::vector<std::string> acts;
	velarix::inspect::host::CommandEnd commandEnd = velarix::inspect::host::CommandEnd::ended;
	/// Called for each of the acts.
	std::function<void(const std::string&)> onAct;
};

/// @return the one of this test program
FakeMachine& fakeMachine();
