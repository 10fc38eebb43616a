/// A rehearsal of the three commands away from the real network, the real files and
/// the real processes. Part of the seam that Host.h describes.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "inspect/Host.h"

namespace velarix::inspect::host
{

struct TrialPlan
{
	/// An empty command is not run.
	std::string start;
	std::string stop;
	/// With the program's name behind it, as the agent runs it.
	std::string kill;
	std::string virtualIP;
	/// Path of a program that runs while the kill command does; another one is put in
	/// its place. Empty: none.
	std::string program;
	/// Programs that succeed without doing anything.
	std::vector<std::string> stubs;
	/// What the interfaces of the rehearsal have beforehand. There are always eth0 and eth1.
	std::vector<Address> addresses;
	/// After this time a command that has not done its work counts as slow ...
	std::chrono::milliseconds limit{};
	/// ... and one that has done it, or whose output is held open, as endless.
	std::chrono::milliseconds patience{};
};

enum class RunEnd
{
	notRun,
	ended,
	/// It still ran, and its work was not done: it may be slow.
	slow,
	/// It still ran although its work was done, or something held its output.
	endless,
	/// It printed more than any command that ends.
	flood
};

/// What the agent would see of one command.
struct CommandRun
{
	RunEnd end = RunEnd::notRun;
	/// Beginnings of what it printed.
	std::string output;
	std::string errors;
	/// The shell has ended, so that it was something in the background that went on.
	bool shellEnded = false;
	/// How long the output stayed open after the shell's end.
	long heldMilliseconds = 0;
	/// Command line of what still ran; empty when it ended.
	std::string remaining;
	/// What the interfaces have afterwards.
	std::vector<Address> addresses;
	/// Of the kill command.
	bool programStarted = false;
	bool programEnded = false;
};

struct Trial
{
	/// Why there was none; empty when there was.
	std::string whyNot;
	CommandRun start;
	CommandRun stop;
	/// With the address raised as the start command has left it.
	CommandRun kill;
};

/// Runs the commands through /bin/sh as root of network, process, mount and IPC
/// namespaces of their own. They see this machine's files, but what they write is
/// gone afterwards; neither its devices nor its services (/dev, /run) are there, and
/// the interfaces lead nowhere. Nothing of it outlives the call.
Trial tryCommands(const TrialPlan& plan);

/// @return what the shell says against the text of a command; empty when it can read it
std::string shellRefusal(const std::string& command, const char* shell = "/bin/sh");

} // namespace velarix::inspect::host
