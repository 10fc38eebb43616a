#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <Poco/DigestEngine.h>
#include <Poco/RandomStream.h>
#include <Poco/String.h>

#include <sys/stat.h>

#include "ctl/OutputFile.h"
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
constexpr std::size_t kKeyBytes = 32;

struct InitOptions
{
	Answers answers;
	InterfaceNames interfaces;
	std::string master = "a";
	std::string output = "velarix-pair";
	/// The node that this machine is; empty: its files go to `output` too.
	std::string here;
	PlacementRules rules;
};

/// Where the files of one node go.
struct Place
{
	fs::path settings;
	fs::path keeper;
	fs::path runInfo;
	bool installed = false;

	fs::path beside(const fs::path& name) const { return settings.parent_path() / name; }
	fs::path key() const { return beside(fs::path(keeper::kKeyFile).filename()); }
};

Place placeOf(const InitOptions& options, NodeName node, const Paths& paths)
{
	if (options.here == textOf(node))
	{
		return {paths.settings, paths.keeperSettings, paths.runInfo, true};
	}
	const fs::path directory = fs::path(options.output) / textOf(node);
	return {directory / paths.settings.filename(), directory / paths.keeperSettings.filename(),
	        directory / paths.runInfo.filename(), false};
}

/// @return the key that a node has already, in place or in the output; else a new one
std::string keyText(std::vector<Place> places)
{
	// The output may be older than what is in use.
	std::ranges::stable_sort(places, std::greater<>(), &Place::installed);
	for (const Place& place : places)
	{
		if (host::fileFacts(place.key()).kind == host::FileKind::regular)
		{
			return readInputFile(place.key());
		}
	}
	std::string bytes(kKeyBytes, '\0');
	Poco::RandomInputStream().read(bytes.data(), kKeyBytes);
	return Poco::DigestEngine::digestToHex({bytes.begin(), bytes.end()}) + "\n";
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
		throw Failure(ExitCode::usage, "needed: " + Poco::cat(std::string(" "), missing.begin(), missing.end()) +
		                                   " (asked for when the input is a terminal)");
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
	const mode_t mask = ::umask(S_IRWXG | S_IRWXO);
	std::error_code error;
	fs::create_directories(directory, error);
	::umask(mask);
	if (error)
	{
		failOutput("cannot make " + directory.string(), error);
	}
}

/// @param texts for the checks
void addFiles(const Answers& answers, NodeName node, const Place& place, std::vector<NewFile>& files,
              std::vector<NodeTexts>& texts)
{
	const bool keeper = !answers.services.empty();
	const std::string text = settingsText(answers, node);
	const std::string keeperText = keeper ? keeperSettingsText(answers, node) : "";
	texts.push_back({SettingsFile::parse(place.settings, text), place.keeper, keeperText});
	files.push_back({place.settings, text});
	if (keeper)
	{
		files.push_back({place.keeper, keeperText});
	}
	files.push_back({place.beside(kFirewallFile), firewallRules(answers, node)});
	files.push_back({place.runInfo, kInitialRunInfo, place.installed});
}

