/// The checks of keeper.ini, and of what it and the agent's settings say of each other.
#pragma once

#include <filesystem>

#include "ctl/check/Findings.h"
#include "inspect/Paths.h"
#include "keeper/Settings.h"

namespace velarix::ctl::checks
{

/// A keeper.ini as it was read.
struct KeeperFile
{
	std::filesystem::path path;
	keeper::ParsedSettings parsed;
};

/// What its text has wrong, and where it does not fit the settings beside it.
void keeperFile(Findings& findings, const KeeperFile& file);

/// What this machine lacks for it. Its commands are not tried: they are known.
void keeperMachine(Findings& findings, const KeeperFile& file);

/// The files of the services' programs and checks, and whether their users reach them.
void keeperPrograms(Findings& findings, const KeeperFile& file, const Paths& paths);

/// The keys beside both files, where both are to be had.
void reachKeys(Findings& findings, const KeeperFile& own, const KeeperFile& partner);

/// What must be the same in both nodes' files, and what must not.
void keeperPair(Findings& findings, const KeeperFile& own, const KeeperFile& partner);

} // namespace velarix::ctl::checks
