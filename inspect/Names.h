/// Names that the agent and the kernel fix, and no setting changes.
#pragma once

#include <cstddef>
#include <string_view>

namespace velarix::inspect
{

/// The agent's program, as its process is called.
inline constexpr std::string_view kAgentName = "VelarixHA";
inline constexpr std::string_view kAgentFile = "/usr/velarix/bin/VelarixHA";

/// The interface that carries the virtual address, and the one of the heartbeats. The
/// agent knows no others.
inline constexpr char kServiceInterface[] = "eth0";
inline constexpr char kCommunicationInterface[] = "eth1";

/// Characters that the kernel keeps of a program's file name.
inline constexpr std::size_t kProcessNameLength = 15;

/// The run-info record: when this node last started its programs.
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
