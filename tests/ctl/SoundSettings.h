/// A settings file without a fault, for tests that put faults into it.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "ctl/check/Findings.h"

/// The lines of node 1's (the master's) or node 2's, the first of which is line 1 of the file.
std::vector<std::string> soundLines(int node = 1);

/// @return the text with each line ended by a line feed
std::string joined(const std::vector<std::string>& lines);

/// Writes "KEY = VALUE" over the key's line.
void setKey(std::vector<std::string>& lines, const std::string& key, const std::string& value);

/// Empties the key's line, so that the others keep their numbers.
void dropKey(std::vector<std::string>& lines, const std::string& key);

/// Changes to sound settings, and what is found then: of a table of such cases.
struct SettingsCase
{
	std::string name = {};
	std::vector<std::string> lines = {};
	std::vector<std::string> expected = {};
};

/// @throws std::runtime_error the file cannot be read, or a case has no "=> "
std::vector<SettingsCase> casesOf(const char* file);

/// For a failed test.
void PrintTo(const SettingsCase& one, std::ostream* out);

/// Does what a case's line says: "KEY = VALUE", "drop KEY" or "+ LINE" behind the others.
void change(std::vector<std::string>& lines, const std::string& what);

/// @return "SEVERITY ID PLACE" of each finding, whose texts have to be there with all of their values
std::vector<std::string> shortForms(const velarix::ctl::CheckReport& report,
                                    const std::function<std::string(const velarix::ctl::Finding&)>& place);
