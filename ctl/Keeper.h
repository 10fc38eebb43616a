/// What the operator's program knows of the keeper (keeper/Settings.h), which most pairs
/// leave the address and the services to.
#pragma once

#include <string>

#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

using namespace inspect;

inline constexpr char kKeeper[] = "/usr/libexec/velarix-ha/keeper";

/// @return the command of the settings: kKeeper with a verb
std::string keeperCommand(const std::string& verb);

/// @return the path of a managed program "ha-NAME"
std::string keeperPath(const std::string& program);

/// @return whether a configured program is a link to the keeper
bool isKeepers(const std::string& path);

/// @return whether a command or a program of the settings is the keeper's
bool usesKeeper(const SettingsFile& settings);

} // namespace velarix::ctl
