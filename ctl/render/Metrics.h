/// A node's state as Prometheus metrics. What is not known is left out, but for
/// the role, whose samples are all zero then.
#pragma once

#include <string>

#include "ctl/status/Counters.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"

namespace velarix::ctl
{

/// @param counters without a moment are left out
std::string metricsText(const NodeState& state, const Judgement& judgement, const Counters& counters);

} // namespace velarix::ctl
