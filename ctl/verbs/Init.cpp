#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>

#include <sys/stat.h>

#include "ctl/check/Check.h"
#include "ctl/init/Answers.h"
#include "ctl/init/FirewallRules.h"
#include "ctl/init/PairSettings.h"
#include "ctl/init/Placement.h"
#include "ctl/render/CheckOutput.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/RunInfo.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;

struct InitOptions
{
	Answers answers;
	std::string output = "velarix-pair";
	std::optional<NodeName> here;
	bool force = false;
};

/// The files of one node in a directory, or where this node has them.
struct NodeFiles
{
	fs::path settings;
	fs::path keeper; ///< beside the settings, as the next one
	fs::path firewall;
	fs::path runInfo;
	bool installed = false;
};

NodeFiles filesOf(const InitOptions& options, NodeName node, const Paths& paths)
{
	if (options.here == node)
	{
		return {paths.settings, paths.keeperSettings, paths.settings.parent_path() / kFirewallFile, paths.runInfo,
		        true};
	}
	const fs::path directory = fs::path(options.output) / textOf(node);
	return {directory / paths.settings.filename(), directory / paths.keeperSettings.filename(),
	        directory / kFirewallFile, directory / paths.runInfo.filename(), false};
}

void complete(Answers& answers, const Context& context)
{
	const std::vector<std::string> wrong = faults(answers);
	if (!wrong.empty())
	{
		throw Failure(ExitCode::usage, wrong.front());
	}
	const std::vector<std::string> missing = missingOptions(answers);
	if (missing.empty())
	{
		return;
	}
	if (context.in == nullptr)
	{
		std::string list;
		for (const std::string& option : missing)
		{
			list += " " + option;
		}
		throw Failure(ExitCode::usage, "needed:" + list + " (asked for when the input is a terminal)");
	}
	askFor(answers, *context.in, context.err);
}

/// What the checks have against the pair goes to the diagnostics.
/// @return whether it may be written
bool isSound(const NodeTexts& left, const NodeTexts& right, const Context& context)
{
	const CheckReport report = checkTexts(left, right);
	if (!report.findings.empty())
	{
		printReport(context.err, report, false);
	}
	return report.count(Severity::error) == 0;
}

/// Makes a directory and those above it for their owner alone: a node's commands
/// are nobody else's affair.
void makeDirectory(const fs::path& directory)
{
	std::error_code ignored;
	if (directory.empty() || fs::is_directory(directory, ignored))
	{
		return;
	}
	makeDirectory(directory.parent_path());
	if (::mkdir(directory.c_str(), S_IRWXU) != 0)
	{
		const std::error_code error(errno, std::generic_category());
		throw Failure(error == std::errc::permission_denied ? ExitCode::noPermission : ExitCode::cannotWrite,
		              "cannot make " + directory.string() + ": " + error.message());
	}
}

ExitCode runInit(InitOptions& options, const Context& context)
{
	complete(options.answers, context);
	std::vector<NewFile> files;
	std::vector<NodeTexts> texts;
	const bool keeper = !options.answers.services.empty();
	std::vector<NodeFiles> places;
	for (const NodeName node : {NodeName::a, NodeName::b})
	{
		const NodeFiles place = filesOf(options, node, context.paths);
		const std::string text = settingsText(options.answers, node);
		const std::string keeperText = keeper ? keeperSettingsText(options.answers, node) : "";
		texts.push_back({SettingsFile::parse(place.settings, text), place.keeper, keeperText});
		files.push_back({place.settings, text, false});
		if (keeper)
		{
			files.push_back({place.keeper, keeperText, false});
		}
		files.push_back({place.firewall, firewallRules(options.answers, node), false});
		files.push_back({place.runInfo, kInitialRunInfo, place.installed});
		places.push_back(place);
	}
	if (!isSound(texts[0], texts[1], context))
	{
		complain(context, "nothing was written");
		return ExitCode::settings;
	}
	for (const NodeFiles& place : places)
	{
		if (!place.installed)
		{
			makeDirectory(place.settings.parent_path());
		}
	}
	place(files, {.force = options.force, .now = context.now()}, context.out);
	return ExitCode::fine;
}

NodeName nodeOf(const std::string& name)
{
	return name == textOf(NodeName::a) ? NodeName::a : NodeName::b;
}

void addAnswers(Verb& verb, Answers& answers)
{
	for (const Question& question : questions())
	{
		verb.option(std::string("--") + question.option, answers.*question.answer,
		            question.option == std::string("virtual-ip") ? "ADDRESS/PREFIX" : "ADDRESS", question.text);
	}
	for (const ServiceOption& option : serviceOptions())
	{
		verb.each(
		    std::string("--") + option.option,
		    [&answers, &option](const std::string& given) { return addService(answers, option, given); }, option.type,
		    option.text);
	}
	verb.list("--program", answers.programs, "PATH",
	          "without the keeper: a program's path, without arguments; once for each")
	    .preset("--port", answers.port, "TCP port of the heartbeats, on both nodes")
	    .preset("--interval", answers.interval, "seconds between heartbeats")
	    .preset("--receiving-time", answers.receivingTime, "seconds until a silence, at least twice the interval")
	    .preset("--waiting-time", answers.waitingTime, "seconds between the address and the programs")
	    .preset("--check-cycle", answers.checkCycle, "seconds between looks at the programs")
	    .preset("--log", answers.log, "PATH", "the log file")
	    .preset("--purge-age", answers.purgeAge, "TIME", "age at which old logs are deleted");
}

} // namespace

void addInit(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<InitOptions>();
	const std::vector<std::string> nodes{"a", "b"};
	Verb verb(app, "init", "write settings, firewall rules and run-info records of both nodes");
	addAnswers(verb, options->answers);
	verb.oneOf(
	        "--master", nodes, "a", [options](const std::string& name) { options->answers.master = nodeOf(name); },
	        "the node that serves when both are well")
	    .preset("--output", options->output, "DIR", "where the files go, in a directory for each node")
	    .oneOf(
	        "--this", nodes, "", [options](const std::string& name) { options->here = nodeOf(name); },
	        "put the files of this node in place; the other one's go to --output")
	    .flag("--force", options->force, "replace files that are there, keeping a copy of each")
	    .run(context, [options, &context] { return runInit(*options, context); });
}

} // namespace velarix::ctl
