/// monit on a node of a lab: told to look at what the agent looks at.
///
/// As the other peers it is started in the hosts of a lab and nowhere else. It
/// moves no address: it only watches, and beside it nobody would take over.
#pragma once

#include <string>

#include "evidence/Lab.h"
#include "lab/core/Lab.h"

namespace velarix::evidence::idle
{

inline constexpr const char* monitLog = "/run/monit.log";

/// The settings: the managed program, a ping of the gateway and the carrier of both
/// cards, looked at every so many seconds. No mail, no web server.
std::string monitSettings(int seconds);

/// @throws LabError naming the Debian package when monit is not installed
void requireMonit();

/// Starts monit on the node, in all its namespaces, and waits until it runs.
/// @throws LabError when it does not start
void startMonit(Lab& lab, HostId node, int seconds);

} // namespace velarix::evidence::idle
