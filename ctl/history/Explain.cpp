#include "ctl/history/Explain.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <set>
#include <utility>

#include <Poco/Ascii.h>
#include <nlohmann/json.hpp>

#include "ctl/history/KeeperLog.h"
#include "inspect/LogLine.h"
#include "inspect/Pattern.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

namespace
{

/// What a message says of its place, and its text where that is reported too.
struct Given
{
	std::string label;
	int number = 0;
	std::optional<std::string> text;
};

/// @return the label as the catalogue has it; empty for another one
std::string_view knownLabel(std::string_view label)
{
	const auto row = std::ranges::find_if(
	    catalogue(), [label](const CatalogueRow& one)
	    { return std::ranges::equal(one.label, label, {}, Poco::Ascii::toLower, Poco::Ascii::toLower); });
	return row == catalogue().end() ? std::string_view() : row->label;
}

/// "**ERROR**(LABEL:NUMBER)text", or the report of a fatal condition:
/// "VelarixHA: LABEL:NUMBER: FUNCTION: Assertion `EXPRESSION' failed."
std::optional<std::string> textAround(std::string_view before, std::string_view behind)
{
	constexpr std::string_view assertion = "Assertion `";
	if (before.ends_with("**DEBUG**(") || before.ends_with("**ERROR**("))
	{
		return std::string(behind.substr(behind.starts_with(')') ? 1 : 0));
	}
	if (const std::size_t at = behind.find(assertion); at != std::string_view::npos)
	{
		const std::string_view expression = behind.substr(at + assertion.size());
		return std::string(expression.substr(0, expression.rfind("' failed.")));
	}
	return std::nullopt;
}

/// The head of a line, or the first "LABEL:NUMBER" with a label that is known.
std::optional<Given> readPlace(std::string_view message)
{
	if (const std::optional<LogLine> line = parseHead(message))
	{
		return Given{line->label, line->number, line->text};
	}
	// What is behind the mark of an echo is its place, whatever was pasted before it.
	const std::size_t mark = std::min(message.find("**DEBUG**("), message.find("**ERROR**("));
	std::size_t colon = message.find(':', mark == std::string::npos ? 0 : mark);
	for (; colon != std::string::npos; colon = message.find(':', colon + 1))
	{
		std::size_t begin = colon;
		while (begin > 0 && isOfLabel(message[begin - 1]))
		{
			--begin;
		}
		const std::string_view label = knownLabel(message.substr(begin, colon - begin));
		const std::string_view digits = message.substr(colon + 1);
		int number = 0;
		const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
		if (!label.empty() && error == std::errc() && number > 0)
		{
			const auto size = static_cast<std::size_t>(end - digits.data());
			return Given{std::string(label), number, textAround(message.substr(0, begin), digits.substr(size))};
		}
	}
	return std::nullopt;
}

/// The one line of the log that is not the daemon's.
constexpr std::string_view kRemark = "# Log file created/rotated ";
constexpr CatalogueRow kRemarkRow{0,
                                  0,
                                  "",
                                  "POCO",
                                  "remark",
                                  "# Log file created/rotated %s",
                                  "",
                                  "the first line of each log file; the time is UTC",
                                  "nothing; the file is rotated 24 hours after this time",
                                  "The library that writes the log."};

/// The row of an echo that has no place in it, whose text is "**WARNING**<text>".
const CatalogueRow* echoRow(std::string_view message)
{
	const std::string text = std::string(message.substr(0, message.find("**", 2))) + "**<text>";
	const auto row = std::ranges::find(catalogue(), text, &CatalogueRow::text);
	return row == catalogue().end() ? nullptr : &*row;
}

/// What a line of events may have before the regular expression takes too long.
constexpr std::size_t kLongestLine = 256;

/// The rows of a word that velarixctl prints: alone, or as status, pair, check and events have it, "... [WORD]",
/// "agent   WORD: ..." and "DATE TIME  WORD  ...".
void addWord(std::vector<const CatalogueRow*>& rows, std::string_view message)
{
	static const Pattern kForms(
	    R"(\[?([a-z0-9-]+)\]?|\d{4}-\S+ \S+ +([a-z-]+) .*|(?:agent +)?([A-Z]+(?: [A-Z]+)*)(?:\W.*)?)");
	const std::string_view line = message.substr(0, message.find('\n'));
	const std::size_t bracket = line.ends_with(']') ? line.rfind(" [") : std::string_view::npos;
	const std::string form(line.substr(bracket == std::string_view::npos ? 0 : bracket + 1, kLongestLine));
	const Pattern::Groups parts = kForms.matched(form);
	for (const CatalogueRow& row : words())
	{
		// One of the groups has taken part.
		if (!parts.empty() && row.text == parts[1] + parts[2] + parts[3])
		{
			rows.push_back(&row);
		}
	}
}

} // namespace

