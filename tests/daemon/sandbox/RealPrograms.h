/// Small real programs under names of a test's choice, and what the process
/// table says about them. They live below /usr/velarix/programs of the sandbox.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace programs
{

/// Makes a program that sleeps for a long time under the name `name`: a wrapper
/// that replaces itself by a sleeper of the same name.
/// @return the wrapper's path
std::string installSleeper(const std::string& name);

/// Makes an executable shell script.
/// @return its path
std::string installScript(const std::string& name, const std::string& text);

/// @return the processes whose short name is exactly `name`
std::vector<pid_t> running(const std::string& name);

/// A child of the test that sleeps under a name; killed and awaited at the end.
class Sleeper
{
public:
	explicit Sleeper(const std::string& name);
	~Sleeper();
	Sleeper(const Sleeper&) = delete;
	Sleeper& operator=(const Sleeper&) = delete;

	/// Kills it and leaves it unawaited; returns once it is a zombie.
	void makeZombie();

private:
	pid_t m_pid = 0;
};

} // namespace programs
