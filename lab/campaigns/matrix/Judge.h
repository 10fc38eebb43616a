/// Comparing what happened with what was written down.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/campaigns/matrix/MatrixTimes.h"
#include "lab/campaigns/matrix/Record.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab
{

/// How a leg differs from what was expected; empty: it does not.
std::vector<std::string> differencesOf(const LegRecord& leg, const Outcome& expected,
                                       const std::map<std::string, Path>& paths, const MatrixTimes& times);

/// Fills in the differences of the record's legs, and those of the whole run.
void judge(RunRecord& record, const Cell& cell, const std::map<std::string, Path>& paths, const MatrixTimes& times);

} // namespace velarix::lab
