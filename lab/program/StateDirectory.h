/// Where a pair that is kept running leaves what later commands need: a directory
/// with a lock, the control socket and the supervisor's own messages.
///
/// The supervisor holds the lock as long as it lives, so a directory whose lock
/// is free belongs to a dead one. The hosts of a dead supervisor are gone already
/// (the kernel sees to that); only the directory is left to remove.
#pragma once

#include <filesystem>
#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab::program
{

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

	bool exists() const;
	/// A supervisor lives.
	bool inUse() const;

	/// Makes the directory and takes the lock, for the supervisor.
	/// @throws LabError when another supervisor has it
	void lock();
	/// Makes the directory.
	void create() const;
	/// Removes the directory with all it holds, and the base when it is empty.
	void remove() const;

private:
	std::string m_name;
	std::filesystem::path m_path;
	Descriptor m_lock;

	Descriptor openLock(int flags) const;
};

} // namespace velarix::lab::program
