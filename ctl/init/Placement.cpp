#include "ctl/init/Placement.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <Poco/DateTimeFormatter.h>
#include <Poco/Timestamp.h>

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
