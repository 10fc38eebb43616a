/// The fixed files of the daemon. None of them is configurable.
#pragma once

namespace velarix
{

/// Settings, read once at the first use.
inline constexpr char kSettingsPath[] = "/usr/velarix/bin/ini/config.ini";
/// The daemon's process id as bare decimal digits; never removed.
inline constexpr char kPidPath[] = "/usr/velarix/pid/VelarixHA.pid";
/// Generated at every start, run to start the managed programs.
inline constexpr char kRunScriptPath[] = "/usr/velarix/bin/ini/processList.sh";
/// Start times of the managed programs, edited in place, never created.
inline constexpr char kRunInfoPath[] = "/usr/velarix/bin/log/runinfo.txt";

} // namespace velarix
