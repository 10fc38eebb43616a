/// The waits that the agent prescribes, by name, and sums of them. Every bound of
/// the matrix is such a sum, so it follows the settings of the pair.
#pragma once

#include <string>
#include <string_view>

#include "lab/core/Basics.h"
#include "lab/core/NodeSettings.h"

namespace velarix::lab
{

/// One name and what it stands for, for the tables and the documents.
struct FixedWait
{
	const char* name;
	const char* what;
	Millis (*length)(const PairSettings& times);
};

/// @return the wait of that name; null when there is none
const FixedWait* waitNamed(std::string_view name);

/// Adds up an expression such as "silence+2*ping+count".
/// @throws LabError naming the word that is no wait
Millis sumOf(std::string_view expression, const PairSettings& times);

/// "silence 3 s + 2 * ping 1 s + count 5 s", for the reports.
std::string explained(std::string_view expression, const PairSettings& times);

} // namespace velarix::lab
