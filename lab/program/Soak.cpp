#include "lab/program/Soak.h"

#include <iostream>

#include "lab/campaigns/Campaign.h"
#include "lab/core/Lab.h"
#include "lab/tables/Expectations.h"

namespace velarix::lab
{

int runSoak(const SoakCommand& command)
{
	SoakOptions options = command.options;
	options.duration = std::chrono::minutes(command.minutes);
	options.bounds.warmUp = std::chrono::seconds(command.warmUp);
	options.kinds = kindsForSoak(readExpectations(command.expectations).forChaos, command.restarts);
	requireLab(options.installRoot);
	const LabClock clock;
	const auto tell = [&](const std::string& line) {
		std::cerr << "[" << secondsText(clock.now()) << "] " << line << '\n' << std::flush;
	};
	const SoakResults results = runSoak(options, tell);
	keepRecords(toJson(results), command.json);
	deliver(toText(results), "");
	return crossingsOf(results).empty() ? 0 : 1;
}

} // namespace velarix::lab
