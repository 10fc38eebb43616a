/// A shell command line, taken apart without running it: enough of the grammar
/// of sh to tell which programs it runs, whether what they print reaches the
/// command's standard output, and what is left running in the background.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace velarix::ctl::shell
{

enum class Kind
{
	simple,
	/// ( ... ) or { ... }, or a shell called with -c
	group,
	/// while, until, for
	loop,
	/// if, case
	branch
};

struct Command
{
	Kind kind = Kind::simple;
	/// Of a simple command: its words without quotes, assignments and
	/// redirections. Of a loop: its first keyword ("while").
	std::vector<std::string> words;
	/// The commands inside. A loop's condition comes first.
	std::vector<Command> parts;
	/// How many of `parts` are a loop's condition.
	std::size_t conditions = 0;
	/// Its standard output goes elsewhere: into a file, the standard error, a pipe
	/// or nowhere.
	bool silenced = false;
	/// Not waited for.
	bool background = false;
};

struct Script
{
	std::vector<Command> commands;
	/// Why it is no shell command; empty when it is one.
	std::string error;
	/// It uses "&>", which only some shells know.
	bool bashRedirection = false;
};

Script parse(const std::string& text);

/// Where a simple command stands.
struct Place
{
	/// Its standard output is not the whole command's.
	bool silenced = false;
	bool background = false;
	/// Innermost last.
	std::vector<const Command*> within;
};

/// Calls `visit` for each simple command, in the order of the text.
void forEachSimple(const Script& script, const std::function<void(const Command&, const Place&)>& visit);

/// @return the words from the program on that is run in the end: without
///         "sudo", "nice -n 5", "timeout 3" and their like in front of it
std::vector<std::string> programWords(const Command& command);

/// @return the file name of a path
std::string baseName(const std::string& path);

/// @return whether one of the words after the first is the option, alone
///         ("-q") or among other short ones ("-qA")
bool hasOption(const std::vector<std::string>& words, char option);

} // namespace velarix::ctl::shell
