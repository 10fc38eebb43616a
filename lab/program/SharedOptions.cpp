#include "lab/program/SharedOptions.h"

namespace velarix::lab
{

void addCampaignOptions(CLI::App& command, CampaignOptions& campaign)
{
	command.add_option("--runs", campaign.runs, "Runs of each cell")->capture_default_str()->check(CLI::Range(1, 1000));
	command.add_option("--seed", campaign.seed, "The moments of the faults follow from it")->capture_default_str();
	command.add_option("--only", campaign.only, "A cell or a group of cells (again for more)");
	command.add_option("--jobs", campaign.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command.add_option("--format", campaign.form, "text, json or markdown")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json", "markdown"}));
	command.add_option("--output", campaign.output, "Write the report to this file");
	command.add_option("--records", campaign.records, "Write the report as JSON to this file as well");
	command.add_option("--from", campaign.from, "Run nothing; tell what such a JSON file holds");
	command.add_flag("--list", campaign.list, "Name the cells and end");
}

void addLabOptions(CLI::App& command, std::string& installRoot, PairTimes& times)
{
	command.add_option("--install-root", installRoot,
	                   "Tree with the installed agent (default: the one staged by the build, else this machine's)");
	command.add_option("--interval", times.interval, "Seconds between heartbeats")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 60));
	command.add_option("--receiving-time", times.receivingTime, "Seconds of silence that count as one")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 60));
	command.add_option("--waiting-time", times.waitingTime, "Seconds between address and programs")
	    ->capture_default_str()
	    ->check(CLI::Range(0, 60));
}

} // namespace velarix::lab
