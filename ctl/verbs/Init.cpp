#include <algorithm>

#include <Poco/DigestEngine.h>
#include <Poco/RandomStream.h>
#include <Poco/String.h>

#include <sys/stat.h>

#include "ctl/check/Findings.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"
#include "inspect/Names.h"
#include "inspect/Printable.h"
#include "inspect/Tunnel.h"
#include "keeper/PartnerLink.h"

namespace velarix::ctl
{

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t kKeyBytes = 32;

/// Where the files of one node go.
struct NodePlace
{
	fs::path settings;
	fs::path keeper;
	fs::path runInfo;
	bool installed = false;

	fs::path beside(const fs::path& name) const { return settings.parent_path() / name; }
	fs::path key() const { return beside(fs::path(keeper::kKeyFile).filename()); }
};

NodePlace placeOf(const InitOptions& options, NodeName node, const Paths& paths)
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
std::string keyText(std::vector<NodePlace> places)
{
	// The output may be older than what is in use.
	std::ranges::stable_sort(places, std::greater<>(), &NodePlace::installed);
	for (const NodePlace& place : places)
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
void addFiles(const Answers& answers, NodeName node, const NodePlace& place, std::vector<NewFile>& files,
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
std::string addTunnel(const Answers& answers, const std::vector<NodePlace>& places, std::vector<NewFile>& files)
{
	const auto here = std::ranges::find(places, true, &NodePlace::installed);
	const TunnelKeys keys = here == places.end() ? TunnelKeys() : tunnelKeys(here->settings.parent_path());
	for (const NodeName node : {NodeName::a, NodeName::b})
	{
		const NodePlace& place = places[node == NodeName::a ? 0 : 1];
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

} // namespace

ExitCode runInit(const InitOptions& given, const Context& context)
{
	InitOptions options = given;
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
	std::vector<NodePlace> places;
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
	for (const NodePlace& place : places)
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

} // namespace velarix::ctl
