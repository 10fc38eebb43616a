/// Runs all checks that apply.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ctl/check/Findings.h"
#include "inspect/Paths.h"
#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

using namespace inspect;

struct CheckRequest
{
	std::filesystem::path file;
	std::optional<std::filesystem::path> partner;
	/// Look at nothing but the two files.
	bool filesOnly = false;
	/// Findings that do not count, by their names.
	std::vector<std::string> ignored = {};
};

/// @param paths where the node's other files are
/// @throws Failure noPermission when a file may not be read
CheckReport check(const CheckRequest& request, const Paths& paths);

/// What a node is to have: its settings, and its keeper.ini unless that is empty.
struct NodeTexts
{
	SettingsFile settings;
	std::filesystem::path keeperFile;
	std::string keeperText;
};

/// The checks of the texts alone, of both nodes.
CheckReport checkTexts(const NodeTexts& own, const NodeTexts& partner);

} // namespace velarix::ctl
