/// Running the registered benchmarks in a sandbox.
#pragma once

/// Takes the library's options, runs what is registered and writes the results to
/// the file of --benchmark_out alone: standard output belongs to the daemon's echo.
/// @return 0, or 1 when an option is unknown, nothing was run or a run failed
int runBenchmarks(int argc, char** argv);

/// The whole of a benchmark program: `body` in a sandbox, its exceptions told on
/// standard error.
/// @return the exit status
int runInSandbox(int argc, char** argv, int (*body)(int, char**));
