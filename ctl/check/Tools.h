/// Where the agent and its commands find what they call.
#pragma once

#include <filesystem>
#include <string>

#include "inspect/Paths.h"

namespace velarix::ctl::checks
{

using namespace inspect;

bool isExecutable(const std::filesystem::path& file);

/// @param tool its name or its path
/// @return its file, as this system reaches it; empty when it is not there
std::filesystem::path toolPath(const Paths& paths, const std::string& tool);

} // namespace velarix::ctl::checks
