#include "ctl/init/Placement.h"

#include <algorithm>
#include <cerrno>
#include <iomanip>
#include <sstream>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#include "ctl/OutputFile.h"
#include "inspect/ExitCode.h"
#include "inspect/InputFile.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;

/// A dangling link counts as something that is there.
bool isThere(const fs::path& path)
{
	std::error_code error;
	return fs::exists(fs::symlink_status(path, error));
}

[[noreturn]] void fail(const std::string& what, const std::error_code& error)
{
	throw Failure(error == std::errc::permission_denied ? ExitCode::noPermission : ExitCode::cannotWrite,
	              what + ": " + error.message());
}

/// @return whether the file is there with that very text
bool holds(const NewFile& file)
{
	return fs::is_regular_file(fs::symlink_status(file.path)) && readInputFile(file.path) == file.text;
}

fs::path copyName(const fs::path& path, std::chrono::system_clock::time_point now)
{
	const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
	std::tm utc{};
	::gmtime_r(&seconds, &utc);
	std::ostringstream name;
	name << path.string() << '.' << std::put_time(&utc, "%Y%m%dT%H%M%SZ");
	return name.str();
}

void keepCopy(const fs::path& path, std::chrono::system_clock::time_point now, std::ostream& out)
{
	const fs::path copy = copyName(path, now);
	std::error_code error;
	if (!fs::copy_file(path, copy, fs::copy_options::none, error))
	{
		fail("cannot copy " + path.string() + " to " + copy.string(), error);
	}
	struct stat former
	{
	};
	// The mode came with the content; another user's file stays his.
	if (::stat(path.c_str(), &former) != 0 || ::chown(copy.c_str(), former.st_uid, former.st_gid) != 0)
	{
		fail("cannot set the owner of " + copy.string(), std::error_code(errno, std::generic_category()));
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

} // namespace

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
		(file.open ? replaceFile : replaceOwnFile)(file.path, file.text);
		out << "written: " << printable(file.path.string()) << '\n';
		wrote = true;
	}
	return wrote;
}

} // namespace velarix::ctl
