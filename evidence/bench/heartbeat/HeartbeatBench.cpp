// A heartbeat from end to end, a log line and the run-info record, each beside the
// library's bare calls.
//
//   velarix-bench-heartbeat [options of Google Benchmark]
//   velarix-bench-heartbeat --calls      each contender between two marks, for strace
//
// Contenders are named STEP/agent, STEP/library and so on, see Steps.h. The time is
// that of "runs" runs of the step; "allocations" are those of one.

#include <cstring>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Allocations.h"
#include "Aside.h"
#include "CpuTime.h"
#include "Host.h"
#include "RunBenchmarks.h"
#include "Sandbox.h"
#include "Steps.h"

namespace
{

/// A repetition is short, so that the contenders take turns within milliseconds: what
/// else the machine does meanwhile meets all of them.
constexpr int kIterations = 2;
constexpr int kCalls = 10;

void repeat(const std::function<void()>& action, int times)
{
	for (int i = 0; action && i < times; ++i)
	{
		action();
	}
}

void measure(benchmark::State& state, const Step& step, const std::function<void()>& contender)
{
	unsigned long allocated = 0;
	for (auto iteration : state)
	{
		repeat(step.prepare, step.batch);
		const aside::Taken aside = aside::taken();
		const unsigned long before = allocations();
		const double start = cpuSeconds();
		repeat(contender, step.batch);
		const double seconds = cpuSeconds() - start;
		state.SetIterationTime(seconds - (aside::taken().seconds - aside.seconds));
		allocated += allocations() - before - (aside::taken().allocations - aside.allocations);
		repeat(step.finish, step.batch);
	}
	state.counters["runs"] = step.batch;
	state.counters["allocations"] =
	    static_cast<double>(allocated) / static_cast<double>(state.iterations()) / step.batch;
}

void showCalls(const Step& step, const Contender& contender)
{
	// The first ones make what is made once.
	for (int i = 0; i < kCalls; ++i)
	{
		repeat(step.prepare, 1);
		aside::mark((i == kCalls - 1 ? "begin " : "warm-up ") + step.name + "/" + contender.name);
		contender.run();
		aside::mark("end");
		repeat(step.finish, 1);
	}
}

void add(const Step& step, const Contender& contender)
{
	benchmark::RegisterBenchmark((step.name + "/" + contender.name).c_str(),
	                             [&](benchmark::State& state) { measure(state, step, contender.run); })
	    ->Iterations(kIterations)
	    ->UseManualTime()
	    ->Unit(benchmark::kMicrosecond);
}

void forEach(const std::vector<Step>& steps, void (*action)(const Step&, const Contender&))
{
	for (const Step& step : steps)
	{
		for (const Contender& contender : step.contenders)
		{
			action(step, contender);
		}
	}
}

void sendConsoleNowhere()
{
	const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
	if (nowhere == -1 || ::dup2(nowhere, STDOUT_FILENO) == -1)
	{
		throw std::runtime_error("standard output cannot be thrown away");
	}
}

int body(int argc, char** argv)
{
	bench::furnishHost({"mariadbd", "nginx", "haproxy"});
	sandbox::addInterface("eth1", true);
	sendConsoleNowhere();
	const std::vector<Step> steps = makeSteps();
	if (argc == 2 && std::strcmp(argv[1], "--calls") == 0)
	{
		aside::showMarks();
		forEach(steps, showCalls);
		return 0;
	}
	forEach(steps, add);
	return runBenchmarks(argc, argv);
}

} // namespace

int main(int argc, char** argv)
{
	return runInSandbox(argc, argv, body);
}
