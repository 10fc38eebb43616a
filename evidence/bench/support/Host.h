/// What a benchmark needs around the daemon's code: settings, run-info record, log.
#pragma once

#include <string>
#include <vector>

namespace bench
{

/// The port on which the benchmarks' node listens.
inline constexpr unsigned short kPort = 7001;

/// Writes a settings file with these programs and a run-info record into the
/// sandbox, and opens the daemon's log there.
/// @throws std::runtime_error without a sandbox, or when a file cannot be written
void furnishHost(const std::vector<std::string>& programs);

/// Sets how many of the programs are configured, in memory.
void configurePrograms(int number);

} // namespace bench
