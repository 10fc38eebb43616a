#include "ctl/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <Poco/DateTimeFormatter.h>
#include <Poco/Timestamp.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "inspect/Descriptor.h"
#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"
#include "inspect/Printable.h"

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

namespace fs = std::filesystem;

/// A dangling link counts as something that is there.
bool isThere(const fs::path& path)
{
	std::error_code error;
	return fs::exists(fs::symlink_status(path, error));
}

/// @return whether the file is there with that very text
bool holds(const NewFile& file)
{
	return fs::is_regular_file(fs::symlink_status(file.path)) && readInputFile(file.path) == file.text;
}

void keepCopy(const fs::path& path, std::chrono::system_clock::time_point now, std::ostream& out)
{
	const auto stamp = Poco::Timestamp::fromEpochTime(std::chrono::system_clock::to_time_t(now));
	const fs::path copy = path.string() + Poco::DateTimeFormatter::format(stamp, ".%Y%m%dT%H%M%SZ");
	std::error_code error;
	if (!fs::copy_file(path, copy, fs::copy_options::none, error))
	{
		failOutput("cannot copy " + path.string() + " to " + copy.string(), error);
	}
	struct stat former
	{
	};
	// The mode came with the content; another user's file stays his.
	if (::stat(path.c_str(), &former) != 0 || ::chown(copy.c_str(), former.st_uid, former.st_gid) != 0)
	{
		failOutput("cannot set the owner of " + copy.string(), std::error_code(errno, std::generic_category()));
	}
	out << "copy: " << printable(copy.string()) << '\n';
}

void demandRoom(const std::vector<NewFile>& files)
{
	const auto obstacle = std::ranges::find_if(files, [](const NewFile& file)
	                                           { return !file.keepExisting && isThere(file.path) && !holds(file); });
	if (obstacle != files.end())
	{
		throw Failure(ExitCode::cannotWrite, obstacle->path.string() +
		                                         " is there already; nothing was written (--force replaces it and "
		                                         "keeps a copy)");
	}
}

/// Poco blocks SIGPIPE, so that a switchover goes on when nobody reads its steps any more.
bool readerIsGone()
{
	pollfd output{STDOUT_FILENO, 0, 0};
	return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

} // namespace

void failOutput(const std::string& what, const std::error_code& error)
{
	const bool rights = error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
	throw Failure(rights ? ExitCode::noPermission : ExitCode::cannotWrite, what + ": " + error.message());
}

bool syncDirectory(const std::filesystem::path& directory)
{
	const Descriptor opened(::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
	// A file system that cannot do it, or a directory that this user may write and not read, cannot do more.
	return opened ? ::fsync(opened.get()) == 0 || errno == EINVAL : errno == EACCES;
}

void replaceFile(const std::filesystem::path& path, const std::string& text, bool own)
{
	std::string name = path.string() + ".XXXXXX";
	const Descriptor draft(::mkostemp(name.data(), O_CLOEXEC));
	if (draft && (own ? takeRights(draft.get(), path) : openToReaders(draft.get())) && writeAll(draft.get(), text) &&
	    std::rename(name.c_str(), path.c_str()) == 0 && syncDirectory(path.parent_path()))
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

bool place(const std::vector<NewFile>& files, const PlacementRules& rules, std::ostream& out)
{
	if (!rules.force)
	{
		demandRoom(files);
	}
	bool wrote = false;
	for (const NewFile& file : files)
	{
		const bool there = isThere(file.path);
		if (there && (file.keepExisting || holds(file)))
		{
			out << (file.keepExisting ? "kept: " : "unchanged: ") << printable(file.path.string()) << '\n';
			continue;
		}
		if (rules.dryRun)
		{
			out << "would be written: " << printable(file.path.string()) << '\n' << (file.open ? file.text : "");
			continue;
		}
		if (there)
		{
			keepCopy(file.path, rules.now, out);
		}
		replaceFile(file.path, file.text, !file.open);
		out << "written: " << printable(file.path.string()) << '\n';
		wrote = true;
	}
	return wrote;
}

void deliver(std::ostream& out)
{
	out.flush();
	if (!out && !readerIsGone())
	{
		throw Failure(ExitCode::cannotWrite, "cannot write standard output");
	}
}

} // namespace velarix::ctl
