#include "RunBenchmarks.h"

#include <cstdio>
#include <exception>
#include <fstream>

#include <benchmark/benchmark.h>

#include "Sandbox.h"

namespace
{

int (*g_body)(int, char**) = nullptr;

/// Standard output is the daemon's console.
class SilentReporter : public benchmark::BenchmarkReporter
{
public:
	bool ReportContext(const Context& /*context*/) override { return true; }
	void ReportRuns(const std::vector<Run>& /*runs*/) override {}
};

int runGuarded(int argc, char** argv)
{
	try
	{
		return g_body(argc, argv);
	}
	catch (const std::exception& exc)
	{
		std::fprintf(stderr, "%s: %s\n", argv[0], exc.what());
		return 2;
	}
}

} // namespace

int runBenchmarks(int argc, char** argv)
{
	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv))
	{
		return 1;
	}
	SilentReporter reporter;
	return benchmark::RunSpecifiedBenchmarks(&reporter) == 0 ? 1 : 0;
}

int runInSandbox(int argc, char** argv, int (*body)(int, char**))
{
	g_body = body;
	return sandbox::run(argc, argv, runGuarded);
}
