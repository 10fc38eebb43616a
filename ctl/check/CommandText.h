/// A configured command as a text. What a command does is found out by running it
/// (TrialChecks.cpp); a few things are seen by reading it, also where it cannot be run.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velarix::ctl
{

struct CommandText
{
	explicit CommandText(std::string configured);

	std::string text;
	/// The text with what stands in quotes made one word ("a b" gives a_b), without
	/// redirections and without a comment at its end.
	std::string plain;
	/// It ends in a comment.
	bool hasComment = false;

	/// @return whether a regular expression is found in the text
	bool matches(const char* expression) const;

	/// @return the first group of each match of a regular expression in the text
	std::vector<std::string> all(const char* expression) const;

	/// It asks a service of this machine to do the work, as "systemctl" does.
	bool asksService() const;

	/// @return the programs that it runs, as far as the text tells; none that the
	///         text looks for first ("[ -x PROGRAM ] && ..."), no word of the shell
	std::vector<std::string> programs() const;

	/// @return those of the programs that are not the system's, so that nothing is
	///         known of them: "/opt/ha/raise"
	std::vector<std::string> ownPrograms() const;

	/// @return the addresses that "ip addr add" and "ifconfig" (or, with `raising`
	///         false, "ip addr del") are given in the text
	std::vector<std::string> addresses(bool raising) const;

	/// @return N of the first "ADDRESS/N" in the text
	std::optional<int> prefixOf(const std::string& address) const;
};

/// @return the text, split at blanks
std::vector<std::string> wordsOf(const std::string& text);

/// @return whether it is "NAME=VALUE" with any name, as env takes it; the shell takes fewer names
bool isAssignment(const std::string& word);

/// What a command runs in the end.
struct InnerCommand
{
	/// Empty where that is not known.
	std::vector<std::string> words;
	/// Its paths are those of another root.
	bool elsewhere = false;
};

/// @return the command behind programs that only change how it runs, with their options:
///         "nice -n 5 flock FILE /opt/server -d" runs "/opt/server -d"
InnerCommand innerCommand(std::vector<std::string> words);

} // namespace velarix::ctl
