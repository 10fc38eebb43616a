#include <algorithm>
#include <iostream>

#include "lab/campaigns/Filter.h"
#include "lab/campaigns/hostile/Run.h"
#include "lab/core/Lab.h"
#include "lab/program/CommandLine.h"

namespace velarix::lab::hostile
{

namespace
{

/// The longest case waits for thousands of messages.
constexpr Millis caseLimit{3600000};

struct Options : CampaignOptions
{
	long count = 10000;
	std::string mitigation = "none"; ///< see mitigationNamed
	bool beside = false;             ///< see AttackerPlan
	bool json = false;
};

Record recordOf(const Plan& plan)
{
	Record record;
	record.name = plan.cell.name;
	record.mitigation = nameOf(plan.mitigation);
	return record;
}

std::string titleOf(const Record& record)
{
	return record.name + ", mitigation " + record.mitigation;
}

std::vector<Plan> plansFor(const Options& options, const std::vector<Case>& cells)
{
	const bool tunnel = options.times.pair.wireguard;
	const Mitigation mitigation = tunnel ? Mitigation::tunnel : mitigationNamed(options.mitigation);
	std::vector<Plan> plans;
	for (const Case& cell : cells)
	{
		plans.push_back(
		    {cell, mitigation, options.times, options.seed, options.count, options.installRoot, options.beside});
	}
	return plans;
}

std::vector<Case> chosen(const Options& options)
{
	std::vector<Case> all = readTable(options.expectations);
	const bool every = std::ranges::find(options.only, "all") != options.only.end();
	// What is expected of the other attacks is expected of the plain settings.
	const bool keeper = options.times.pair.profile == Profile::keeper;
	std::erase_if(all,
	              [&](const Case& cell) { return attackNamed(cell.attack).onKeeper != keeper && (every || !keeper); });
	return filtered(all, every ? std::vector<std::string>() : options.only, "case");
}

int runHostile(const Options& options)
{
	const std::vector<Case> cells = chosen(options);
	if (options.list)
	{
		for (const Case& cell : cells)
		{
			std::cout << cell.name << ": " << attackNamed(cell.attack).what
			          << (cell.note.empty() ? "" : "; " + cell.note) << '\n';
		}
		return 0;
	}
	requireLab(options.installRoot);
	const std::vector<Record> records =
	    runAll(options, plansFor(options, cells), caseLimit,
	           Runs<Plan, Record>{runCase, recordOf, titleOf, [](const Record& record) { return record.differences; }});
	deliver(options, toText(records), records);
	return std::ranges::all_of(records, [](const Record& record) { return record.differences.empty(); }) ? 0 : 1;
}

} // namespace

} // namespace velarix::lab::hostile

namespace velarix::lab::program
{

void addHostile(CLI::App& app, int& status)
{
	CLI::App* command =
	    app.add_subcommand("hostile", "Attack pairs from a third host and compare with what is expected");
	const auto options = std::make_shared<hostile::Options>();
	// The table tells what comes of the plain settings.
	options->times.pair.profile = Profile::plain;
	addCampaignOptions(*command, *options);
	addCellOptions(*command, *options);
	command->add_option("--attack", options->only, "A case or a group of cases, or all (again for more)");
	command->add_option("--count", options->count, "Random messages of an attack")
	    ->capture_default_str()
	    ->check(CLI::Range(1, 1000000));
	command
	    ->add_option("--mitigation", options->mitigation,
	                 "port: the shipped rules for the heartbeat port; firewall: all shipped rules; neighbours: "
	                 "and fixed ARP entries, and hardware addresses in the rules")
	    ->capture_default_str()
	    ->check(CLI::IsMember({"none", "port", "firewall", "neighbours"}));
	command->add_flag("--beside", options->beside, "With --wireguard: at the address on eth1, not at the tunnel's");
	command->add_flag("--json", options->json, "The records as JSON, for evidence/scripts/render.py");
	command->callback(
	    [&status, options]
	    {
		    options->form = options->json ? "json" : "text";
		    status = runHostile(*options);
	    });
}

} // namespace velarix::lab::program
