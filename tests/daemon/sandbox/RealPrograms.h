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

/// Writes an error line and a debug line and forgets all events. For SetUp of tests
/// with NoMoreDescriptors: a sanitizer that meets an object of the log for the
/// first time needs descriptors to look at it.
void warmUpLog();

/// While it lives the process can open no further descriptor.
class NoMoreDescriptors
{
public:
	NoMoreDescriptors();
	~NoMoreDescriptors();
	NoMoreDescriptors(const NoMoreDescriptors&) = delete;
	NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
	unsigned long m_before = 0;
};

/// @return what `call` returns while no further descriptor can be opened
template <typename Call> auto withoutDescriptors(const Call& call)
{
	const NoMoreDescriptors limit;
	return call();
}

} // namespace programs
