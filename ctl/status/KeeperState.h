/// What the keeper's programs say of themselves: /run/velarix-ha/PROGRAM.state, believed as
/// long as the process that wrote it lives.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "inspect/Paths.h"
#include "inspect/SettingsFile.h"
#include "keeper/Runtime.h"

namespace velarix::ctl
{

using namespace inspect;

/// ha-address or a service.
struct KeeperProgram
{
	std::string name;
	bool runs = false;
	/// The keeper's word: holding, waiting, running, ...; "stopped" or "failed" when it does
	/// not run.
	std::string state;
	std::optional<std::chrono::system_clock::time_point> since;
	/// The hardware address of the host that has the virtual address instead of this one.
	std::string holder;
	int conflicts = 0;
	std::optional<std::chrono::system_clock::time_point> lastConflict;
	/// Of a service, since its supervisor's start.
	int restarts = 0;
	/// "ok", "failed 2", "none"
	std::string check;
	/// Why a service died last.
	std::string reason;

	/// @return whether another host has the address
	bool waits() const { return state == "waiting" || state == "yielded"; }
};

/// ha-reach, with what it knows of its targets.
struct KeeperReach
{
	KeeperProgram program;
	/// "ready", "reaches", "fails", "silent", "unknown"
	std::string partner;
	std::vector<keeper::TargetState> targets;

	/// @return the targets that do not answer, "192.0.2.1, 192.0.2.2"
	std::string lost() const;
};

struct KeeperState
{
	KeeperProgram address;
	std::vector<KeeperProgram> services;
	/// Without a [reachability] nothing.
	std::optional<KeeperReach> reach;
	bool marked = false; ///< the marker is there
};

/// @return nothing when the settings do without the keeper
std::optional<KeeperState> lookForKeeper(const SettingsFile& settings, const Paths& paths);

/// @return the address's state as one sentence, without its time
std::string addressSentence(const KeeperProgram& address);

} // namespace velarix::ctl
