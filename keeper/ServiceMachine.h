/// The states of a supervised service. A pure function, as AddressMachine.h.
///
///   WAITING     the address is not held here
///   RUNNING     started; its checks count
///   RESTARTING  died or failed its checks: what is left is ended, then it starts again
///   STOPPING    the address has gone: TERM, KILL after stop_timeout, then WAITING
///   ENDING      asked to end: the same, then ENDED
///   FAILING     died too often: the same, then ENDED with `failed`
///   ENDED       nothing is left, the supervisor exits
///
/// What each event does in each state is one table, at the end of ServiceMachine.cpp.
#pragma once

#include <cstdint>
#include <deque>

#include "keeper/AddressMachine.h"

namespace velarix::keeper
{

enum class ServiceState : std::uint8_t
{
	waiting,
	running,
	restarting,
	stopping,
	ending,
	failing,
	ended
};

enum class ServiceEvent : std::uint8_t
{
	held, ///< the address is on this node
	lost, ///< and no more
	died, ///< the main process failed, or could not be started
	gone, ///< nothing of the service is left
	checkOk,
	checkFailed,
	timer,
	stop
};

namespace timing
{
/// Between the end of a service and its next start, times the number of restarts
/// that count: a service that cannot start yet gets a little longer each time.
inline constexpr Millis kRestartDelay = 100;
/// What fails its checks or lost its main process has this long to end by itself.
inline constexpr Millis kRemainsTimeout = 100;
/// Between two KILLs, when there are still processes.
inline constexpr Millis kKillAgain = 200;
} // namespace timing

struct ServiceMachine
{
	int checkFailures = 3;       ///< in a row: as good as dead
	int restarts = 3;            ///< this many ...
	Millis within = 60'000;      ///< ... within this time
	Millis stopTimeout = 20'000; ///< between TERM and KILL

	ServiceState state = ServiceState::waiting;
	bool held = false;
	bool gone = true;    ///< nothing of it is left
	bool failed = false; ///< of ENDED: it died too often
	int failures = 0;    ///< checks failed in a row
	int restarted = 0;   ///< since the supervisor's start
	Millis since = 0;
	Millis timerAt = kNever;
	std::deque<Millis> deaths{}; ///< within `within`
};

struct ServiceActions
{
	bool start = false;
	bool terminate = false;
	bool kill = false;
	bool operator==(const ServiceActions&) const = default;
};

struct ServiceStep
{
	ServiceMachine machine;
	ServiceActions actions;
};

ServiceStep next(ServiceMachine machine, ServiceEvent event, Millis now);

const char* nameOf(ServiceState state);

} // namespace velarix::keeper
