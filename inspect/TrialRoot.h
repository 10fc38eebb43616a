/// The file system around a rehearsal (HostTrial.h).
#pragma once

#include <string>

namespace velarix::inspect::host
{

/// Makes a copy of this machine's files the root directory of the calling process,
/// which must be alone in mount and process namespaces of its own: reads show the
/// real files, writes go to memory, or fail where no overlay is to be had.
/// @return why it cannot be had; empty when it is
std::string enterTrialRoot();

/// Puts `source` in the place of the file `path` of the copy.
/// @return whether `path` is now what `source` is
bool replaceFile(const std::string& source, const std::string& path);

} // namespace velarix::inspect::host
