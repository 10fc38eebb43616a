/// Writes velarix.ini(5): the hand-written page with the keys put in from the
/// table that the checks use too, so that the page names every key and tells
/// nothing else about it than the program does.
///
///     velarix-settings-page TEMPLATE OUTPUT
///
/// The template's comment line KEYS is where the keys go.

#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <string_view>

#include "inspect/SettingsKeys.h"

namespace
{

using namespace velarix::inspect;

/// @return the text as the page formatter prints it letter for letter
std::string escaped(std::string_view text)
{
	static const std::map<char, std::string> kSpecial{{'\\', "\\e"},  {'-', "\\-"},    {'~', "\\(ti"},
	                                                  {'^', "\\(ha"}, {'\'', "\\(aq"}, {'`', "\\(ga"}};
	// A line that begins with a dot is a request to the formatter, as one with an apostrophe.
	std::string result = text.starts_with('.') ? "\\&" : "";
	for (const char c : text)
	{
		const auto special = kSpecial.find(c);
		result += special == kSpecial.end() ? std::string(1, c) : special->second;
	}
	return result;
}

std::string typeName(const KeyInfo& info)
{
	static const std::map<KeyType, std::string> kNames{{KeyType::integer, "whole number"},
	                                                   {KeyType::address, "IPv4 address"},
	                                                   {KeyType::command, "shell command"},
	                                                   {KeyType::path, "path"},
	                                                   {KeyType::text, "text"}};
	const bool measured = !info.unit.empty() && (info.type == KeyType::integer || info.type == KeyType::text);
	return kNames.at(info.type) + (measured ? ", " + std::string(info.unit) : "");
}

void writeFact(std::ostream& page, std::string_view name, std::string_view text)
{
	if (!text.empty())
	{
		page << ".IP \"" << name << "\" 11\n" << escaped(text) << '\n';
	}
}

std::string_view sectionOf(const KeyInfo& info)
{
	return info.name.substr(0, info.name.find('.'));
}

std::string_view shortName(const KeyInfo& info)
{
	return info.name.substr(info.name.find('.') + 1);
}

void writeKey(std::ostream& page, const KeyInfo& info)
{
	const bool numbered = info.name == key::kProcessPath;
	page << ".TP\n\\fB" << escaped(shortName(info)) << "\\fR" << (numbered ? "\\fIN\\fR" : "") << " ("
	     << escaped(typeName(info)) << ")\n"
	     << escaped(info.meaning) << "\n.RS\n";
	writeFact(page, "Read", info.whenRead);
	writeFact(page, "Missing", info.missing);
	// The table's column is one for both: a text that is empty, a number that is zero.
	writeFact(page, info.type == KeyType::integer ? "Zero" : "Empty", emptyEffect(info));
	writeFact(page, "Negative", info.negative);
	if (!info.example.empty())
	{
		page << ".IP Example 11\n"
		     << escaped(shortName(info)) << (numbered ? "1" : "") << " = " << escaped(info.example) << '\n';
	}
	page << ".RE\n";
}

void writeKeys(std::ostream& page)
{
	std::string_view section;
	for (const KeyInfo& info : settingsKeys())
	{
		if (sectionOf(info) != section)
		{
			section = sectionOf(info);
			page << ".SS \"Section [" << section << "]\"\n";
		}
		writeKey(page, info);
	}
}

bool writePage(std::istream& source, std::ostream& page)
{
	bool found = false;
	for (std::string line; std::getline(source, line);)
	{
		if (line != ".\\\" KEYS")
		{
			page << line << '\n';
			continue;
		}
		found = true;
		writeKeys(page);
	}
	page.flush();
	return found && page.good();
}

} // namespace

int main(int argc, char** argv)
{
	if (argc != 3)
	{
		std::cerr << "usage: velarix-settings-page TEMPLATE OUTPUT\n";
		return 2;
	}
	std::ifstream source(argv[1]);
	std::ofstream page(argv[2], std::ios::trunc);
	if (!source || !page || !writePage(source, page))
	{
		std::cerr << "velarix-settings-page: " << argv[1] << " cannot be read, has no comment line KEYS, or " << argv[2]
		          << " cannot be written\n";
		return 1;
	}
	return 0;
}
