/// Is the simulated world like the real one? The lab's measured figures, cell by cell, beside
/// what the same faults give here.
#pragma once

#include <string>

#include "dev/simulate/World.h"

namespace velarix::simulate
{

/// Compares with the tables of docs/figures/fault-matrix.md: the owner, and whether the lab's
/// outages lie among those of `runs` schedules here, or at most 150 ms beside them.
/// @param report gets a line for each phase of each cell
/// @return how many phases differ
int validate(const std::string& file, Profile profile, int runs, std::ostream& report);

} // namespace velarix::simulate
