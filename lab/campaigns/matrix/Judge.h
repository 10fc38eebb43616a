/// Comparing what happened with what was written down.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/campaigns/Record.h"
#include "lab/campaigns/Times.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab::matrix
{

/// How a phase differs from what was expected; empty: it does not.
std::vector<std::string> differencesOf(const PhaseRecord& phase, const Outcome& expected,
                                       const std::map<std::string, Path>& paths, const CampaignTimes& times);

/// Fills in the differences of the record's phases, and those of the whole run.
void judge(RunRecord& record, const Cell& cell, const std::map<std::string, Path>& paths, const CampaignTimes& times);

} // namespace velarix::lab::matrix
