#include "lab/program/Soak.h"

#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/core/Lab.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab::program
{

int runSoak(const SoakCommand& command)
{
	soak::Options options = command.options;
	options.duration = std::chrono::minutes(command.minutes);
	options.bounds.warmUp = std::chrono::seconds(command.warmUp);
	options.kinds =
	    soak::kindsFor(readExpectations(command.expectations, options.times.pair.profile).forChaos, command.restarts);
	requireLab(options.installRoot);
	const LabClock clock;
	const auto report = [&](const std::string& line) {
		std::cerr << "[" << secondsText(clock.now()) << "] " << line << '\n' << std::flush;
	};
	const soak::Results results = soak::runSoak(options, report);
	deliver({"text", "", command.json}, toText(results), jsonOf(results));
	return soak::crossingsOf(results).empty() ? 0 : 1;
}

} // namespace velarix::lab::program
