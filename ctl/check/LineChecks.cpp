#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>
#include <string_view>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/String.h>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// @return how many letters must be changed, added or left out to make one text
///         of the other
std::size_t distance(const std::string& left, const std::string& right)
{
	std::vector<std::size_t> row(right.size() + 1);
	std::iota(row.begin(), row.end(), std::size_t{0});
	for (std::size_t i = 0; i < left.size(); ++i)
	{
		std::size_t diagonal = row[0];
		row[0] = i + 1;
		for (std::size_t j = 0; j < right.size(); ++j)
		{
			const std::size_t change = diagonal + (left[i] == right[j] ? 0 : 1);
			diagonal = row[j + 1];
			row[j + 1] = std::min({change, row[j] + 1, row[j + 1] + 1});
		}
	}
	return row[right.size()];
}

/// @return the known key that is spelled most alike; empty when none is near
std::string likelyMeant(const std::string& key)
{
	constexpr std::size_t kNear = 4;
	std::string best;
	std::size_t nearest = kNear + 1;
	for (const KeyInfo& info : settingsKeys())
	{
		const std::size_t far = distance(Poco::toUpper(key), std::string(info.name));
		if (far < nearest)
		{
			nearest = far;
			best = info.name;
		}
	}
	return best;
}

bool isComment(const SettingLine& line)
{
	const std::size_t name = line.key.rfind('.') + 1;
	return line.key.compare(name, 1, "#") == 0;
}

Place at(const Findings& findings, const SettingLine& line)
{
	return {findings.file.path(), line.line};
}

void unknownKey(Findings& findings, const SettingLine& line)
{
	const std::string meant = likelyMeant(line.key);
	findings.add(meant.empty() ? "unknown-key" : "unknown-key/like", at(findings, line), line.key, meant);
}

void numberedProgram(Findings& findings, const SettingLine& line)
{
	const int number = findings.file.integer(key::kProcessNumber).value_or(std::numeric_limits<int>::max());
	const std::string digits = line.key.substr(std::string(key::kProcessPath).size());
	if (digits.size() > 9 || std::stoi(digits) > number)
	{
		findings.add("program-not-counted", at(findings, line), line.key, number);
	}
}

void repeatedKey(Findings& findings, const SettingLine& line)
{
	const SettingLine* counts = findings.file.find(line.key);
	if (counts != nullptr && counts->line != line.line)
	{
		findings.add("repeated-key", at(findings, line), line.key, counts->line);
	}
}

/// Some editors begin a file with it. It turns what follows into a key.
void byteOrderMark(Findings& findings, const SettingLine& line)
{
	const bool section = line.key.compare(kByteOrderMark.size(), 1, "[") == 0;
	findings.add(section ? "byte-order-mark/section" : "byte-order-mark", at(findings, line));
}

/// @return whether a blank and a comment sign stand in the value
bool looksCommented(const std::string& value)
{
	return std::ranges::any_of(std::array{" ;", "\t;", " #", "\t#"},
	                           [&](const char* sign) { return value.find(sign) != std::string::npos; });
}

bool isQuoted(const std::string& value)
{
	return value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.front() == value.back();
}

/// Integers with a comment or quotes behind them are no integers, which is reported there.
void decoratedValue(Findings& findings, const SettingLine& line, KeyType type)
{
	if (type == KeyType::command && isQuoted(line.value) &&
	    line.value.find(line.value[0], 1) + 1 == line.value.size() && line.value.find(' ') != std::string::npos)
	{
		findings.add("quoted-value/command", line.key);
	}
	if (type == KeyType::command || type == KeyType::integer)
	{
		return;
	}
	if (looksCommented(line.value))
	{
		// The library reads an address up to the first blank, the agent itself does not.
		const bool harmless = type == KeyType::address && !sameKey(line.key, key::kVirtualIP);
		findings.add(harmless ? Severity::warning : Severity::error, "comment-in-value", at(findings, line), line.key);
	}
	else if (isQuoted(line.value))
	{
		findings.add("quoted-value", line.key);
	}
}

