/// Writing a file whole or not at all.
#pragma once

#include <chrono>
#include <filesystem>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

namespace velarix::ctl
{

/// @throws Failure "WHAT: REASON": noPermission when only the rights are lacking, else cannotWrite
[[noreturn]] void failOutput(const std::string& what, const std::error_code& error);

/// Brings the names in a directory to the disk: of a file that was renamed or removed.
/// @return false, with errno, when the disk fails
bool syncDirectory(const std::filesystem::path& directory);

/// Puts the text into a file of its own beside `path`, brings it to the disk, renames it and
/// brings the name to the disk, too: readers see the former content or the new one, never a
/// part, and what is written outlives a loss of power.
/// @param own the file concerns its owner alone: a new one has the mode 0600, one that
///        is there keeps its mode and owner
/// @throws Failure as failOutput; the former file is as it was then, unless the name alone was not brought to the disk
void replaceFile(const std::filesystem::path& path, const std::string& text, bool own = false);

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

/// A full disk behind standard output must not pass for an answer. A reader that has seen enough is no failure.
/// @throws Failure cannotWrite
void deliver(std::ostream& out);

} // namespace velarix::ctl
