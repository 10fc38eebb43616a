#include "ctl/handover/NodeLock.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>

#include "inspect/ExitCode.h"

namespace velarix::ctl
{

Descriptor lockNode(const Paths& paths)
{
	const std::filesystem::path directory = paths.settings.parent_path();
	Descriptor lock(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
	if (lock && ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0)
	{
		return lock;
	}
	const std::error_code error(errno, std::generic_category());
	if (error == std::errc::operation_would_block)
	{
		throw Failure(ExitCode::refused, "refused: another switchover or maintenance is at work on this node: try "
		                                 "again when it has ended (fuser -v " +
		                                     directory.string() + " shows it)");
	}
	throw Failure(ExitCode::noInput, "cannot lock " + directory.string() + ": " + error.message());
}

} // namespace velarix::ctl
