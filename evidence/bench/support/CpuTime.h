/// The clock of the benchmarks.
#pragma once

/// @return the processor time in seconds that this process and the children it
///         has waited for have used. Unlike the time on the wall it does not count
///         what other programs of a busy machine take meanwhile.
double cpuSeconds();
