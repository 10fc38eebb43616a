// velarix-simulate: schedules of faults in virtual time, against the real decisions of both
// nodes. docs/simulation.md explains it.

#include <chrono>
#include <iostream>
#include <limits>
#include <map>

#include <CLI/CLI.hpp>

#include "dev/simulate/Run.h"
#include "dev/simulate/Validate.h"

namespace
{

using namespace velarix::simulate;

/// Standard output, for this program alone: the agent's console lines go nowhere.
std::ostream g_out(std::cout.rdbuf());

struct Options
{
	std::uint64_t seed = 1;
	std::uint64_t runs = 1000;
	Profile profile = Profile::keeper;
	bool timeline = false;
	bool first = false;   ///< end at the first violation
	std::string validate; ///< the lab's figures
	int atMost = 10;      ///< violations that are explained
	int leftAtMost = std::numeric_limits<int>::max();
};

void print(const Schedule& schedule)
{
	for (const Fault& fault : schedule)
	{
		g_out << toText(fault) << "\n";
	}
}

void explain(const Options& options, std::uint64_t seed, const Outcome& outcome)
{
	const Violation& violation = *outcome.violation;
	const Schedule least = minimised(scheduleFrom(seed, options.profile), options.profile, seed, violation.invariant);
	const Outcome again = run(least, options.profile, seed, true);
	g_out << "violation of " << violation.invariant << " with seed " << seed << ": " << again.violation->detail
	      << " at " << static_cast<double>(again.violation->at) / kSecond << " s\n";
	print(least);
	g_out << again.timeline << std::endl;
}

int runAll(const Options& options)
{
	const auto began = std::chrono::steady_clock::now();
	std::map<std::string, int> violations;
	Micros settled = 0;
	int left = 0;
	std::uint64_t slowest = 0;
	for (std::uint64_t seed = options.seed; seed < options.seed + options.runs; ++seed)
	{
		const Schedule schedule = scheduleFrom(seed, options.profile);
		const Outcome outcome = run(schedule, options.profile, seed, options.timeline);
		if (options.timeline)
		{
			print(schedule);
			g_out << outcome.timeline;
		}
		left += outcome.leftAddress ? 1 : 0;
		slowest = outcome.settled > settled ? seed : slowest;
		settled = std::max(settled, outcome.settled);
		if (outcome.violation)
		{
			int total = 0;
			++violations[outcome.violation->invariant];
			for (const auto& [name, count] : violations)
			{
				total += count;
			}
			total <= options.atMost ? explain(options, seed, outcome) : void();
			if (options.first)
			{
				break;
			}
		}
	}
	const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
	g_out << options.runs << " schedules in " << seconds << " s; well again after "
	      << static_cast<double>(settled) / kSecond << " s at most (seed " << slowest
	      << "); a standby kept the address in " << left << "\n";
	for (const auto& [name, count] : violations)
	{
		g_out << count << " violations of " << name << "\n";
	}
	const bool tooMany = left > options.leftAtMost;
	g_out << (tooMany ? "that is more than --left-at-most allows\n" : "");
	return violations.empty() && !tooMany ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
	Options options;
	CLI::App app("Runs schedules of faults against a pair in virtual time");
	const std::map<std::string, Profile> profiles{{"keeper", Profile::keeper}, {"plain", Profile::plain}};
	app.add_option("--seed", options.seed, "of the first schedule")->capture_default_str();
	app.add_option("--runs", options.runs, "how many schedules")->capture_default_str();
	app.add_option("--settings", options.profile, "keeper or plain")->transform(CLI::CheckedTransformer(profiles));
	app.add_option("--explain", options.atMost, "violations to be explained")->capture_default_str();
	app.add_option("--left-at-most", options.leftAtMost, "schedules in which a standby may keep the address");
	app.add_option("--split-limit", splitLimit, "microseconds of two owners with the keeper")->capture_default_str();
	app.add_option("--validate", options.validate, "compare with the lab's figures: docs/figures/fault-matrix.md")
	    ->check(CLI::ExistingFile);
	app.add_flag("--first", options.first, "end at the first violation");
	app.add_flag("--timeline", options.timeline, "print what happened in each");
	CLI11_PARSE(app, argc, argv);
	std::cout.rdbuf(nullptr);
	if (!options.validate.empty())
	{
		return validate(options.validate, options.profile, static_cast<int>(options.runs), g_out) == 0 ? 0 : 1;
	}
	return runAll(options);
}
