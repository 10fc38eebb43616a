/// When the log was begun, which decides when it is renamed and deleted.
#pragma once

#include <filesystem>

#include "ctl/check/Findings.h"

namespace velarix::ctl::checks
{

/// Reports a log that was begun in the future.
void logBeginning(Findings& findings, const std::filesystem::path& log);

} // namespace velarix::ctl::checks
