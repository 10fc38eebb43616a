#include "inspect/Paths.h"

#include <deque>
#include <system_error>

#include "inspect/ExitCode.h"
#include "velarix/paths.h"

namespace velarix::inspect
{

namespace
{

namespace fs = std::filesystem;

/// As many as the kernel follows.
constexpr int kMostLinks = 40;

/// @return the path that a process whose root directory is `root` would reach,
///         without links; what is not there is taken as it is written
fs::path resolvedIn(const fs::path& root, const fs::path& absolute)
{
	std::deque<fs::path> pending(absolute.begin(), absolute.end());
	fs::path inside;
	for (int links = 0; !pending.empty();)
	{
		const fs::path part = pending.front();
		pending.pop_front();
		if (part.empty() || part == "." || part.is_absolute())
		{
			continue;
		}
		if (part == "..")
		{
			inside = inside.parent_path();
			continue;
		}
		std::error_code noLink;
		const fs::path target = fs::read_symlink(root / inside / part, noLink);
		if (noLink)
		{
			inside /= part;
			continue;
		}
		if (++links > kMostLinks)
		{
			throw Failure(ExitCode::noInput, "too many links in " + absolute.string() + " below " + root.string());
		}
		if (target.is_absolute())
		{
			inside.clear();
		}
		pending.insert(pending.begin(), target.begin(), target.end());
	}
	return root / inside;
}

} // namespace

Paths::Paths(const fs::path& rootDirectory)
    : root(rootDirectory.lexically_normal()), settings(below(kSettingsPath)), runInfo(below(kRunInfoPath)),
      pid(below(kPidPath)), runScript(below(kRunScriptPath)), maintenance(below("/usr/velarix/pid/maintenance")),
      keeperSettings(below("/usr/velarix/bin/ini/keeper.ini")), keeperLog(below("/usr/velarix/log/keeper.log")),
      keeperStates(below("/run/velarix-ha"))
{
}

fs::path Paths::below(const fs::path& absolute) const
{
	return elsewhere() ? resolvedIn(root, absolute) : root / absolute.relative_path();
}

fs::path Paths::belowIfAny(const fs::path& absolute) const
{
	try
	{
		return below(absolute);
	}
	catch (const Failure&)
	{
		return {};
	}
}

} // namespace velarix::inspect
