#include "ctl/notify/Notifiers.h"

#include <algorithm>
#include <system_error>

#include <sys/stat.h>

#include "inspect/Host.h"

namespace velarix::ctl::notify
{

using namespace inspect;
namespace fs = std::filesystem;

namespace
{

constexpr mode_t kExecutable = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr mode_t kOpen = S_IWGRP | S_IWOTH;

constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";

/// @return who else than root may change the file or put another one in its place
std::string distrust(const fs::path& file)
{
	for (fs::path path = file;; path = path.parent_path())
	{
		const host::FileFacts facts = host::fileFacts(path);
		// In a directory like /tmp nobody replaces what is not theirs.
		const bool sticky = facts.kind == host::FileKind::directory && (facts.mode & S_ISVTX) != 0;
		if (facts.owner != 0 || ((facts.mode & kOpen) != 0 && !sticky))
		{
			return path.string() + (facts.owner != 0 ? " is not root's" : " may be written by others than root");
		}
		if (path == path.parent_path())
		{
			return {};
		}
	}
}

} // namespace

std::vector<Notifier> notifiersIn(const fs::path& directory)
{
	std::vector<Notifier> all;
	std::error_code error;
	for (const fs::directory_entry& entry : fs::directory_iterator(directory, error))
	{
		const std::string name = entry.path().filename();
		const fs::path target = fs::canonical(entry.path(), error);
		const host::FileFacts facts = host::fileFacts(entry.path());
		if (name.find_first_not_of(kLetters) == name.npos && !error && facts.kind == host::FileKind::regular &&
		    (facts.mode & kExecutable) != 0)
		{
			const std::string place = distrust(fs::canonical(directory, error));
			all.push_back({name, entry.path(), place.empty() ? distrust(target) : place});
		}
	}
	std::ranges::sort(all, {}, &Notifier::name);
	return all;
}

} // namespace velarix::ctl::notify
