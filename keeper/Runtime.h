/// What the keeper's processes know of each other: /run/velarix-ha.
///
///   PROGRAM.lock    held while PROGRAM lives: byte 0 by its guard, byte 1 by its worker
///                   (Guard.h). The kernel releases it with the process and names the
///                   holder, so that there are no stale pid files
///   PROGRAM.state   lines "key=value", replaced as a whole; last written by a worker
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "keeper/Loop.h"

namespace velarix::keeper
{

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

} // namespace velarix::keeper
