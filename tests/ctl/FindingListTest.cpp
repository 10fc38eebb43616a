// The list of findings in docs/check.md against what the checks can tell, and
// against what the tests have seen.

#include <regex>
#include <set>

#include "CtlTest.h"

namespace
{

namespace fs = std::filesystem;

/// @return the first group of every match
std::set<std::string> matches(const std::string& text, const std::string& pattern)
{
	const std::regex regex(pattern);
	std::set<std::string> result;
	for (std::sregex_iterator it(text.begin(), text.end(), regex), end; it != end; ++it)
	{
		result.insert((*it)[1]);
	}
	return result;
}

std::string allOf(const fs::path& directory)
{
	std::string text;
	for (const fs::directory_entry& entry : fs::directory_iterator(directory))
	{
		text += entry.path().extension() == ".cpp" ? readFile(entry.path()) : "";
	}
	return text;
}

std::set<std::string> listed()
{
	return matches(readFile(VELARIX_CHECK_PAGE), "\\n\\| `([a-z0-9]+-[a-z0-9-]+)` \\|");
}

} // namespace

TEST(FindingList, NamesWhatTheChecksCanTell)
{
	// Every name has a hyphen; the other words with one are names of packages.
	std::set<std::string> reported = matches(allOf(VELARIX_CHECKS), "\"([a-z]+(?:-[a-z0-9]+)+)\"");
	reported.erase("net-tools");
	EXPECT_EQ(listed(), reported);
}

TEST(FindingList, HasATestForEachName)
{
	const std::string tests = allOf(VELARIX_CTL_TESTS);
	for (const std::string& name : listed())
	{
		EXPECT_TRUE(tests.find("error " + name + " ") != std::string::npos ||
		            tests.find("warning " + name + " ") != std::string::npos)
		    << name;
	}
}
