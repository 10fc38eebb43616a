/// Is the simulated world like the real one? The lab's measured figures, cell by cell, beside
/// what the same faults give here.
#pragma once

#include <string>

#include "dev/simulate/World.h"

namespace velarix::simulate
{

/// Compares with the tables of docs/figures/fault-matrix.md. A phase agrees when all of `runs` schedules
/// end with the lab's owner, and the lab's median outage is at most 150 ms beside what medians of
/// as many schedules are. Left out are loss and delay on the service network (what a client loses
/// is not simulated), faults that are not, and cells whose first phase the lab calls unsteady.
/// @param report gets a line for each phase of each cell
/// @return how many of the twenty cells that have to agree do not
int validate(const std::string& file, Profile profile, int runs, std::ostream& report);

} // namespace velarix::simulate
