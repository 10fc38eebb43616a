/// The run-info record: when this node last started its programs.
#pragma once

namespace velarix::inspect
{

inline constexpr char kLastRunTime[] = "TRACE.LAST_RUN_TIME";
inline constexpr char kMasterLastRunTime[] = "TRACE.MASTER_LAST_RUN_TIME";
inline constexpr char kSlaveLastRunTime[] = "TRACE.SLAVE_LAST_RUN_TIME";

/// The record as it is installed: the section and its three keys, no times. The
/// agent edits it in place and never makes it.
inline constexpr char kInitialRunInfo[] = "[TRACE]\n"
                                          "LAST_RUN_TIME = \n"
                                          "MASTER_LAST_RUN_TIME = \n"
                                          "SLAVE_LAST_RUN_TIME = \n";

} // namespace velarix::inspect
