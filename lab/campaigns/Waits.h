/// The waits that the agent prescribes, by name, and sums of them. Every bound of
/// the matrix is such a sum, so it follows the settings of the pair. lab/README.md explains them.
#pragma once

#include <string>

#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace velarix::lab
{

/// Adds up an expression such as "silence+2*ping+count".
/// @throws LabError naming the word that is no wait
Millis sumOf(const std::string& expression, const PairSettings& times);

/// "silence 3 s + 2 * ping 1 s + count 5 s", for the reports.
std::string explained(const std::string& expression, const PairSettings& times);

} // namespace velarix::lab
