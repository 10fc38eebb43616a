/// The programs a lab runs, and whether this machine can run a lab at all.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// Where the agent is installed: the tree that holds usr/velarix, "/" for this machine's own.
/// @param wanted  empty: as staged by the build, or else as installed on this machine
/// @throws LabError in plain words when it is not there
std::filesystem::path findInstallRoot(const std::filesystem::path& wanted = {});

/// @throws LabError naming every tool that is missing on this machine, and its package, or a program of
///         the lab's own
void requireTools();

/// Tries the namespaces and mounts a lab needs, without leaving anything.
/// @return why they cannot be had, beginning with "namespaces unavailable";
///         empty when they can
std::optional<std::string> namespaceProblem();

} // namespace velarix::lab
