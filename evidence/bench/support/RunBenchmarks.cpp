#include "RunBenchmarks.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

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
	void ReportRuns(const std::vector<Run>& runs) override
	{
		for (const Run& run : runs)
		{
			if (const std::string error = errorOf(run); !error.empty())
			{
				std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), error.c_str());
				m_failed = true;
			}
		}
	}
	bool failed() const { return m_failed; }

private:
	/// Newer versions of the library have another name for it.
	template <typename AnyRun> static std::string errorOf(const AnyRun& run)
	{
		if constexpr (requires { run.error_occurred; })
		{
			return run.error_occurred ? run.error_message : std::string();
		}
		else
		{
			return run.skip_message;
		}
	}

	bool m_failed = false;
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
	return benchmark::RunSpecifiedBenchmarks(&reporter) == 0 || reporter.failed() ? 1 : 0;
}

int runInSandbox(int argc, char** argv, int (*body)(int, char**))
{
	g_body = body;
	return sandbox::run(argc, argv, runGuarded);
}
