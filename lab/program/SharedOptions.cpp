#include "lab/program/SharedOptions.h"

namespace velarix::lab::program
{

void addReportOptions(CLI::App& command, ReportOptions& report)
{
	command.add_option("--format", report.form, "text or json")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"text", "json"}));
	command.add_option("--output", report.output, "Write the report to this file");
	command.add_option("--records", report.records, "Write the report as JSON to this file as well");
}

void addCampaignOptions(CLI::App& command, CampaignOptions& campaign)
{
	command.add_option("--runs", campaign.runs, "Runs of each cell")->capture_default_str()->check(CLI::Range(1, 1000));
	command.add_option("--seed", campaign.seed, "The moments of the faults follow from it")->capture_default_str();
	command.add_option("--only", campaign.only, "A cell or a group of cells (again for more)");
	command.add_option("--jobs", campaign.jobs, "Pairs side by side; they mostly wait")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 64));
	addReportOptions(command, campaign);
	command.add_flag("--list", campaign.list, "Name the cells and end");
}

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

} // namespace velarix::lab::program
