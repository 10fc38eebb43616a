#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include <sys/stat.h>

#include "ctl/check/Check.h"
#include "ctl/init/Answers.h"
#include "ctl/init/InterfaceNames.h"
#include "ctl/init/NodeFiles.h"
#include "ctl/init/Placement.h"
#include "ctl/render/CheckOutput.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/Printable.h"
#include "inspect/Tunnel.h"
#include "keeper/PartnerLink.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;

constexpr int kLastPort = 65535;
const fs::path kKeyName = fs::path(keeper::kKeyFile).filename();

struct InitOptions
{
	Answers answers;
	InterfaceNames interfaces;
	std::string output = "velarix-pair";
	std::optional<NodeName> here;
	PlacementRules rules;
};

/// The files of one node in a directory, or where this node has them.
struct NodeFiles
{
	fs::path settings;
	fs::path keeper; ///< beside the settings, as the next one
	fs::path firewall;
	fs::path key;
	fs::path runInfo;
	bool installed = false;
};

NodeFiles filesOf(const InitOptions& options, NodeName node, const Paths& paths)
{
	if (options.here == node)
	{
		return {paths.settings,
		        paths.keeperSettings,
		        paths.settings.parent_path() / kFirewallFile,
		        paths.settings.parent_path() / kKeyName,
		        paths.runInfo,
		        true};
	}
	const fs::path directory = fs::path(options.output) / textOf(node);
	return {directory / paths.settings.filename(),
	        directory / paths.keeperSettings.filename(),
	        directory / kFirewallFile,
	        directory / kKeyName,
	        directory / paths.runInfo.filename(),
	        false};
}

/// @return the key that a node has already, in place or in the output; else a new one
std::string keyText(std::vector<NodeFiles> places)
{
	// The output may be older than what is in use.
	std::ranges::stable_sort(places, std::greater<>(), &NodeFiles::installed);
	for (const NodeFiles& place : places)
	{
		if (host::fileFacts(place.key).kind == host::FileKind::regular)
		{
			return readInputFile(place.key);
		}
	}
	std::random_device chance;
	std::ostringstream digits;
	for (int word = 0; word < 8; ++word)
	{
		digits << std::hex << std::setw(8) << std::setfill('0') << chance();
	}
	return digits.str() + "\n";
}

