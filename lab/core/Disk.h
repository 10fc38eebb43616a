/// The disk of a node: the upper directory of its overlay on /usr.
#pragma once

#include <filesystem>
#include <string>

#include "lab/core/Programs.h"

namespace velarix::lab
{

/// Fills a new disk at `disk`: the installed tree below /usr, the managed
/// service, a log directory, no settings file. What an agent that is really
/// installed on this machine has written (settings, log, pid file) does not
/// shine through.
/// @throws LabError when the installed tree lacks something the agent needs
void prepareDisk(const std::filesystem::path& disk, const Programs& programs);

/// Leaves the disk no room for another byte, or gives it all its room back.
/// @throws LabError
void setFull(const std::filesystem::path& disk, bool full);

/// The file that the node knows as `path`, which begins with "/usr/".
std::filesystem::path fileOnDisk(const std::filesystem::path& disk, const std::string& path);

} // namespace velarix::lab
