#include "ctl/Keeper.h"

#include <algorithm>

#include "inspect/SettingsKeys.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

std::string keeperCommand(const std::string& verb)
{
	return std::string(kKeeper) + " " + verb;
}

std::string keeperPath(const std::string& program)
{
	return std::string(keeper::kLinkDirectory) + "/" + program;
}

bool isKeepers(const std::string& path)
{
	return path.starts_with(keeperPath(std::string(keeper::kPrefix)));
}

bool usesKeeper(const SettingsFile& settings)
{
	const auto runsIt = [&](const char* key)
	{ return settings.text(key).value_or("").find(kKeeper) != std::string::npos; };
	return runsIt(key::kStartCommand) || runsIt(key::kStopCommand) || runsIt(key::kKillCommand) ||
	       std::ranges::any_of(settings.programs(), isKeepers);
}

} // namespace velarix::ctl
