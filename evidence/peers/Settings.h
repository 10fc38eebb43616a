/// keepalived and ucarp as a competent operator would set them up on the two
/// nodes of a lab: the texts of their settings, commands and scripts, and nothing
/// else.
///
/// Both guard the virtual address on the service network and speak to each other
/// there. Neither starts programs: the managed program runs on both nodes all the
/// time, as it would under the system's own service manager, and only the address
/// moves. Nobody starts a program again that has ended.
///
/// keepalived leaves a node whose program does not answer, or one of whose two
/// cards has no carrier, and does not go back (nopreempt). The program is checked
/// by a script: keepalived's own process tracking needs the kernel's process
/// events, which exist in the machine's first network namespace only.
/// ucarp knows the state of its own card only.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "evidence/Lab.h"
#include "lab/core/Basics.h"

namespace velarix::evidence::peers
{

enum class Program
{
	keepalived,
	ucarp
};

/// Times of a peer. Defaults are those of the programs.
struct Times
{
	int advertCentiseconds = 100; ///< between advertisements; ucarp: whole seconds
	int checkSeconds = 1;         ///< keepalived: between checks of the program
	int checkFailures = 1;        ///< keepalived: checks in a row that have to fail
	int deadRatio = 3;            ///< ucarp: silent advertisements until the master counts as dead

	/// The longest silence that is waited for, without the skew of a node.
	Millis silence(Program program) const;
};

struct Settings
{
	Program program = Program::keepalived;
	std::string name = "defaults"; ///< of the settings: "defaults", "short"
	Times times{};
};

/// @return "keepalived" or "ucarp": the program's file and process name
const char* nameOf(Program program);

/// Each program at its defaults and with the shortest settings that work in both
/// directions.
const std::vector<Settings>& allPeers();

/// @return the one of them with these names
/// @throws LabError when there is none
const Settings& settingsNamed(const std::string& program, const std::string& name);

/// "keepalived, advertisement every 0.1 s, ..."
std::string toText(const Settings& settings);

/// Where a peer's files are inside a node; on its disk, so they outlive a
/// reboot, and in a directory that only root can write.
inline constexpr const char* peerDirectory = "/usr/velarix-peers";

struct File
{
	std::string name; ///< below peerDirectory
	std::string text;
	bool executable = false;
};

/// Settings file and scripts of one node; every script is an executable of its own.
std::vector<File> filesFor(HostId node, const Settings& settings);

/// The command that runs in the foreground and logs to its standard streams.
std::vector<std::string> commandFor(HostId node, const Settings& settings);

/// Only what is known to keep the program in its namespaces is allowed: the options
/// of commandFor, written out, and the words of filesFor' settings. Scripts
/// are not looked into: they run where the program does.
/// @return the first thing that is not allowed; empty when all is
std::optional<std::string> escapeIn(const std::vector<std::string>& command, const std::vector<File>& files);

} // namespace velarix::evidence::peers
