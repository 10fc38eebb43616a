/// What the keeper's processes live by: their loop, what they know of each other, and what they report.
///
/// What they know of each other, in /run/velarix-ha:
///
///   PROGRAM.lock    held while PROGRAM lives: byte 0 by its guard, byte 1 by its worker
///                   (Guard.h). The kernel releases it with the process and names the
///                   holder, so that there are no stale pid files
///   PROGRAM.state   lines "key=value", replaced as a whole; last written by a worker
///
/// They report to the system's journal, and to a log whose lines "velarixctl events" puts beside
/// the agent's: TIME PROGRAM[PID] EVENT: DETAIL
///
///   2026-11-22T04:40:01.123+0100 ha-address[417] raised: 192.0.2.100 on eth0
///
/// TIME is local with its offset, EVENT one word. The log may be cut at any time
/// (logrotate's copytruncate). Events of ha-address: started, waiting, raised, lowered,
/// conflict, yielded, stalled, removed, offline, stopped, failed; of services: started,
/// running, died, restarted, check-failed, stopping, stopped, failed; of ha-reach: started,
/// target-found, target-lost, target-back, reachable, shared-outage, partner-only,
/// handing-over, isolated, removed, stopped, failed; of all: killed.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <csignal>
#include <sys/epoll.h>
#include <sys/types.h>

#include "inspect/Descriptor.h"
#include "keeper/AddressMachine.h"

namespace velarix::keeper
{

using inspect::Descriptor;

/// @return CLOCK_BOOTTIME
Millis now();

/// Blocks the signals of the loop for this process.
/// @return SIGTERM, SIGINT, SIGHUP and SIGCHLD
sigset_t blockSignals();

/// One turn after the other: waits for descriptors, for signals and for a point in time.
class Loop
{
public:
	Loop();

	/// Calls `handler` in each turn in which `descriptor` can be read.
	void watch(int descriptor, std::function<void()> handler);
	/// Before a watched descriptor is closed.
	void forget(int descriptor);
	/// Calls `handler` for each signal of blockSignals() that comes.
	void watchSignals(std::function<void(int)> handler);
	/// Sleeps until something can be read or `deadline` has come.
	void wait(Millis deadline);
	/// Calls the handlers of what wait() has found.
	void dispatch();

private:
	Descriptor m_epoll;
	Descriptor m_timer;
	Descriptor m_signals;
	std::map<int, std::function<void()>> m_handlers;
	std::array<epoll_event, 16> m_events{};
	int m_ready = 0;
};

inline constexpr const char* kRuntimeDirectory = "/run/velarix-ha";

enum class Part : std::uint8_t
{
	guard = 0,
	worker = 1
};

/// Makes the directory when it is not there.
void makeRuntimeDirectory();

/// @return the lock of `part`, which this process has until it ends or closes any
///         descriptor of that file; none when another one has it
Descriptor takeLock(const std::string& program, Part part);

/// @return who lives as `part` of `program`; 0 for nobody
pid_t holderOf(const std::string& program, Part part);
/// @return whether neither lives: it has ended, or was killed and may have left something
inline bool hasEnded(const std::string& program)
{
	return holderOf(program, Part::guard) == 0 && holderOf(program, Part::worker) == 0;
}

/// A process that is what it was when it was opened: its number is not used anew.
class LivingProcess
{
public:
	/// Opens the holder of a lock, if there is one.
	LivingProcess(const std::string& program, Part part);

	explicit operator bool() const { return static_cast<bool>(m_descriptor); }
	pid_t pid() const { return m_pid; }
	/// Can be read when it has ended.
	int descriptor() const { return m_descriptor.get(); }
	void signal(int number) const;
	/// @return whether it has ended within `limit`
	bool waitForEnd(Millis limit) const;

private:
	pid_t m_pid = 0;
	Descriptor m_descriptor;
};

using Fields = std::vector<std::pair<std::string, std::string>>;

/// Errors are left to be seen by the next reader: a full disk must not end the holder.
void writeState(const std::string& program, const Fields& fields);
/// @param directory another one for the files of another root
/// @return nothing when there is no such file
Fields readState(const std::string& program, const std::string& directory = kRuntimeDirectory);
void removeState(const std::string& program);
/// @return the value of `key`; empty for none
std::string valueOf(const Fields& fields, const std::string& key);

/// What ha-reach knows of one target: a field "target.ADDRESS" with "STATE SINCE".
struct TargetState
{
	std::string address;
	std::string state;   ///< "answers", "lost" or "unknown"
	long long since = 0; ///< CLOCK_REALTIME in seconds
};

std::vector<TargetState> targetsOf(const Fields& fields);

/// Whether the address is held by this node's ha-address, and when that changes.
class AddressWatch
{
public:
	AddressWatch();

	/// Can be read after anything has changed in the directory.
	int changes() const { return m_inotify.get(); }
	/// Can be read when ha-address has ended; -1 while there is none. New after each look().
	int death() const { return m_holder ? m_holder->descriptor() : -1; }
	/// Takes note of all changes. @return the state of the living ha-address; empty while
	///         there is none or it has not reported yet
	Fields look();

private:
	Descriptor m_inotify;
	std::optional<LivingProcess> m_holder;
};

inline constexpr const char* kEventFile = "/usr/velarix/log/keeper.log";

class Journal
{
public:
	explicit Journal(std::string program) : m_program(std::move(program)) {}

	/// Writes one event. Of one kind at most five in ten seconds are written, and then how
	/// many were not: whoever can cause them cannot fill the disk.
	void event(const std::string& word, const std::string& detail);
	void eventIf(bool happened, const std::string& word, const std::string& detail)
	{
		happened ? event(word, detail) : void();
	}

private:
	struct Count
	{
		Millis since = 0;
		int written = 0;
		int held = 0;
	};

	std::string m_program;
	std::map<std::string, Count> m_counts;
};

/// @return CLOCK_REALTIME in seconds, of a moment of CLOCK_BOOTTIME
long long wallClock(Millis moment);
/// @return as 2026-11-22T04:40:01.123+0100
std::string timeText(long long seconds, int millis);

} // namespace velarix::keeper
