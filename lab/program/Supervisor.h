/// The background process that keeps a pair running between two commands, and how these find it
/// and talk to it.
#pragma once

#include <filesystem>
#include <string>

#include "lab/core/NodeSettings.h"

namespace velarix::lab::program
{

struct SupervisorOptions
{
	std::string installRoot{};
	PairSettings times{.profile = Profile::keeper};
	bool startAgents = true;
	std::string wrapper{}; ///< words in front of the agent's program, with blanks between them
};

/// Where a pair that is kept running leaves what later commands need: a directory
/// with a lock, the control socket and the supervisor's own messages.
///
/// The supervisor holds the lock as long as it lives, so a directory whose lock
/// is free belongs to a dead one. The hosts of a dead supervisor are gone already
/// (the kernel sees to that); only the directory is left to remove.
class StateDirectory
{
public:
	/// @param base  directory of all pairs, normally /run/velarix-lab
	/// @param name  letters, digits, "-" and "_", at most 32
	/// @throws LabError for another name
	StateDirectory(const std::filesystem::path& base, const std::string& name);

	const std::string& name() const { return m_name; }
	const std::filesystem::path& path() const { return m_path; }
	std::filesystem::path controlSocket() const { return m_path / "control"; }
	std::filesystem::path messages() const { return m_path / "supervisor.log"; }

	bool exists() const { return std::filesystem::exists(m_path); }
	/// A supervisor lives.
	bool inUse() const;

	/// Makes the directory.
	void create() const;
	/// Takes the lock, for the supervisor.
	/// @throws LabError when another supervisor has it
	void lock();
	/// Removes the directory with all it holds, and the base when it is empty.
	void remove() const;

	/// Sends the supervisor a request, and reads the whole answer.
	///
	/// Requests: "status" (JSON), "pid HOST" (process 1 of the host), "inject FAULT NODE",
	/// "repair FAULT NODE", "timeline", "down".
	/// @throws LabError when none lives, no answer comes in time, or the answer tells of an error
	std::string ask(const std::string& request) const;

private:
	std::string m_name;
	std::filesystem::path m_path;
	Descriptor m_lock;
};

/// Makes the lab, serves requests until "down", SIGTERM or SIGINT, and removes the directory.
/// @throws LabError when the lab cannot be made
void supervise(StateDirectory& directory, const SupervisorOptions& options);

} // namespace velarix::lab::program
