/// The programs a lab runs, and whether this machine can run a lab at all.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

struct Programs
{
	std::filesystem::path installRoot; ///< the tree that holds usr/velarix; "/" for this machine's own
	std::filesystem::path init;        ///< velarix-lab-init
	std::filesystem::path service;     ///< labhttpd
	std::filesystem::path clockShim;   ///< liblabclock.so
};

/// The lab's own programs as built, and the agent: below `installRoot`, or when
/// that is empty as staged by the build, or else as installed on this machine.
/// @throws LabError in plain words when one is missing
Programs findPrograms(const std::filesystem::path& installRoot = {});

/// @throws LabError naming every tool that is missing on this machine, and its package
void requireTools();

/// Tries the namespaces and mounts a lab needs, without leaving anything.
/// @return why they cannot be had, beginning with "namespaces unavailable";
///         empty when they can
std::optional<std::string> namespaceProblem();

} // namespace velarix::lab
