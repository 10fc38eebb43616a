/// The verbs of the program, one source file each. A verb adds its subcommand
/// with options, and a callback that puts what it does into Context::action.
#pragma once

#include <vector>

#include <CLI/App.hpp>

#include "Context.h"

namespace velarix::ctl
{

using AddVerb = void (*)(CLI::App&, Context&);

/// In the order of the help text: a node's life from its installation on.
inline const std::vector<AddVerb> kVerbs{};

} // namespace velarix::ctl
