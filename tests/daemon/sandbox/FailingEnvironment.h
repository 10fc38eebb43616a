/// Starting the daemon with a failure, waiting for what it says, and comparing one that
/// sees its programs with one that does not.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "DaemonProcess.h"
#include "LogFile.h"
#include "Sandbox.h"
#include "WaitFor.h"

/// Each failure is made for the daemon alone, by what runs before the program.
class FailingEnvironment : public DaemonSandbox
{
protected:
	/// Waits until the log holds each of the events.
	static void waitForEvents(const DaemonProcess& daemon, const std::vector<std::string>& wanted)
	{
		std::string missing;
		const auto allThere = [&]
		{
			const std::vector<std::string> events = eventsOf(readLogFile());
			missing.clear();
			for (const std::string& event : wanted)
			{
				const bool there = std::find(events.begin(), events.end(), event) != events.end();
				missing += there ? std::string() : event + "\n";
			}
			return missing.empty();
		};
		EXPECT_TRUE(
		    waitFor(allThere, std::chrono::seconds(40), "lines in the log", [&] { return missing + daemon.errors(); }));
	}

	/// The node has nobody to talk to: its partner and the service are silent.
	void leaveAlone()
	{
		settings.set("AGENT.PARTNER_IP", "192.0.2.2").set("AGENT.VIRTUAL_IP", "192.0.2.100");
		apply();
	}
};