void completeAnswers(Answers& answers, const Context& context)
{
	complete(answers);
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

/// @param places of node a and node b
/// @return the public key of this node; empty when the files are made elsewhere
std::string addTunnel(const InitOptions& options, const std::vector<NodeFiles>& places, std::vector<NewFile>& files)
{
	const auto here = std::ranges::find(places, true, &NodeFiles::installed);
	const TunnelKeys keys = here == places.end() ? TunnelKeys() : tunnelKeys(here->settings.parent_path());
	for (const NodeName node : {NodeName::a, NodeName::b})
	{
		const NodeFiles& place = places[node == NodeName::a ? 0 : 1];
		const fs::path directory = place.settings.parent_path();
		const fs::path conf = directory / kTunnelFile;
		files.push_back({conf, tunnelText(options.answers, node) + presharedKey(conf), false});
		if (place.installed)
		{
			files.push_back({directory / kTunnelKey, keys.own + "\n", true});
			files.push_back({directory / kTunnelPublicKey, keys.publicKey + "\n", false});
		}
		const std::string& partner = place.installed ? options.answers.partnerKey : keys.publicKey;
		if (!partner.empty())
		{
			files.push_back({directory / kPartnerKey, partner + "\n", false});
		}
	}
	return keys.publicKey;
}

/// Writes the names of this machine's interfaces and says what is left to do.
void nameInterfaces(const InitOptions& options, const std::vector<NewFile>& links, const Context& context)
{
	for (const NewFile& link : options.rules.dryRun ? std::vector<NewFile>() : links)
	{
		std::error_code ignored; // place reports it
		fs::create_directories(link.path.parent_path(), ignored);
	}
	place(links, options.rules, context.out);
	if (!links.empty())
	{
		printRenaming(options.interfaces, links, context.paths, context.out);
	}
}

/// What is left to do for a pair that works.
void printNext(const InitOptions& options, const Context& context)
{
	const Answers& answers = options.answers;
	context.out << "next, as root:\n";
	for (const NodeName node : {NodeName::a, NodeName::b})
	{
		if (options.here != node)
		{
			context.out << "  copy " << printable(options.output) << '/' << textOf(node) << "/* to "
			            << Paths().settings.parent_path().string() << " on node " << textOf(node) << " ("
			            << answers.wireAddress(node) << ")\n";
		}
	}
	context.out << (answers.wireguard && answers.partnerKey.empty()
	                    ? "  exchange the public keys of the nodes: docs/tunnel.md\n"
	                    : "")
	            << "  velarixctl check on both nodes\n"
	            << "  systemctl enable --now velarix-ha on node " << textOf(answers.master) << ", then on node "
	            << textOf(otherOf(answers.master)) << "\n  velarixctl status on both: a failover would work\n";
}

ExitCode runInit(InitOptions& options, const Context& context)
{
	options.rules.now = context.now();
	const std::vector<NewFile> links = linkFiles(options.interfaces, context.paths);
	// The partner's interfaces have other hardware addresses: its operator gives these two options alone.
	if (!links.empty() && missingOptions(options.answers).size() > questions().size())
	{
		nameInterfaces(options, links, context);
		return ExitCode::fine;
	}
	if (!links.empty() && !options.here)
	{
		throw Failure(ExitCode::usage, "the interfaces are those of this machine: say which node it is (--this), or "
		                               "give --service-interface and --communication-interface alone");
	}
	completeAnswers(options.answers, context);
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
	const std::string publicKey = options.answers.wireguard ? addTunnel(options, places, files) : "";
	if (!isSound(texts[0], texts[1], context))
	{
		complain(context, "nothing was written");
		return ExitCode::settings;
	}
	const std::string key = options.answers.targets.empty() ? "" : keyText(places);
	for (const NodeFiles& place : places)
	{
		if (!key.empty())
		{
			files.push_back({place.key, key, false});
		}
		if (!place.installed && !options.rules.dryRun)
		{
			makeDirectory(place.settings.parent_path());
		}
	}
	const bool wrote = place(files, options.rules, context.out);
	if (!publicKey.empty() && !options.rules.dryRun)
	{
		context.out << "public key of this node: " << publicKey << '\n';
	}
	nameInterfaces(options, links, context);
	if (wrote)
	{
		printNext(options, context);
	}
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
	    .list("--target", answers.targets, "ADDRESS",
	          "a host that answers pings while this node's networks work; once for each")
	    .preset("--needed", answers.needed, "how many targets have to answer")
	    .flag("--wireguard", answers.wireguard, "heartbeats through a WireGuard tunnel, encrypted and authenticated")
	    .option("--partner-key", answers.partnerKey, "KEY", "public key of the other node's tunnel")
	    .preset("--tunnel-a", answers.tunnelA, "ADDRESS", "address of node a in the tunnel")
	    .preset("--tunnel-b", answers.tunnelB, "ADDRESS", "address of node b in the tunnel")
	    .preset("--tunnel-port", answers.tunnelPort, 1, kLastPort, "UDP port of the tunnel, on both nodes")
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
	    .option("--service-interface", options->interfaces.service, "NAME",
	            "this machine's interface that is to be eth0; alone with the next one: only that")
	    .option("--communication-interface", options->interfaces.communication, "NAME", "the one that is to be eth1")
	    .flag("--force", options->rules.force, "replace files that are there, keeping a copy of each")
	    .flag("--dry-run", options->rules.dryRun, "write nothing; say which files would be written")
	    .run(context, [options, &context] { return runInit(*options, context); });
}

} // namespace velarix::ctl
