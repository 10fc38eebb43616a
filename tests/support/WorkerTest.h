/// What the agent shares with its workers, for tests that make workers without an agent.
#pragma once

#include <Poco/AutoPtr.h>

#include "Daemon.h"
#include "WorkerAccess.h"

/// Fixture with the shared values of a slave without programs.
class WorkerTest : public DaemonTest
{
protected:
	/// @return a worker with the label in its log lines
	template <typename Worker> Poco::AutoPtr<Worker> make(const std::string& label = "noName")
	{
		location = label;
		return new Worker(&handles, &running, &mode, location);
	}

	MODE mode = MODE_SLAVE;
	bool running = false;
	std::string location = "noName";
	std::vector<Poco::ProcessHandle*>* handles = nullptr;
};
