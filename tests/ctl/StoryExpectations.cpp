// What the lines of a story expect.

#include "StoryTest.h"
#include "inspect/SettingsFile.h"

using namespace velarix::inspect;
namespace fs = std::filesystem;

namespace
{

std::map<std::string, std::string> valuesOf(const fs::path& path)
{
	const SettingsFile file = SettingsFile::load(path);
	std::map<std::string, std::string> values;
	for (const SettingLine& line : file.lines())
	{
		values[line.key] = file.textOrThrow(line.key);
	}
	return values;
}

} // namespace

const std::set<std::string> StoryTest::kMayBeEmpty{"acts",      "error",   "metrics-on-page",
                                                   "none-came", "nothing", "unique-samples"};

const std::set<std::string> StoryTest::kOfTwo{"between",   "contains", "file-has", "file-not", "golden-file",
                                              "has-group", "has-mode", "items",    "json",     "packaged",
                                              "same",      "sample",   "size",     "times"};

const std::map<std::string, StoryTest::Command> StoryTest::kExpectations{
    {"code",
     [](auto& test, auto& words)
     {
	     test.m_untold = "";
	     EXPECT_EQ(words.all == "any" ? "any" : std::to_string(test.m_outcome.code), words.all);
     }},
    {"golden", [](auto& test, auto& words) { expectGolden(words.all, test.m_outcome.out); }},
    {"nothing", [](auto& test, auto&) { EXPECT_EQ(test.m_outcome.out, ""); }},
    {"is", [](auto& test, auto& words) { EXPECT_EQ(test.m_outcome.out, words.all); }},
    {"begins", [](auto& test, auto& words) { EXPECT_THAT(test.m_outcome.out, StartsWith(words.all)); }},
    {"ends", [](auto& test, auto& words) { EXPECT_THAT(test.m_outcome.out, EndsWith(words.all)); }},
    {">", [](auto& test, auto& words) { EXPECT_THAT("\n" + test.m_outcome.out, HasSubstr("\n" + words.all + "\n")); }},
    {"has", [](auto& test, auto& words) { EXPECT_THAT(test.m_outcome.out, HasSubstr(words.all)); }},
    {"not", [](auto& test, auto& words) { EXPECT_THAT(test.m_outcome.out, Not(HasSubstr(words.all))); }},
    {"times",
     [](auto& test, auto& words)
     {
	     const std::vector<std::string> parts = split(test.m_outcome.out, words.rest);
	     EXPECT_EQ(parts.size() - 1, number(words.first));
     }},
    {"error",
     [](auto& test, auto& words) { EXPECT_EQ(test.m_outcome.err, words.all + (words.all.empty() ? "" : "\n")); }},
    {"error-has", [](auto& test, auto& words) { EXPECT_THAT(test.m_outcome.err, HasSubstr(words.all)); }},
    {"error-not", [](auto& test, auto& words) { EXPECT_THAT(test.m_outcome.err, Not(HasSubstr(words.all))); }},
    {"error-is", [](auto& test, auto& words) { EXPECT_EQ(test.m_outcome.err, words.all); }},
    {"trials", [](auto&, auto& words) { EXPECT_EQ(fakeHost().trials.size(), number(words.all)); }},
    {"acts",
     [](auto&, auto& words)
     {
	     const std::vector<std::string> acts = std::exchange(fakeHost().acts, {});
	     EXPECT_EQ(acts, words.all.empty() ? std::vector<std::string>{} : split(words.all, " | "));
     }},
    {"acted-at",
     [](auto&, auto& words)
     {
	     std::vector<std::chrono::milliseconds> times;
	     std::ranges::transform(split(words.all, " "), std::back_inserter(times), seconds);
	     EXPECT_EQ(fakeHost().actTimes, times);
     }},
    {"between",
     [](auto& test, auto& words)
     {
	     const std::size_t mark = words.rest.find(" => ");
	     const std::vector<std::string> all = split(words.rest.substr(mark + 4), " | ");
	     EXPECT_EQ(allBetween(readFile(test.below(words.first)), words.rest.substr(0, mark), "\" height"),
	               std::set<std::string>(all.begin(), all.end()));
     }},
    {"paused", [](auto&, auto& words) { EXPECT_EQ(std::exchange(fakeHost().elapsed, {}), seconds(words.all)); }},
    {"none-came",
     [](auto& test, auto&)
     {
	     EXPECT_THAT(test.missed(), Not(IsEmpty()));
	     EXPECT_EQ(test.m_pauses, 0);
	     test.m_steps.clear();
	     test.m_atAct = "";
     }},
    {"json",
     [](auto& test, auto& words)
     {
	     const std::string value = words.rest.starts_with('/') ? readFile(test.below(words.rest)) : words.rest;
	     EXPECT_EQ(Json::parse(test.m_outcome.out).at(Json::json_pointer(words.first)), Json::parse(value));
     }},
    {"items", [](auto& test, auto& words)
     { EXPECT_EQ(Json::parse(test.m_outcome.out).at(Json::json_pointer(words.first)).size(), number(words.rest)); }},
    {"exists", [](auto& test, auto& words) { EXPECT_TRUE(fs::exists(test.below(words.all))); }},
    {"gone", [](auto& test, auto& words) { EXPECT_FALSE(fs::exists(test.below(words.all))); }},
    {"is-fifo", [](auto& test, auto& words) { EXPECT_TRUE(fs::is_fifo(test.below(words.all))); }},
    {"contains",
     [](auto& test, auto& words)
     {
	     std::vector<std::string> names;
	     std::ranges::transform(fs::directory_iterator(test.below(words.first)), std::back_inserter(names),
	                            [](const auto& entry) { return entry.path().filename().string(); });
	     EXPECT_THAT(names, testing::UnorderedElementsAreArray(split(words.rest, " | ")));
     }},
    {"kept", [](auto& test, auto& words) { EXPECT_EQ(readFile(test.below(words.all)), test.m_kept.at(words.all)); }},
    {"size", [](auto& test, auto& words) { EXPECT_EQ(fs::file_size(test.below(words.first)), number(words.rest)); }},
    {"content", [](auto& test, auto& words) { EXPECT_EQ(readFile(test.below(words.first)), words.rest); }},
    {"same",
     [](auto& test, auto& words) { EXPECT_EQ(readFile(test.below(words.first)), readFile(test.below(words.rest))); }},
    {"packaged", [](auto& test, auto& words)
     { EXPECT_EQ(readFile(test.below(words.first)), readFile(VELARIX_PACKAGING "/" + words.rest)); }},
    {"sample-settings", [](auto& test, auto& words)
     { EXPECT_EQ(valuesOf(test.below(words.all)), valuesOf(VELARIX_PACKAGING "/config.ini.sample")); }},
    {"golden-file", [](auto& test, auto& words) { expectGolden(words.rest, readFile(test.below(words.first))); }},
    {"file-has",
     [](auto& test, auto& words) { EXPECT_THAT(readFile(test.below(words.first)), HasSubstr(words.rest)); }},
    {"file-not",
     [](auto& test, auto& words) { EXPECT_THAT(readFile(test.below(words.first)), Not(HasSubstr(words.rest))); }},
    {"has-mode", [](auto& test, auto& words)
     { EXPECT_EQ(fs::status(test.below(words.first)).permissions(), fs::perms(number(words.rest, 8))); }},
    {"has-group",
     [](auto& test, auto& words)
     {
	     struct stat status = {};
	     EXPECT_EQ(::stat(test.below(words.first).c_str(), &status), 0);
	     EXPECT_EQ(status.st_gid, ::geteuid() == 0 ? number(words.rest) : ::getegid());
     }},
    {"unique-samples",
     [](auto& test, auto&)
     {
	     std::set<std::string> seen;
	     for (const std::string& line : split(test.m_outcome.out, "\n"))
	     {
		     EXPECT_TRUE(line.starts_with('#') || seen.insert(line.substr(0, line.rfind(' '))).second) << line;
	     }
	     EXPECT_GE(seen.size(), 30U);
     }},
    {"sample",
     [](auto& test, auto& words)
     {
	     const std::string text = "\n" + readFile(test.below("/velarix.prom"));
	     const std::size_t at = text.find("\nvelarix_" + words.first + " ");
	     const std::size_t value = at + sizeof("velarix_ ") + words.first.size();
	     EXPECT_EQ(at == std::string::npos ? "none" : text.substr(value, text.find('\n', value) - value), words.rest);
     }},
    {"metrics-on-page",
     [](auto& test, auto&)
     {
	     const std::string page = readFile(VELARIX_CTL_MONITORING);
	     const std::set<std::string> families = allBetween(readFile(test.below("/velarix.prom")), "# TYPE ", " ");
	     EXPECT_GE(families.size(), 25U);
	     for (const std::string& name : families)
	     {
		     EXPECT_THAT(page, testing::AnyOf(HasSubstr("`" + name + "`"), HasSubstr("`" + name + "{")));
	     }
     }},
};
