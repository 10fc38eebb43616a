/// Maintenance: an administrator works on the node, and nothing fails over or is
/// restarted meanwhile. The service goes on.
///
/// The agent is stopped by a signal (SIGSTOP), and so is what watches the services
/// for the keeper; the address stays watched. A record on the disk tells it to
/// everybody, and outlives a reboot: the service script starts no agent before the
/// maintenance is over or its time has passed.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "inspect/HostProcesses.h"

namespace velarix::ctl
{

using namespace inspect;

struct Maintenance
{
	std::chrono::system_clock::time_point since;
	/// After it somebody has forgotten to end it.
	std::chrono::system_clock::time_point until;
	/// One line, as it was typed; may be empty.
	std::string reason;

	/// @return "since ... until ...: REASON", local times
	std::string words() const;
};

/// @return what the record tells; nothing without one
/// @throws Failure noInput for a record that cannot be read, settings for one without times
std::optional<Maintenance> readMaintenance(const std::filesystem::path& record);

/// @throws Failure as replaceFile
void writeMaintenance(const std::filesystem::path& record, const Maintenance& maintenance);

/// @return the keeper's processes that start services again, one for each service that
///         runs here, whatever the settings say now
std::vector<host::Process> serviceWatchers();

} // namespace velarix::ctl
