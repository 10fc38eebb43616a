/// What the checks report.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace velarix::ctl
{

/// An error keeps the agent from running, or the pair from doing its work. With
/// a warning it works, but worse than it could in some situation.
enum class Severity
{
	error,
	warning
};

struct Finding
{
	/// Short and stable, for scripts: "port-out-of-range".
	std::string id;
	Severity severity = Severity::error;
	std::filesystem::path file;
	/// From 1; 0 when it concerns the file as a whole.
	int line = 0;
	/// What is wrong.
	std::string what;
	/// What happens if it is left.
	std::string effect;
	/// How to fix it.
	std::string remedy;
};

/// Something that could not be looked at, and why.
struct NotChecked
{
	std::string what;
	std::string why;
};

struct CheckReport
{
	/// Sorted by file and line.
	std::vector<Finding> findings;
	/// Those that the operator has accepted; they do not count.
	std::vector<Finding> acknowledged;
	std::vector<NotChecked> notChecked;

	std::size_t count(Severity severity) const;
};

} // namespace velarix::ctl
