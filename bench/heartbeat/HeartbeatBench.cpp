// A heartbeat from end to end, a log line and the run-info record, each beside the
// library's bare calls.
//
//   velarix-bench-heartbeat [options of Google Benchmark]
//   velarix-bench-heartbeat --calls      each contender between two marks, for strace
//
// Contenders are named STEP/agent, STEP/library and, where the agent has been made
// faster, STEP/earlier. The time is that of "runs" runs of
// the step; "allocations" are those of one.

#include <cstring>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Allocations.h"
#include "CpuTime.h"
#include "Host.h"
#include "RunBenchmarks.h"
#include "Sandbox.h"
#include "Steps.h"

// The receiver's pause between two reads.
extern "C" void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long milliseconds);
extern "C" void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long /*milliseconds*/)
{
}

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
		const unsigned long before = allocations();
		const double start = cpuSeconds();
		repeat(contender, step.batch);
		state.SetIterationTime(cpuSeconds() - start);
		allocated += allocations() - before;
		repeat(step.finish, step.batch);
	}
	state.counters["runs"] = step.batch;
	state.counters["allocations"] =
	    static_cast<double>(allocated) / static_cast<double>(state.iterations()) / step.batch;
}

/// Something that strace shows and that does nothing.
void mark(const std::string& text)
{
	if (::write(-1, text.data(), text.size()) != -1)
	{
		throw std::runtime_error("a mark was written somewhere");
	}
}

void showCalls(const Step& step, const std::string& name, const std::function<void()>& contender)
{
	// The first ones make what is made once.
	for (int i = 0; i < kCalls; ++i)
	{
		repeat(step.prepare, 1);
		mark((i == kCalls - 1 ? "begin " : "warm-up ") + step.name + "/" + name);
		contender();
		mark("end");
		repeat(step.finish, 1);
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
	sandbox::addCard("eth1", true);
	sendConsoleNowhere();
	const std::vector<Step> steps = makeSteps();
	if (argc == 2 && std::strcmp(argv[1], "--calls") == 0)
	{
		for (const Step& step : steps)
		{
			showCalls(step, "agent", step.agent);
			showCalls(step, "library", step.library);
		}
		return 0;
	}
	for (const Step& step : steps)
	{
		const auto add = [&step](const char* name, const std::function<void()>& contender)
		{
			if (!contender)
			{
				return;
			}
			benchmark::RegisterBenchmark((step.name + "/" + name).c_str(), [&step, contender](benchmark::State& state)
			                             { measure(state, step, contender); })
			    ->Iterations(kIterations)
			    ->UseManualTime()
			    ->Unit(benchmark::kMicrosecond);
		};
		add("agent", step.agent);
		add("library", step.library);
		add("earlier", step.earlier);
	}
	return runBenchmarks(argc, argv);
}

} // namespace

int main(int argc, char** argv)
{
	return runInSandbox(argc, argv, body);
}
