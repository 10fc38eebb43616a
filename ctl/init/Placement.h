/// Putting new files where they belong without losing the operator's.
#pragma once

#include <chrono>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace velarix::ctl
{

struct NewFile
{
	std::filesystem::path path;
	std::string text;
	/// A file that is there already stays as it is and is no obstacle.
	bool keepExisting = false;
	/// For all to read, as files below /etc are.
	bool open = false;
};

struct PlacementRules
{
	/// Replace a file that is there; a copy stays beside it.
	bool force = false;
	/// Write nothing: say which files would be written, and show the open ones.
	bool dryRun = false;
	/// Goes into the copy's name, as UTC.
	std::chrono::system_clock::time_point now;
};

/// Writes the files, for their owner alone unless they are open; one that is replaced keeps its mode and
/// owner, one that has the text already is left alone. When one of them is there and
/// must not be replaced, nothing is written at all.
/// @param out gets a line for each file: "written: PATH", "would be written: PATH", "unchanged: PATH",
///        "kept: PATH", "copy: PATH"
/// @return whether one was written
/// @throws Failure cannotWrite or noPermission
bool place(const std::vector<NewFile>& files, const PlacementRules& rules, std::ostream& out);

} // namespace velarix::ctl
