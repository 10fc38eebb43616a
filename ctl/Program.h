/// The whole program but for what Main.cpp takes from the process.
#pragma once

#include <string>
#include <vector>

#include "ctl/Context.h"

namespace velarix::ctl
{

/// Reads the command line and runs the verb it names.
/// @param arguments without the program's name
/// @return the exit status, documented in ExitCode.h
int run(const std::vector<std::string>& arguments, Context& context);

} // namespace velarix::ctl