/// What "${...}" in a value becomes.
void reference(Findings& findings, const SettingLine& line, KeyType type)
{
	const std::size_t begin = line.value.find("${");
	if (begin == std::string::npos)
	{
		return;
	}
	if (line.value.find('}', begin) == std::string::npos)
	{
		findings.add("reference-not-closed", line.key);
	}
	const std::optional<std::string> expanded = findings.file.text(line.key);
	if (expanded && type != KeyType::command && expanded->find("${") != std::string::npos)
	{
		findings.add("reference-to-nothing", line.key);
	}
}

/// It is known in a section that is not there, which is reported as such.
bool displaced(const Findings& findings, const SettingLine& line)
{
	const std::string name = "." + Poco::toUpper(line.key.substr(line.key.rfind('.') + 1));
	return std::ranges::any_of(settingsKeys(),
	                           [&](const KeyInfo& info)
	                           {
		                           const std::string known(info.name);
		                           return findings.file.lacksSection(known) &&
		                                  name.starts_with(known.substr(known.find('.')));
	                           });
}

void value(Findings& findings, const SettingLine& line)
{
	const KeyInfo* info = findKey(line.key);
	if (info == nullptr)
	{
		displaced(findings, line) ? void() : unknownKey(findings, line);
		return;
	}
	if (findings.file.find(line.key) != &line)
	{
		repeatedKey(findings, line);
		return;
	}
	if (info->name == key::kProcessPath)
	{
		numberedProgram(findings, line);
	}
	decoratedValue(findings, line, info->type);
	reference(findings, line, info->type);
}

/// The agent misses a key or a section, or does not understand a value. A dash may be in the name of a file, and a
/// comment behind an address.
bool isPasted(const Findings& findings, const SettingLine& line)
{
	const std::string key = withoutPasted(line.key);
	const KeyInfo* info = findKey(key);
	if (key != line.key)
	{
		const auto isSection = [&](const KeyInfo& known)
		{
			const std::string name(known.name);
			return key.ends_with("[" + name.substr(0, name.find('.')) + "]") && findings.file.lacksSection(name);
		};
		return std::ranges::any_of(settingsKeys(), isSection) ||
		       (info != nullptr && info->whenRead != "never" && info->name != key::kProcessPath &&
		        findings.file.find(key) == nullptr);
	}
	const std::string value = line.value.substr(0, line.value.find_first_of(" \t"));
	return info != nullptr && (info->type == KeyType::integer || info->type == KeyType::address) &&
	       findings.file.find(key) == &line && withoutPasted(value) != value;
}

} // namespace

std::string withoutPasted(std::string text)
{
	constexpr std::array kPasted{"\xE2\x80\x98", "\xE2\x80\x99", "\xE2\x80\x9A", "\xE2\x80\x9C", "\xE2\x80\x9D",
	                             "\xE2\x80\x9E", "\xC2\xAB",     "\xC2\xBB",     "\xE2\x80\x93", "\xE2\x80\x94",
	                             "\xE2\x80\x8B", "\xC2\xA0",     "\xE2\x80\xAF"};
	for (const char* letter : kPasted)
	{
		Poco::replaceInPlace(text, letter, "");
	}
	return text;
}

bool writtenForOthers(Findings& findings)
{
	const auto first =
	    std::ranges::find_if(findings.file.lines(), [&](const SettingLine& line) { return isPasted(findings, line); });
	const auto quoted = [&](const SettingLine& line)
	{
		const KeyInfo* info = findKey(line.key);
		return info != nullptr && info->type != KeyType::command && info->type != KeyType::text &&
		       findings.file.find(line.key) == &line && isQuoted(line.value);
	};
	if (first != findings.file.lines().end())
	{
		findings.add("pasted-characters", at(findings, *first));
	}
	else if (std::ranges::count_if(findings.file.lines(), quoted) > 2)
	{
		findings.add("quoted-value/all", at(findings, *std::ranges::find_if(findings.file.lines(), quoted)));
	}
	else
	{
		return false;
	}
	return true;
}

void lines(Findings& findings)
{
	for (const SettingLine& line : findings.file.lines())
	{
		if (line.key.starts_with(kByteOrderMark))
		{
			byteOrderMark(findings, line);
			continue;
		}
		if (!line.assigned && !isComment(line))
		{
			findings.add("no-assignment", at(findings, line), line.key);
		}
		if (!isComment(line))
		{
			value(findings, line);
		}
	}
}

} // namespace velarix::ctl::checks
