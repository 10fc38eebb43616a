#include "ctl/history/Explain.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>

#include "ctl/history/KeeperLog.h"
#include "inspect/LogLine.h"
#include "inspect/Pattern.h"
#include "inspect/Printable.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// What a message says of its place, and its text where that is reported too.
struct Given
{
	std::string label;
	int number = 0;
	std::optional<std::string> text;
};

bool sameLabel(std::string_view left, std::string_view right)
{
	return std::equal(left.begin(), left.end(), right.begin(), right.end(),
	                  [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

/// @return the label as the catalogue has it; empty for another one
std::string_view knownLabel(std::string_view label)
{
	for (const CatalogueRow& row : catalogue())
	{
		if (sameLabel(row.label, label))
		{
			return row.label;
		}
	}
	return {};
}

/// The first "LABEL:NUMBER" with a label that is known.
struct FoundPlace
{
	Given given;
	std::size_t behind = 0;
};

std::optional<FoundPlace> findPlace(std::string_view text)
{
	for (std::size_t colon = text.find(':'); colon != std::string_view::npos; colon = text.find(':', colon + 1))
	{
		std::size_t begin = colon;
		while (begin > 0 && isOfLabel(text[begin - 1]))
		{
			--begin;
		}
		const std::string_view label = knownLabel(text.substr(begin, colon - begin));
		int number = 0;
		const char* const digits = text.data() + colon + 1;
		const auto [end, error] = std::from_chars(digits, text.data() + text.size(), number);
		if (!label.empty() && error == std::errc() && number > 0)
		{
			return FoundPlace{{std::string(label), number, {}}, static_cast<std::size_t>(end - text.data())};
		}
	}
	return std::nullopt;
}

/// "**ERROR**(LABEL:NUMBER)text"
std::optional<Given> readEcho(std::string_view message)
{
	for (const std::string_view mark : {"**DEBUG**(", "**ERROR**("})
	{
		const std::size_t at = message.find(mark);
		std::optional<FoundPlace> place =
		    at == std::string_view::npos ? std::nullopt : findPlace(message.substr(at + mark.size()));
		if (place)
		{
			const std::string_view rest = message.substr(at + mark.size() + place->behind);
			place->given.text = rest.starts_with(')') ? rest.substr(1) : rest;
			return place->given;
		}
	}
	return std::nullopt;
}

/// "VelarixHA: LABEL:NUMBER: FUNCTION: Assertion `EXPRESSION' failed."
std::optional<Given> readAssertion(std::string_view message)
{
	constexpr std::string_view begin = "Assertion `";
	constexpr std::string_view end = "' failed.";
	const std::size_t at = message.find(begin);
	std::optional<FoundPlace> place = at == std::string_view::npos ? std::nullopt : findPlace(message.substr(0, at));
	if (!place)
	{
		return std::nullopt;
	}
	const std::string_view expression = message.substr(at + begin.size());
	place->given.text = expression.substr(0, expression.rfind(end));
	return place->given;
}

std::optional<Given> readPlace(std::string_view message)
{
	if (const std::optional<LogLine> line = parseHead(message))
	{
		return Given{line->label, line->number, line->text};
	}
	if (std::optional<Given> given = readEcho(message))
	{
		return given;
	}
	if (std::optional<Given> given = readAssertion(message))
	{
		return given;
	}
	const std::optional<FoundPlace> place = findPlace(message);
	return place ? std::optional(place->given) : std::nullopt;
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

/// The row of an echo that has no place in it: "**WARNING**<text>".
const CatalogueRow* echoRow(std::string_view message)
{
	for (const CatalogueRow& row : catalogue())
	{
		const std::string_view mark = row.text.substr(0, row.text.rfind("**") + 2);
		if (row.text.starts_with("**") && !row.text.starts_with("**DEBUG") && !row.text.starts_with("**ERROR") &&
		    message.starts_with(mark))
		{
			return &row;
		}
	}
	return nullptr;
}

/// Messages of several lines: banners, and those that end in what a command said.
bool takesLines(const CatalogueRow& row)
{
	return row.text.find('\n') != std::string_view::npos || row.text.ends_with("%s");
}

/// What a line of events may have before the regular expression takes too long.
constexpr std::size_t kLongestLine = 256;

/// A word that velarixctl prints: alone, or as status, pair, check and events have it, "... [WORD]",
/// "agent   WORD: ..." and "DATE TIME  WORD  ...".
std::vector<Explanation> explainWord(std::string_view message)
{
	static const Pattern kForms(
	    R"(\[?([a-z0-9-]+)\]?|\d{4}-\S+ \S+ +([a-z-]+) .*|(?:agent +)?([A-Z]+(?: [A-Z]+)*)(?:\W.*)?)");
	const std::string_view line = message.substr(0, message.find('\n'));
	const std::size_t bracket = line.ends_with(']') ? line.rfind(" [") : std::string_view::npos;
	const std::string form(line.substr(bracket == std::string_view::npos ? 0 : bracket + 1, kLongestLine));
	std::vector<Explanation> explanations;
	if (const Pattern::Groups parts = kForms.matched(form); !parts.empty())
	{
		const std::string& word =
		    *std::find_if(parts.begin() + 1, parts.end() - 1, [](const std::string& part) { return !part.empty(); });
		for (const CatalogueRow& row : words())
		{
			if (row.text == word)
			{
				explanations.push_back({&row, false});
			}
		}
	}
	return explanations;
}

} // namespace

std::vector<Explanation> explain(std::string_view message)
{
	std::vector<Explanation> explanations;
	for (const CatalogueRow* row : explainKeeper(message))
	{
		explanations.push_back({row, false});
	}
	if (!explanations.empty())
	{
		std::ranges::copy(explainWord(message), std::back_inserter(explanations));
		return explanations;
	}
	if (const std::optional<Given> given = readPlace(message))
	{
		const CatalogueRow* const row = findMessage(given->label, given->number);
		if (row == nullptr)
		{
			return {};
		}
		return {{row, given->text && !canBe(*row, *given->text)}};
	}
	if (message.starts_with(kRemark))
	{
		return {{&kRemarkRow, false}};
	}
	if (const CatalogueRow* const row = echoRow(message))
	{
		return {{row, false}};
	}
	if (explanations = explainWord(message); !explanations.empty())
	{
		return explanations;
	}
	for (const CatalogueRow* row : findByText(message))
	{
		explanations.push_back({row, false});
	}
	return explanations;
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
	const CatalogueRow* below = nullptr;
	const CatalogueRow* above = nullptr;
	for (const CatalogueRow& row : catalogue())
	{
		if (row.label != given->label || row.number == 0)
		{
			continue;
		}
		if (row.number < given->number && (below == nullptr || below->number < row.number))
		{
			below = &row;
		}
		if (row.number > given->number && (above == nullptr || above->number > row.number))
		{
			above = &row;
		}
	}
	std::string text = "there is no message " + place;
	text += below != nullptr || above != nullptr ? "; the nearest: " : "";
	text += below != nullptr ? below->place() : "";
	text += below != nullptr && above != nullptr ? ", " : "";
	return text + (above != nullptr ? above->place() : "");
}

std::string MessageSplitter::add(const std::string& line)
{
	const std::optional<Given> given = readPlace(line);
	if (!given && m_takesLines && explainKeeper(line).empty())
	{
		m_message += "\n" + line;
		return {};
	}
	const CatalogueRow* const row = given ? findMessage(given->label, given->number) : nullptr;
	m_takesLines = row != nullptr && takesLines(*row);
	return std::exchange(m_message, line);
}

std::string MessageSplitter::finish()
{
	return std::exchange(m_message, {});
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
