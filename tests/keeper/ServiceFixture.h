/// One host with an address and one service.
#pragma once

#include <csignal>

#include <gtest/gtest.h>

#include "Hosts.h"

namespace keepertest
{

using namespace std::chrono_literals;

class ServiceTest : public testing::Test
{
protected:
	/// A service whose command is a script of the shell.
	void configure(const std::string& script, const std::string& more = "") const
	{
		m_host.write("/usr/velarix/serve", "#!/bin/sh\n" + script + "\n");
		m_host.run({"chmod", "755", "/usr/velarix/serve"});
		m_host.configure(true, "[service web]\ncommand = /usr/velarix/serve\n" + more);
	}

	void start() const
	{
		m_host.startProgram("ha-address");
		m_host.startProgram("ha-web");
		ASSERT_TRUE(reaches("running"));
	}

	/// Starts the service. @return its process
	pid_t startSleep() const
	{
		start();
		EXPECT_TRUE(comes("sleep"));
		const std::vector<pid_t> found = m_host.processes("sleep");
		return found.empty() ? 0 : found.front();
	}

	testing::AssertionResult reaches(const std::string& value, const std::string& field = "state") const
	{
		return happens([&] { return m_host.state("ha-web", field) == value; }, field + " " + value);
	}

	testing::AssertionResult comes(const std::string& name, std::size_t count = 1) const
	{
		return happens([&] { return m_host.processes(name).size() == count; }, name);
	}

	testing::AssertionResult ends(const std::string& name) const { return comes(name, 0); }

	testing::AssertionResult ends(pid_t pid) const
	{
		return happens([&] { return ::kill(pid, 0) != 0; }, "end of " + std::to_string(pid));
	}

	testing::AssertionResult tells(const std::string& part) const
	{
		return happens([&] { return reported(part); }, part);
	}

	bool reported(const std::string& part) const { return has(m_host.events(), part); }

	void killWorker() const { ::kill(std::stoi(m_host.state("ha-web", "pid")), SIGKILL); }
	void killGuard() const { ::kill(m_host.processes("ha-web").front(), SIGKILL); }

	Host m_host{1};
};

} // namespace keepertest
