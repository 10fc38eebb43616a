/// The programs of a node, as the world runs them: the agent, the keeper's, the managed one.
#pragma once

#include <string>

#include "dev/simulate/World.h"

namespace velarix::simulate
{

/// The settings of the lab's pair, for the agent and for the keeper.
void writeSettings(Node& node, Profile profile);

/// The agent's main function, within a task.
void runAgent();

/// A command of the settings, within the task that waits for it.
/// @return what it prints
std::string runCommand(const std::string& command);

/// The settings' programs, each in the background.
void runScript();

/// @return null for none of that number
Process* processOf(const Node& node, int pid);

keeper::Mac macOf(Host host);

/// Of the keeper's service.
inline constexpr Micros kStopTimeout = 2 * kSecond;

/// Descriptors that no kernel has given, of ha-reach: the partner's datagrams, and answers of each
/// network's gateway.
inline constexpr int kPartnerFile = 1'000'000'004;
inline constexpr int kEchoFile = 1'000'000'005;

} // namespace velarix::simulate
