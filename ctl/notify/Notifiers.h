/// The programs that are informed of events: the executables of a directory.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace velarix::ctl::notify
{

struct Notifier
{
	/// The file's name: letters, digits, "-" and "_", as cron's directories have them,
	/// so that no editor's or package manager's copy is one.
	std::string name;
	std::filesystem::path path;
	/// Why it is not run; empty when it is.
	std::string refused;
};

/// @return the notifiers of the directory by name; those without execute permission are
///         disabled and left out. One that somebody else than root may change is refused:
///         it would be run as root
std::vector<Notifier> notifiersIn(const std::filesystem::path& directory);

} // namespace velarix::ctl::notify
