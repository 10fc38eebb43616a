#include "lab/campaigns/Campaign.h"

#include <algorithm>
#include <iostream>

#include "lab/core/Basics.h"
#include "lab/core/Files.h"

namespace velarix::lab
{

void saveTimeline(const std::string& directory, const std::string& title, const std::string& timeline)
{
	if (directory.empty() || timeline.empty())
	{
		return;
	}
	std::string name = title + ".txt";
	std::replace_if(
	    name.begin(), name.end(), [](char letter) { return letter == '/' || letter == ' '; }, '-');
	std::filesystem::create_directories(directory);
	writeFile(std::filesystem::path(directory) / name, timeline);
}

void deliver(const std::string& report, const std::string& output)
{
	if (!output.empty())
	{
		writeFile(output, report);
		return;
	}
	std::cout << report << std::flush;
	if (!std::cout)
	{
		throw LabError("cannot write the report to standard output");
	}
}

void deliver(const ReportOptions& options, const std::string& text, const nlohmann::json& report)
{
	if (!options.records.empty())
	{
		writeFile(options.records, jsonFileText(report));
	}
	deliver(options.form == "json" ? jsonFileText(report) : text, options.output);
}

} // namespace velarix::lab
