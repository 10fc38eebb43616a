// The options that several commands have.

#include "lab/program/CommandLine.h"

namespace velarix::lab::program
{

void addLabOptions(CLI::App& command, std::string& installRoot, PairSettings& times)
{
	command.add_option("--install-root", installRoot,
	                   "Tree with the installed agent (default: the one staged by the build, else this machine's)");
	command
	    .add_option("--settings", times.profile,
	                "keeper: address and service are the keeper's; plain: shell commands raise and run them")
	    ->transform(CLI::CheckedTransformer(
	        std::map<std::string, Profile>{{"keeper", Profile::keeper}, {"plain", Profile::plain}}))
	    ->default_str(nameOf(times.profile));
	command.add_flag("--wireguard", times.wireguard, "The heartbeats go through a WireGuard tunnel");
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

void addCampaignOptions(CLI::App& command, CampaignOptions& options)
{
	addLabOptions(command, options.installRoot, options.times.pair);
	command.add_option("--seed", options.seed, "What happens by chance follows from it")->capture_default_str();
	command.add_option("--jobs", options.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	command.add_option("--output", options.output, "Write the report to this file");
	command.add_option("--expectations", options.expectations, "Table of what is expected (default: the built-in one)");
}

void addCellOptions(CLI::App& command, CampaignOptions& options)
{
	command.add_option("--timelines", options.timelines, "Directory for the timelines of runs that differ");
	command.add_flag("--list", options.list, "Name the cells and end");
	command.footer("Ends with 0 when every run was as expected, with 1 when not.");
}

void addReportOptions(CLI::App& command, CampaignOptions& options)
{
	command.add_option("--format", options.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command.add_option("--records", options.records, "Write the report as JSON to this file as well");
}

} // namespace velarix::lab::program