std::vector<Explanation> explain(std::string_view message)
{
	std::vector<const CatalogueRow*> rows = explainKeeper(message);
	if (rows.empty())
	{
		if (const std::optional<Given> given = readPlace(message))
		{
			const CatalogueRow* const row = findMessage(given->label, given->number);
			return row == nullptr ? std::vector<Explanation>()
			                      : std::vector{Explanation(row, given->text && !canBe(*row, *given->text))};
		}
		if (message.starts_with(kRemark))
		{
			return {&kRemarkRow};
		}
		if (const CatalogueRow* const row = echoRow(message))
		{
			return {row};
		}
	}
	addWord(rows, message);
	rows = rows.empty() ? findByText(message) : rows;
	return {rows.begin(), rows.end()};
}

std::string whyUnknown(std::string_view message)
{
	const std::optional<Given> given = readPlace(message);
	if (!given)
	{
		return "neither a message of the daemon nor a word of velarixctl: \"" + printable(message.substr(0, 200)) +
		       "\"";
	}
	const std::string place = given->label + ":" + std::to_string(given->number);
	if (knownLabel(given->label).empty())
	{
		return "there is no message " + place + ": the daemon has no such label";
	}
	std::set<int> numbers;
	for (const CatalogueRow& row : catalogue())
	{
		if (row.label == given->label && row.number != 0)
		{
			numbers.insert(row.number);
		}
	}
	const auto above = numbers.lower_bound(given->number);
	const std::string below = above == numbers.begin() ? "" : given->label + ":" + std::to_string(*std::prev(above));
	const std::string next = above == numbers.end() ? "" : given->label + ":" + std::to_string(*above);
	return "there is no message " + place + (numbers.empty() ? "" : "; the nearest: ") + below +
	       (below.empty() || next.empty() ? "" : ", ") + next;
}

bool continues(std::string_view message, std::string_view line)
{
	const std::optional<Given> given = readPlace(message.substr(0, message.find('\n')));
	const CatalogueRow* const row = given ? findMessage(given->label, given->number) : nullptr;
	// Banners, and messages that end in what a command said.
	return row != nullptr && (row->text.find('\n') != std::string_view::npos || row->text.ends_with("%s")) &&
	       !readPlace(line) && explainKeeper(line).empty();
}

std::string explanationText(const Explanation& explanation, bool colour)
{
	const CatalogueRow& row = *explanation.row;
	const std::string on = colour ? "\033[1m" : "";
	const std::string off = colour ? "\033[0m" : "";
	std::string text = on + row.place() + off + "  " + std::string(row.level) + "  ";
	text += row.text.empty() ? "(empty)" : printable(row.text);
	text += row.function.empty() ? "" : "  in " + std::string(row.function);
	text += "\n  about:  " + std::string(row.topic) + "\n  when:   " + std::string(row.when) +
	        "\n  to do:  " + std::string(row.action) + "\n";
	if (row.fatal != 0)
	{
		text += "  then:   the daemon ends (" + std::string(row.label) + ":" + std::to_string(row.fatal) + ")\n";
	}
	if (row.level == "fatal")
	{
		text += "  then:   the daemon has ended with SIGABRT; programs and address stay as they are\n";
	}
	if (explanation.otherText)
	{
		text += "  note:   the text given is none that this version of the daemon writes there\n";
	}
	return text;
}

nlohmann::ordered_json explanationJson(const Explanation& explanation)
{
	const CatalogueRow& row = *explanation.row;
	nlohmann::ordered_json json{{"label", row.label}};
	if (row.number != 0)
	{
		json["number"] = row.number;
	}
	json["level"] = row.level;
	json["text"] = row.text;
	if (!row.function.empty())
	{
		json["function"] = row.function;
	}
	json["about"] = row.topic;
	json["when"] = row.when;
	json["to_do"] = row.action;
	if (row.fatal != 0)
	{
		json["ends_at"] = std::string(row.label) + ":" + std::to_string(row.fatal);
	}
	json["text_agrees"] = !explanation.otherText;
	return json;
}

} // namespace velarix::ctl
