/// When a run strikes: it follows from the seed, the cell and the number of the run.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab
{

/// The name of the cell takes part, so that cells of one seed are not all struck
/// in the same moment of a pass.
std::uint64_t seedOfRun(std::uint64_t seed, int run, const std::string& cell);

/// Sleeps a part of `longest`, drawn evenly: a fault comes at any moment of a pass.
void waitForJitter(std::mt19937_64& random, Millis longest);

} // namespace velarix::lab
