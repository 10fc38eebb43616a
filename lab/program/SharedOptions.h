/// Command line options that several programs of the lab have.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "lab/campaigns/Campaign.h"
#include "lab/core/NodeSettings.h"

namespace velarix::lab::program
{

/// The options of every command that makes a pair: the installed tree and the waits.
void addLabOptions(CLI::App& command, std::string& installRoot, PairSettings& times);

/// The options of every command that ends with a report.
void addReportOptions(CLI::App& command, ReportOptions& report);

/// The options of every command that runs many pairs.
void addCampaignOptions(CLI::App& command, CampaignOptions& campaign);

} // namespace velarix::lab::program
