#include <algorithm>

#include <Poco/DigestEngine.h>
#include <Poco/RandomStream.h>

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
constexpr std::string_view kKeyPath = keeper::kKeyFile;
constexpr std::string_view kReachKey = kKeyPath.substr(kKeyPath.rfind('/') + 1);

/// Where the files of one node go.
struct NodePlace
{
	std::string node;
	fs::path directory;
	/// This machine is the node.
	bool installed = false;
};

/// @return the key that a node has already, in place or in the output; else a new one
std::string keyText(std::vector<NodePlace> places)
{
	// The output may be older than what is in use.
	std::ranges::stable_sort(places, std::greater<>(), &NodePlace::installed);
	for (const NodePlace& place : places)
	{
		if (host::fileFacts(place.directory / kReachKey).kind == host::FileKind::regular)
		{
			return readInputFile(place.directory / kReachKey);
		}
	}
	std::string bytes(kKeyBytes, '\0');
	Poco::RandomInputStream().read(bytes.data(), kKeyBytes);
	return Poco::DigestEngine::digestToHex({bytes.begin(), bytes.end()}) + "\n";
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
void addFiles(const Answers& answers, const NodePlace& place, const Paths& paths, std::vector<NewFile>& files,
              std::vector<NodeTexts>& texts)
{
	const fs::path settings = place.directory / paths.settings.filename();
	const fs::path keeper = place.directory / paths.keeperSettings.filename();
	files.push_back({settings, settingsText(answers, place.node)});
	texts.push_back({SettingsFile::parse(settings, files.back().text), keeper, ""});
	if (!answers.services.empty())
	{
		texts.back().keeperText = keeperSettingsText(answers, place.node);
		files.push_back({keeper, texts.back().keeperText});
	}
	files.push_back({place.directory / kFirewallFile, firewallRules(answers, place.node)});
	const fs::path runInfo = place.installed ? paths.runInfo : place.directory / paths.runInfo.filename();
	files.push_back({runInfo, kInitialRunInfo, place.installed});
}

/// @return the public key of this node; empty when the files are made elsewhere
std::string addTunnel(const Answers& answers, const std::vector<NodePlace>& places, std::vector<NewFile>& files)
{
	const auto here = std::ranges::find(places, true, &NodePlace::installed);
	const std::string key = here == places.end() ? "" : tunnelKey(here->directory);
	std::string publicKey = key.empty() ? "" : host::publicKeyOf(key);
	for (const auto& [node, directory, installed] : places)
	{
		const fs::path conf = directory / kTunnelFile;
		files.push_back({conf, tunnelText(answers, node) + presharedKey(conf)});
		if (installed)
		{
			files.push_back({directory / kTunnelKey, key + "\n", true});
			files.push_back({directory / kTunnelPublicKey, publicKey + "\n"});
		}
		const std::string& partner = installed ? answers.partnerKey : publicKey;
		if (!partner.empty())
		{
			files.push_back({directory / kPartnerKey, partner + "\n"});
		}
	}
	return publicKey;
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
	for (const std::string node : kNodes)
	{
		if (options.here != node)
		{
			context.out << "  copy " << printable(options.output) << '/' << node << "/* to "
			            << Paths().settings.parent_path().string() << " on node " << node << " ("
			            << answers.wireAddress(node) << ")\n";
		}
	}
	context.out << (answers.wireguard && answers.partnerKey.empty()
	                    ? "  exchange the public keys of the nodes: docs/tunnel.md\n"
	                    : "")
	            << "  velarixctl check on both nodes\n"
	            << "  systemctl enable --now velarix-ha on node " << answers.master << ", then on node "
	            << otherOf(answers.master) << "\n  velarixctl status on both: a failover would work\n";
}

} // namespace

ExitCode runInit(const InitOptions& given, const Context& context)
{
	InitOptions options = given;
	options.rules.now = context.now();
	const std::vector<NewFile> links = linkFiles(options.interfaces, context.paths);
	// The partner's interfaces have other hardware addresses: its operator gives these two options alone.
	if (!links.empty() && nothingAnswered(options.answers))
	{
		nameInterfaces(options, links, context);
		return ExitCode::fine;
	}
	if (!links.empty() && options.here.empty())
	{
		throw Failure(ExitCode::usage, "the interfaces are those of this machine: say which node it is (--this), or "
		                               "give --service-interface and --communication-interface alone");
	}
	complete(options.answers, context);
	std::vector<NewFile> files;
	std::vector<NodeTexts> texts;
	std::vector<NodePlace> places;
	for (const std::string node : kNodes)
	{
		const bool here = options.here == node;
		places.push_back({node, here ? context.paths.settings.parent_path() : fs::path(options.output) / node, here});
		addFiles(options.answers, places.back(), context.paths, files, texts);
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
			files.push_back({place.directory / kReachKey, key});
		}
		if (!place.installed && !options.rules.dryRun)
		{
			makeDirectory(place.directory);
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
