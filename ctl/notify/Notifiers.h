/// The programs that are informed of events: the executables of a directory.
#pragma once

#include <filesystem>

#include "ctl/Program.h"
#include "ctl/render/StateViews.h"
#include "inspect/HostProgram.h"

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

/// Where the workers remember how far their notifiers have come.
inline constexpr char kPositions[] = "/var/lib/velarix-ha/notify";

/// @return this node's address, as events name it
/// @throws Failure for settings that cannot be read
std::string nodeOf(const Context& context);
/// @return the event with what tells the reader where it happened
Json withNode(Json event, const std::string& node, std::string_view severity);

/// Gives the event to the notifier once: JSON on standard input, its members as VELARIX_NAME
/// in the environment.
host::ProgramEnd deliver(const Notifier& notifier, const Json& event, std::chrono::milliseconds limit);

/// Brings the events of this node to the notifier, in their order, each until it is taken.
///
/// The logs are the queue: an event is read again from them until the notifier has taken
/// it, and a small file remembers how far it has come. In memory is at most what a start
/// has found behind the mark, 1000 events of each log. A crash between taking and
/// remembering gives the event twice.
/// @param limit what one try may take
[[noreturn]] void work(const Notifier& notifier, std::chrono::milliseconds limit, const Context& context);

} // namespace velarix::ctl::notify
