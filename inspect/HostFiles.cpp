#include "inspect/Host.h"

#include <array>
#include <cerrno>
#include <climits>

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace velarix::inspect::host
{

namespace
{

FileKind kindOf(mode_t mode)
{
	if (S_ISREG(mode))
	{
		return FileKind::regular;
	}
	return S_ISDIR(mode) ? FileKind::directory : FileKind::other;
}

} // namespace

FileFacts fileFacts(const std::filesystem::path& path)
{
	FileFacts facts;
	struct stat status = {};
	if (::stat(path.c_str(), &status) != 0)
	{
		facts.kind = errno == EACCES ? FileKind::notKnown : FileKind::missing;
		return facts;
	}
	facts.kind = kindOf(status.st_mode);
	facts.mode = status.st_mode & 07777U;
	facts.owner = status.st_uid;
	facts.group = status.st_gid;
	struct statfs system = {};
	if (::statfs(path.c_str(), &system) == 0)
	{
		facts.noExec = (system.f_flags & ST_NOEXEC) != 0;
		facts.readOnly = (system.f_flags & ST_RDONLY) != 0;
		facts.inMemory = system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC;
	}
	return facts;
}

std::optional<std::chrono::system_clock::time_point> changedAt(const std::filesystem::path& path)
{
	struct stat status = {};
	if (::stat(path.c_str(), &status) != 0)
	{
		return std::nullopt;
	}
	return std::chrono::system_clock::from_time_t(status.st_mtim.tv_sec) +
	       std::chrono::nanoseconds(status.st_mtim.tv_nsec);
}

uid_t user()
{
	return ::geteuid();
}

std::string name()
{
	std::array<char, HOST_NAME_MAX + 1> text{};
	return ::gethostname(text.data(), text.size() - 1) == 0 ? text.data() : std::string();
}

} // namespace velarix::inspect::host
