/// Writing a file whole or not at all.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace velarix::ctl
{

/// @throws Failure "WHAT: REASON": noPermission when only the rights are lacking, else cannotWrite
[[noreturn]] void failOutput(const std::string& what, const std::error_code& error);

/// Puts the text into a file of its own beside `path`, brings it to the disk and
/// renames it: readers see the former content or the new one, never a part.
/// @throws Failure as failOutput; the former file is as it was then
void replaceFile(const std::filesystem::path& path, const std::string& text);

/// The same for a file that concerns its owner alone: a new one has the mode 0600, one
/// that is there keeps its mode and owner.
void replaceOwnFile(const std::filesystem::path& path, const std::string& text);

} // namespace velarix::ctl
