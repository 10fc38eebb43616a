/// The settings files of each node, made from the answers.
#pragma once

#include <string>

#include "ctl/init/Answers.h"

namespace velarix::ctl
{

/// @param node whose file; the two differ in MODE and the two addresses alone
/// @return the whole file, each key with a comment from the table of the keys
std::string settingsText(const Answers& answers, NodeName node);

/// @return the node's keeper.ini; the two differ in on_conflict, and have own and partner of [reachability] exchanged
std::string keeperSettingsText(const Answers& answers, NodeName node);

} // namespace velarix::ctl
