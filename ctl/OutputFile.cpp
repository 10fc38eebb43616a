#include "ctl/OutputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/ExitCode.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// For all to read, as a file made in the usual way.
bool openToReaders(int file)
{
	const mode_t mask = ::umask(0);
	::umask(mask);
	return ::fchmod(file, 0666U & ~mask) == 0;
}

/// A draft is made for its owner alone, and stays so without a former file.
bool takeRights(int file, const std::filesystem::path& former)
{
	struct stat rights
	{
	};
	// The owner first: changing it clears bits of the mode.
	return ::stat(former.c_str(), &rights) != 0 ||
	       (::fchown(file, rights.st_uid, rights.st_gid) == 0 && ::fchmod(file, rights.st_mode & 07777U) == 0);
}

bool writeAll(int file, std::string_view text)
{
	while (!text.empty())
	{
		const ssize_t written = ::write(file, text.data(), text.size());
		if (written <= 0 && errno != EINTR)
		{
			return false;
		}
		text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
	}
	return ::fsync(file) == 0;
}

void replace(const std::filesystem::path& path, const std::string& text, bool own)
{
	std::string name = path.string() + ".XXXXXX";
	const Descriptor draft(::mkostemp(name.data(), O_CLOEXEC));
	if (draft && (own ? takeRights(draft.get(), path) : openToReaders(draft.get())) && writeAll(draft.get(), text) &&
	    std::rename(name.c_str(), path.c_str()) == 0)
	{
		return;
	}
	const std::error_code error(errno, std::generic_category());
	if (draft)
	{
		::unlink(name.c_str());
	}
	failOutput("cannot write " + path.string(), error);
}

} // namespace

void failOutput(const std::string& what, const std::error_code& error)
{
	const bool rights = error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
	throw Failure(rights ? ExitCode::noPermission : ExitCode::cannotWrite, what + ": " + error.message());
}

void replaceFile(const std::filesystem::path& path, const std::string& text)
{
	replace(path, text, false);
}

void replaceOwnFile(const std::filesystem::path& path, const std::string& text)
{
	replace(path, text, true);
}

} // namespace velarix::ctl
