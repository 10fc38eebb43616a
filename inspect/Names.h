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

} // namespace velarix::inspect