/// @param places of node a and node b
/// @return the public key of this node; empty when the files are made elsewhere
std::string addTunnel(const Answers& answers, const std::vector<Place>& places, std::vector<NewFile>& files)
{
	const auto here = std::ranges::find(places, true, &Place::installed);
	const TunnelKeys keys = here == places.end() ? TunnelKeys() : tunnelKeys(here->settings.parent_path());
	for (const NodeName node : {NodeName::a, NodeName::b})
	{
		const Place& place = places[node == NodeName::a ? 0 : 1];
		const fs::path conf = place.beside(kTunnelFile);
		files.push_back({conf, tunnelText(answers, node) + presharedKey(conf)});
		if (place.installed)
		{
			files.push_back({place.beside(kTunnelKey), keys.own + "\n", true});
			files.push_back({place.beside(kTunnelPublicKey), keys.publicKey + "\n"});
		}
		const std::string& partner = place.installed ? answers.partnerKey : keys.publicKey;
		if (!partner.empty())
		{
			files.push_back({place.beside(kPartnerKey), partner + "\n"});
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
		if (options.here != textOf(node))
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
	options.answers.master = options.master == textOf(NodeName::a) ? NodeName::a : NodeName::b;
	const std::vector<NewFile> links = linkFiles(options.interfaces, context.paths);
	// The partner's interfaces have other hardware addresses: its operator gives these two options alone.
	if (!links.empty() && missingOptions(options.answers).size() > questions().size())
	{
		nameInterfaces(options, links, context);
		return ExitCode::fine;
	}
	if (!links.empty() && options.here.empty())
	{
		throw Failure(ExitCode::usage, "the interfaces are those of this machine: say which node it is (--this), or "
		                               "give --service-interface and --communication-interface alone");
	}
	completeAnswers(options.answers, context);
	std::vector<NewFile> files;
	std::vector<NodeTexts> texts;
	std::vector<Place> places;
	for (const NodeName node : {NodeName::a, NodeName::b})
	{
		places.push_back(placeOf(options, node, context.paths));
		addFiles(options.answers, node, places.back(), files, texts);
	}
	const std::string publicKey = options.answers.wireguard ? addTunnel(options.answers, places, files) : "";
	if (!isSound(texts[0], texts[1], context))
	{
		complain(context, "nothing was written");
		return ExitCode::settings;
	}
	const std::string key = options.answers.targets.empty() ? "" : keyText(places);
	for (const Place& place : places)
	{
		if (!key.empty())
		{
			files.push_back({place.key(), key});
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
	verb.option("--program", answers.programs, "PATH",
	            "without the keeper: a program's path, without arguments; once for each")
	    .option("--target", answers.targets, "ADDRESS",
	            "a host that answers pings while this node's networks work; once for each")
	    .preset("--needed", answers.needed, "INT", "how many targets have to answer")
	    .flag("--wireguard", answers.wireguard, "heartbeats through a WireGuard tunnel, encrypted and authenticated")
	    .option("--partner-key", answers.partnerKey, "KEY", "public key of the other node's tunnel")
	    .preset("--tunnel-a", answers.tunnelA, "ADDRESS", "address of node a in the tunnel")
	    .preset("--tunnel-b", answers.tunnelB, "ADDRESS", "address of node b in the tunnel")
	    .preset("--tunnel-port", answers.tunnelPort, "INT", "UDP port of the tunnel, on both nodes")
	    .within(1, kLastPort)
	    .preset("--port", answers.port, "INT", "TCP port of the heartbeats, on both nodes")
	    .preset("--interval", answers.interval, "INT", "seconds between heartbeats")
	    .preset("--receiving-time", answers.receivingTime, "INT",
	            "seconds until a silence, at least twice the interval")
	    .preset("--waiting-time", answers.waitingTime, "INT", "seconds between the address and the programs")
	    .preset("--check-cycle", answers.checkCycle, "INT", "seconds between looks at the programs")
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
	verb.preset("--master", options->master, "", "the node that serves when both are well")
	    .oneOf(nodes)
	    .preset("--output", options->output, "DIR", "where the files go, in a directory for each node")
	    .option("--this", options->here, "", "put the files of this node in place; the other one's go to --output")
	    .oneOf(nodes)
	    .option("--service-interface", options->interfaces.service, "NAME",
	            "this machine's interface that is to be eth0; alone with the next one: only that")
	    .option("--communication-interface", options->interfaces.communication, "NAME", "the one that is to be eth1")
	    .flag("--force", options->rules.force, "replace files that are there, keeping a copy of each")
	    .flag("--dry-run", options->rules.dryRun, "write nothing; say which files would be written")
	    .run(context, [options, &context] { return runInit(*options, context); });
}

} // namespace velarix::ctl
