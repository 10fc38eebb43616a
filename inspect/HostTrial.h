/// A rehearsal of the virtual IP commands away from the real network. Part of the
/// seam that Host.h describes.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "inspect/Host.h"

namespace velarix::inspect::host
{

struct TrialPlan
{
	std::string start;
	std::string stop;
	/// What the cards eth0 and eth1 of the rehearsal have beforehand.
	std::vector<Address> addresses;
	/// For each command.
	std::chrono::milliseconds limit{};
};

/// What the agent would see of one command.
struct CommandRun
{
	/// Its standard output, in full when it ended.
	std::string output;
	/// It ended, and so did all that held its output.
	bool ended = false;
	/// What the cards have afterwards.
	std::vector<Address> addresses;
};

struct Trial
{
	/// Why there was none; empty when there was.
	std::string whyNot;
	CommandRun start;
	/// Not run when the start command did not end.
	CommandRun stop;
};

/// Runs the start command and then the stop command through /bin/sh, in network,
/// process and mount namespaces of their own with two cards that lead nowhere.
/// What they do to files happens; what they leave running ends with the trial.
Trial tryCommands(const TrialPlan& plan);

} // namespace velarix::inspect::host
