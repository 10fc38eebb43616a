/// The single checks, one topic each. None of them changes anything, and but for
/// `trial` none runs a configured command.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>

#include "ctl/check/CommandText.h"
#include "ctl/check/Findings.h"
#include "inspect/Host.h"
#include "inspect/Paths.h"
#include "inspect/SettingsKeys.h"
#include "keeper/Settings.h"

namespace velarix::ctl::checks
{

/// Names of findings that the operator accepts, one in each line with its reason.
inline constexpr char kAcknowledged[] = "/usr/velarix/bin/ini/acknowledged.txt";

/// ---- on the text alone -----------------------------------------------------

/// Blanks and quotes that a web page or a word processor has written, or all values in quotes:
/// each line would be a fault of its own.
/// @return whether there are, which is reported once
bool writtenForOthers(Findings& findings);
/// @return the text without typographic quotes, dashes and blanks
std::string withoutPasted(std::string text);
/// Lines that do not do what they look like: unknown and repeated keys, lines
/// without "=", comments and quotes in a value, references.
void lines(Findings& findings);
/// Every key is there, and its value is one that the agent can work with.
void keys(Findings& findings);
/// The receiving time against this node's own interval, where the partner's is not known.
void timing(Findings& findings);
void addresses(Findings& findings);
/// The programs' names and how the run script cuts their paths.
void programs(Findings& findings);
/// The commands that raise and drop the address and kill programs, as texts.
void commands(Findings& findings);
/// All of them but `timing`.
void text(Findings& findings);

/// ---- on two files ------------------------------------------------------------

/// What must fit between the two nodes.
void pair(Findings& own, Findings& partner);

/// ---- on the node's disk --------------------------------------------------------

/// The directories, the run-info record and who may write what.
void installation(Findings& findings, const Paths& paths);
/// The programs' files.
void programFiles(Findings& findings, const Paths& paths);
/// A file that is run as a program.
struct ProgramFile
{
	std::filesystem::path file;
	Place place;
	/// Of one that does not start.
	std::string effect;
	/// What the agent looks for; empty for what the keeper runs, whose name is all the same.
	std::string name = {};
	/// The keeper takes its end for the service's.
	bool stays = false;
};
void programFile(Findings& findings, const Paths& paths, const ProgramFile& program);
/// Who may write along the paths of what root runs, links followed.
void trust(Findings& findings, const Paths& paths);
/// The tools that the agent and the commands call.
void tools(Findings& findings, const Paths& paths);

/// firewall.nft beside the settings: whether it is this node's, and nft takes it.
void firewall(Findings& findings, const Paths& paths);
/// tunnel.conf and the keys beside it.
void tunnelFiles(Findings& findings);
/// The options in /etc/default.
void service(Findings& findings, const Paths& paths);
/// What is in the directory of the notifiers and is not run.
void notifiers(Findings& findings, const Paths& paths);

/// ---- on this machine's kernel -----------------------------------------------------

/// Interfaces, addresses, privileges, space, other processes.
/// @param reach GATEWAY_IP is the keeper's reachability address
void machine(Findings& findings, const Paths& paths, bool reach);
/// The two interfaces, addresses, routes and the virtual IP's holder; a part of `machine`.
void network(Findings& findings, const std::vector<host::Address>& addresses, bool reach);
/// The tunnel's interface, rules, way and session; a part of `machine`.
void tunnelMachine(Findings& findings, const Paths& paths);
/// @return whether an address is in the network of one of this machine's
bool isInNetworkOf(const host::Address& there, const std::string& address);
/// How the virtual IP is raised, against what the machine has; a part of `trial`.
/// @param keeper the file that tells the keeper how it raises the address, and the line; none
///        where the start command does
void raisedAddress(Findings& findings, const host::Address& raised, const std::vector<host::Address>& addresses,
                   const std::optional<Place>& keeper = std::nullopt);

/// How long the trial waits for a command.
struct TrialTimes
{
	/// For one that has not done its work.
	std::chrono::milliseconds limit{15000};
	/// For one that has done it and still runs.
	std::chrono::milliseconds patience{45000};
};

/// Runs the three commands, away from the network, the files and the processes of
/// this machine, and reports what the agent would see. Comes last: what the other checks
/// have found of a command is not reported again.
/// @param addresses what the interfaces have beforehand
void trial(Findings& findings, const std::vector<host::Address>& addresses, const TrialTimes& times = {});

/// ---- keeper.ini, and what it and the agent's settings say of each other ---------------------

/// A keeper.ini as it was read.
struct KeeperFile
{
	std::filesystem::path path;
	keeper::ParsedSettings parsed;
};

/// What its text has wrong, and where it does not fit the settings beside it.
void keeperFile(Findings& findings, const KeeperFile& file);

/// What this machine lacks for it. Its commands are not tried: they are known.
void keeperMachine(Findings& findings, const KeeperFile& file);

/// The files of the services' programs and checks, and whether their users reach them.
void keeperPrograms(Findings& findings, const KeeperFile& file, const Paths& paths);

/// The keys beside both files, where both are to be had.
void reachKeys(Findings& findings, const KeeperFile& own, const KeeperFile& partner);

/// What must be the same in both nodes' files, and what must not.
void keeperPair(Findings& findings, const KeeperFile& own, const KeeperFile& partner);

/// ---- what several of them have in common ---------------------------------------------

/// A configured command: which it is and what its faults lead to.
struct CommandRole
{
	const char* key;
	/// When it does not do its work.
	const char* useless;
	/// When it does not end.
	const char* blocked;
};

inline constexpr CommandRole kStartRole{
    key::kStartCommand,
    "the address is not raised: the agent pings it for ever, while its heartbeats already say master and nobody takes "
    "over",
    "the agent waits for its end for ever: no program is started, while its heartbeats already say master and nobody "
    "takes over"};
inline constexpr CommandRole kStopRole{
    key::kStopCommand, "the address is never dropped: after a failover both nodes hold it (split-brain)",
    "the agent waits for its end for ever, already at its start"};
inline constexpr CommandRole kKillRole{
    key::kKillCommand, "the programs are never killed: after a failover they run on both nodes (split-brain)",
    "the agent waits for its end for ever, already at its start"};

/// A configured program.
struct Program
{
	std::string key;
	/// The whole configured text.
	std::string path;
	/// What the agent looks for.
	std::string name;

	/// @return whether it is an absolute path without arguments or quotes
	bool isPlain() const
	{
		return path.starts_with('/') && !name.empty() && path.find_first_of(" \t\"'") == std::string::npos;
	}
};

std::vector<Program> programsOf(const Findings& findings);

/// @return a configured command; an empty one where the key is missing
inline CommandText commandOf(const Findings& findings, const char* key)
{
	return CommandText(findings.valueOf(key));
}

template <typename Range, typename Value, typename Projection = std::identity>
bool contains(const Range& range, const Value& value, Projection projection = {})
{
	return std::ranges::find(range, value, projection) != std::ranges::end(range);
}

/// @return whether the text is one IPv4 address; what is wrong with another one is
///         reported once, by the check of the addresses
bool isVirtualAddress(const std::string& text);

/// Links are followed.
bool isMissing(const std::filesystem::path& path);
bool isFile(const std::filesystem::path& path);
bool isExecutable(const std::filesystem::path& file);

/// @param tool its name or its path
/// @return its file, as this system reaches it; empty when it is not there
std::filesystem::path toolPath(const Paths& paths, const std::string& tool);

} // namespace velarix::ctl::checks
