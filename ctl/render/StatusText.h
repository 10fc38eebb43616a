/// A node's state as a person reads it.
#pragma once

#include <string>

#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

/// One row for each figure, its age in brackets behind it, and what is wrong.
std::string statusText(const NodeState& state, const Judgement& judgement, bool colour);

} // namespace velarix::ctl
