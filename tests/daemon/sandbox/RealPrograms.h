/// Small real programs under names of a test's choice, and what the process
/// table says about them. They live below /usr/velarix/programs of the sandbox.
#pragma once

#include <Poco/Process.h>

#include "Daemon.h"

namespace programs
{

/// Makes an executable shell script.
/// @return its path
inline std::string installScript(const std::string& name, const std::string& text)
{
	std::filesystem::create_directories("/usr/velarix/programs");
	const std::string path = "/usr/velarix/programs/" + name;
	sandbox::writeFile(path, "#!/bin/sh\n" + text);
	std::filesystem::permissions(path, std::filesystem::perms(0755));
	return path;
}

/// Makes a program that sleeps as long as its argument says.
inline std::string installBareSleeper(const std::string& name)
{
	const std::string folder = "/usr/velarix/programs/sleepers/";
	std::filesystem::create_directories(folder);
	std::filesystem::copy_file("/bin/sleep", folder + name, std::filesystem::copy_options::skip_existing);
	return folder + name;
}

/// Makes a program that sleeps for a long time under the name `name`: a wrapper
/// that replaces itself by a sleeper of the same name.
/// @return the wrapper's path
inline std::string installSleeper(const std::string& name)
{
	return installScript(name, "exec " + installBareSleeper(name) + " 1000\n");
}

/// @return the processes whose short name is exactly `name`
inline std::vector<pid_t> running(const std::string& name)
{
	std::vector<pid_t> result;
	for (const auto& entry : std::filesystem::directory_iterator("/proc"))
	{
		if (sandbox::readFile(entry.path() / "comm") == name + "\n" && std::isdigit(entry.path().filename().c_str()[0]))
		{
			result.push_back(std::stoi(entry.path().filename()));
		}
	}
	return result;
}

/// A child of the test that sleeps under a name; killed and awaited at the end.
class Sleeper
{
public:
	explicit Sleeper(const std::string& name) : m_pid(Poco::Process::launch(installBareSleeper(name), {"1000"}).id())
	{
		// The kernel lets the launcher go on before it has renamed the process.
		EXPECT_TRUE(waitFor([&] { return running(name.substr(0, 15)) == std::vector<pid_t>{m_pid}; },
		                    std::chrono::seconds(10), "name of the sleeper"));
	}
	~Sleeper()
	{
		::kill(m_pid, SIGKILL);
		::waitpid(m_pid, nullptr, 0);
	}
	Sleeper(const Sleeper&) = delete;
	Sleeper& operator=(const Sleeper&) = delete;

	/// Kills it and leaves it unawaited; returns once it is a zombie.
	void makeZombie() const
	{
		::kill(m_pid, SIGKILL);
		siginfo_t end{};
		EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(m_pid), &end, WEXITED | WNOWAIT), 0);
	}

private:
	pid_t m_pid = 0;
};

} // namespace programs
