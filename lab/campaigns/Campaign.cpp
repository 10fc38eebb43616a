#include "lab/campaigns/Campaign.h"

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "lab/core/Files.h"

namespace velarix::lab
{

void tellRun(const std::string& progress, const std::vector<std::string>& differences)
{
	std::cerr << progress << (differences.empty() ? ": as expected\n" : ": NOT AS EXPECTED\n");
	for (const std::string& difference : differences)
	{
		std::cerr << "    " << difference << '\n';
	}
}

void saveTimeline(const std::string& directory, const std::string& title, const std::string& timeline)
{
	if (directory.empty() || timeline.empty())
	{
		return;
	}
	std::string name = title + ".txt";
	std::erase(name, ',');
	std::ranges::replace_if(
	    name, [](char letter) { return letter == '/' || letter == ' '; }, '-');
	std::filesystem::create_directories(directory);
	writeFile(std::filesystem::path(directory) / name, timeline);
}

void deliver(const CampaignOptions& options, const std::string& text, const nlohmann::json& report)
{
	if (!options.records.empty())
	{
		writeFile(options.records, jsonFileText(report));
	}
	const std::string shown = options.form == "json" ? jsonFileText(report) : text;
	if (!options.output.empty())
	{
		writeFile(options.output, shown);
		return;
	}
	std::cout << shown << std::flush;
	if (!std::cout)
	{
		throw LabError("cannot write the report to standard output");
	}
}

} // namespace velarix::lab
