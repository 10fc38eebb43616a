// One check of the managed processes beside the tools that administrators know and
// the least that any such check must do.
//
//   velarix-bench-check PROCESSES [options of Google Benchmark]
//
// Contenders are named NAME/PROGRAMS: "agent", "floor", "streams", "pgrep" and "pidof",
// and the tools once more with nobody to look at ("pgrep-alone", "pidof-alone"). What
// the second takes less than the first is the tool's own scan.

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <benchmark/benchmark.h>

#include "CpuTime.h"
#include "Floor.h"
#include "Host.h"
#include "RunBenchmarks.h"
#include "Tools.h"
#include "Utill.h"

namespace
{

/// What a service may consist of; no name is part of another one.
const std::vector<std::string> kPrograms = {"mariadbd", "nginx",     "haproxy", "dovecot", "exim4",
                                            "named",    "memcached", "squid",   "slapd",   "rsyncd"};

template <typename Run> void measure(benchmark::State& state, Run run)
{
	for (auto iteration : state)
	{
		const double start = cpuSeconds();
		const bool good = run();
		state.SetIterationTime(cpuSeconds() - start);
		if (!good)
		{
			state.SkipWithError("the answer is wrong");
			break;
		}
	}
}

template <typename Run> void contend(const std::string& name, int programs, Run run)
{
	benchmark::RegisterBenchmark((name + "/" + std::to_string(programs)).c_str(),
	                             [programs, run](benchmark::State& state)
	                             {
		                             bench::configurePrograms(programs);
		                             measure(state, run);
	                             })
	    ->UseManualTime()
	    ->Unit(benchmark::kMicrosecond);
}

std::vector<std::string> pgrepWords(int programs)
{
	std::string pattern;
	for (int i = 0; i < programs; ++i)
	{
		pattern += (i > 0 ? "|" : "") + kPrograms[static_cast<std::size_t>(i)];
	}
	return {"/usr/bin/pgrep", "-c", pattern};
}

std::vector<std::string> pidofWords(int programs)
{
	std::vector<std::string> words = {"/bin/pidof"};
	words.insert(words.end(), kPrograms.begin(), kPrograms.begin() + programs);
	return words;
}

void contendWithTool(const std::string& name, int programs, const std::vector<std::string>& words, const Place& crowd,
                     const Place& alone)
{
	contend(name, programs, [words, crowd] { return runTool(crowd, words); });
	contend(name + "-alone", programs, [words, alone] { return !runTool(alone, words); });
}

/// All of them have to find the same processes, and no more of them than there are.
void compareAnswers(int programs, const Place& crowd)
{
	const int counted = std::atoi(outputOf(crowd, pgrepWords(programs)).c_str());
	std::istringstream listed(outputOf(crowd, pidofWords(programs)));
	const auto found = std::distance(std::istream_iterator<long>(listed), std::istream_iterator<long>());
	if (counted != programs || found != programs)
	{
		throw std::runtime_error("pgrep finds " + std::to_string(counted) + " processes and pidof " +
		                         std::to_string(found) + " of " + std::to_string(programs));
	}
	bench::configurePrograms(programs);
	if (!Utill::isProcessRunning(OBSERVATION_MODE_1))
	{
		throw std::runtime_error("the agent does not find all of the programs");
	}
	std::ifstream log("/usr/velarix/log/velarix.log");
	const std::string lines{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
	if (!log || lines.find("running at the same time") != std::string::npos)
	{
		throw std::runtime_error("the agent finds more processes than there are: " + lines);
	}
}

void registerAll(long processes)
{
	const Place crowd = thisPlace();
	const Place alone = emptyPlace();
	// The crowd's own first process is one more.
	startCrowd(processes - floor_of_a_check() - 1, kPrograms);
	contend("floor", 0, [processes] { return floor_of_a_check() == processes; });
	contend("streams", 0, [processes] { return floor_with_streams() == processes; });
	for (const int programs : {1, 3, 10})
	{
		compareAnswers(programs, crowd);
		contend("agent", programs, [] { return Utill::isProcessRunning(OBSERVATION_MODE_1); });
		contendWithTool("pgrep", programs, pgrepWords(programs), crowd, alone);
		contendWithTool("pidof", programs, pidofWords(programs), crowd, alone);
	}
}

int body(int argc, char** argv)
{
	const long processes = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
	if (processes < 50)
	{
		throw std::runtime_error("the first argument is the number of processes, 50 or more");
	}
	bench::furnishHost(kPrograms);
	registerAll(processes);
	return runBenchmarks(argc - 1, argv + 1);
}

} // namespace

int main(int argc, char** argv)
{
	return runInSandbox(argc, argv, body);
}
