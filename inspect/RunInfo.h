/// The run-info record: when this node last started its programs.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace velarix::inspect
{

inline constexpr char kLastRunTime[] = "TRACE.LAST_RUN_TIME";
inline constexpr char kMasterLastRunTime[] = "TRACE.MASTER_LAST_RUN_TIME";
inline constexpr char kSlaveLastRunTime[] = "TRACE.SLAVE_LAST_RUN_TIME";

/// Each time is local, 14 digits (YYYYMMDDhhmmss), empty before the first
/// start, nothing when the key is not there.
struct RunInfo
{
	std::optional<std::string> lastRun;
	std::optional<std::string> masterLastRun;
	std::optional<std::string> slaveLastRun;
};

/// @throws Failure noInput or noPermission
RunInfo readRunInfo(const std::filesystem::path& path);

/// The record as it is installed: the section and its three keys, no times. The
/// agent edits it in place and never makes it.
extern const char kInitialRunInfo[];

} // namespace velarix::inspect
