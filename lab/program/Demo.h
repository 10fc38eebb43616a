/// `velarix-lab demo`: shows a newcomer what the pair does.
#pragma once

#include <filesystem>
#include <string>

#include "lab/core/NodeSettings.h"

namespace velarix::lab::program
{

struct DemoOptions
{
	std::filesystem::path installRoot{};
	PairSettings times{};
	std::string svgFile = "velarix-demo.svg"; ///< empty: none
	std::string jsonFile{};                   ///< empty: none
};

/// Runs all phases on a lab of its own and prints what happens, a table of the
/// phases in the end, and writes the files asked for.
/// @return exit status: 0 when every phase ended as expected, else 1
/// @throws LabError when the lab cannot run or a file cannot be written
int runDemo(const DemoOptions& options);

} // namespace velarix::lab::program
