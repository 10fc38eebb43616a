/// What the operator's program knows of the keeper (keeper/Settings.h), which most pairs
/// leave the address and the services to.
#pragma once

#include <algorithm>
#include <string>

#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"
#include "keeper/Settings.h"

namespace velarix::ctl
{

using namespace inspect;

inline constexpr char kKeeper[] = "/usr/libexec/velarix-ha/keeper";

/// @return the command of the settings: kKeeper with a verb
inline std::string keeperCommand(const std::string& verb)
{
	return std::string(kKeeper) + " " + verb;
}

/// @return the path of a managed program "ha-NAME"
inline std::string keeperPath(const std::string& program)
{
	return std::string(keeper::kLinkDirectory) + "/" + program;
}

/// @return whether a configured program is a link to the keeper
inline bool isKeepers(const std::string& path)
{
	return path.starts_with(keeperPath(std::string(keeper::kPrefix)));
}

/// @return whether a command or a program of the settings is the keeper's
inline bool usesKeeper(const SettingsFile& settings)
{
	const auto runsIt = [&](const char* key)
	{ return settings.text(key).value_or("").find(kKeeper) != std::string::npos; };
	return runsIt(key::kStartCommand) || runsIt(key::kStopCommand) || runsIt(key::kKillCommand) ||
	       std::ranges::any_of(settings.programs(), isKeepers);
}

} // namespace velarix::ctl
