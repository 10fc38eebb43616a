/// Everything that the daemon says and what it means: docs/log-messages.md as a
/// table, made from that page when the program is built.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velarix::inspect
{

struct CatalogueRow
{
	/// 0 for a text that goes to the console alone.
	int number;
	/// The number of the fatal condition that follows; 0 when the daemon goes on.
	int fatal;
	std::string_view file;
	std::string_view label;
	/// A log level, "fatal", "stdout" or "stderr".
	std::string_view level;
	/// With %s, %d and (on the console) <...> for what is put in; the expression
	/// of a fatal condition.
	std::string_view text;
	/// Of a fatal condition.
	std::string_view function;
	std::string_view when;
	std::string_view action;
	/// What the messages of its file are about.
	std::string_view topic;

	std::string place() const;
};

/// In the order of the page.
std::span<const CatalogueRow> catalogue();

/// The words that velarixctl uses for events, causes, faults, problems and findings (`text`;
/// `label` tells which), as docs/events.md, monitoring.md and check.md list them.
std::span<const CatalogueRow> words();

/// @return null when there is no such message or fatal condition
const CatalogueRow* findMessage(std::string_view label, int number);

/// @return whether the text is one that this message can have
bool canBe(const CatalogueRow& row, std::string_view text);

/// @return the messages that a text without its place can be; when there is none, those that it
///         is a part of; those that say nothing of their own ("%s") are left out
std::vector<const CatalogueRow*> findByText(std::string_view text);

} // namespace velarix::inspect
