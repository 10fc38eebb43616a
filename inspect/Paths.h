/// Where a node's files are, as seen from a root directory.
#pragma once

#include <filesystem>

namespace velarix::inspect
{

/// The fixed files of the agent below a root. With a root other than "/" the
/// files are those of another system (a mounted disk, a copy), and facts of
/// this machine's kernel say nothing about it.
class Paths
{
public:
	/// The running system.
	Paths() : Paths("/") {}
	explicit Paths(const std::filesystem::path& root);

	/// @return an absolute path of that system, as this one reaches it. Below a root
	///         other than "/" links and ".." are followed as that system follows
	///         them, so that nothing leads out of it
	/// @throws Failure noInput for a chain of links without an end
	std::filesystem::path below(const std::filesystem::path& absolute) const;
	/// The same for what need not be there; empty for a chain of links without an end.
	std::filesystem::path belowIfAny(const std::filesystem::path& absolute) const;

	/// @return true when the files are not those of the running system
	bool elsewhere() const { return root != "/"; }

	std::filesystem::path root;
	std::filesystem::path settings;
	std::filesystem::path runInfo;
	std::filesystem::path pid;
	std::filesystem::path runScript;
	/// There while an administrator works on the node.
	std::filesystem::path maintenance;
	/// What the keeper holds and runs, what it reports, and its programs' states.
	std::filesystem::path keeperSettings;
	std::filesystem::path keeperLog;
	std::filesystem::path keeperStates;
};

} // namespace velarix::inspect
