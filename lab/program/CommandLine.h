/// The commands of velarix-lab. Each is added to the program with its options, and writes its exit
/// status to `status` when it is carried out.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "lab/core/NodeSettings.h"

namespace velarix::lab::program
{

/// The options of every command that makes a pair: the installed tree and the waits.
void addLabOptions(CLI::App& command, std::string& installRoot, PairSettings& times);
/// Those for a pair that is kept running: up, down, status, exec, inject, repair, timeline.
void addPairCommands(CLI::App& app, int& status);

// The commands that run many pairs. They end with 0 when everything was as expected, else with 1.

/// Injects every fault into pairs and compares what happens with what was written down before.
void addMatrix(CLI::App& app, int& status);
/// Random faults and repairs, repeatable from a seed.
void addChaos(CLI::App& app, int& status);
/// Attacks on pairs from a third host, and what each mitigation does about them.
void addHostile(CLI::App& app, int& status);

} // namespace velarix::lab::program
