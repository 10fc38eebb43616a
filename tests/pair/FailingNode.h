/// A pair on whose nodes something of the system under the agent is missing.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

#include "PairTest.h"
#include "lab/core/Host.h"

namespace velarix::lab
{

class FailingNode : public PairTest
{
protected:
	/// From now on the node has no such program. Its disk is its own, and ends with the lab.
	static void takeAway(Lab& made, HostId node, const std::string& tool)
	{
		std::error_code none;
		for (const char* directory : {"/usr/local/sbin/", "/usr/local/bin/", "/usr/sbin/", "/usr/bin/"})
		{
			std::filesystem::remove(made.node(node).file(directory + tool), none);
		}
		const CommandResult found = made.run(node, {"sh", "-c", "command -v " + tool});
		EXPECT_FALSE(found.ok()) << found.output;
	}

	/// How often the node's log has a line of this source and number, with this text in it.
	int toldBy(HostId node, const std::string& place, const std::string& text = {})
	{
		return static_cast<int>(std::ranges::count_if(
		    linesOf(lab().node(node).file(plan::logFile)), [&](const std::string& line)
		    { return line.find("[" + place + "]") != std::string::npos && line.find(text) != std::string::npos; }));
	}

	/// Waits until the node's log has reported it so often.
	bool waitToBeTold(HostId node, const std::string& place, int times, Millis limit = moveLimit)
	{
		return waitFor([&] { return toldBy(node, place) >= times; }, limit,
		               nodeText(node) + " to say " + place + " " + std::to_string(times) + " times",
		               [&] { return lab().stateText(); });
	}

	bool waitForOwners(const std::string& owners)
	{
		return waitFor([&] { return lab().owners() == owners; }, moveLimit, "the address to be held by " + owners,
		               [&] { return lab().stateText(); });
	}

	/// How many of the managed programs run on the node.
	std::size_t programsOn(HostId node)
	{
		return processesNamed(lab().node(node).host().pid(), plan::serviceProgramName).size();
	}

	bool waitForProgramOn(HostId node)
	{
		return waitFor([&] { return programsOn(node) == 1; }, moveLimit, "the program to run on " + nodeText(node),
		               [&] { return lab().stateText(); });
	}

	/// Whether the agent's standard output or error has this text.
	bool consoleHas(HostId node, const std::string& text)
	{
		return timesIn(lab().node(node).file(plan::consoleFile), text) > 0;
	}
};

} // namespace velarix::lab
