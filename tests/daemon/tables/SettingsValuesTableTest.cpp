// What the store makes of the ways in which a setting can be written. Operators
// write this file by hand, so each row is a promise; "-" means that the getter
// ends the daemon.
#include "Configuraion.h"
#include "Daemon.h"

namespace
{

constexpr char kFile[] = "/usr/velarix/bin/ini/values.ini";
constexpr Report kNoSwitch{"0", "Configuraion", 100, "bool Configuraion::getBool(const std::string&)"};

struct Row
{
	const char* name;
	const char* content;
	const char* text;
	const char* number;
	const char* flag;
};

template <typename Get> void expectValue(const std::string& expected, const Report& end, Get get)
{
	if (expected == "-")
	{
		EXPECT_EXIT(get(), testing::KilledBySignal(SIGABRT), HasSubstr(end.text()));
	}
	else
	{
		EXPECT_EQ(get(), expected);
	}
}

class SettingsValues : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(SettingsValues, AreReadAsTextNumberAndSwitch)
{
	const Row& row = GetParam();
	sandbox::writeFile(kFile, row.content);
	Configuraion store(kFile);
	expectValue(row.text, kNoText, [&] { return store.getString("S.K"); });
	expectValue(row.number, kNoNumber, [&] { return std::to_string(store.getInt("S.K")); });
	expectValue(row.flag, kNoSwitch, [&] { return std::string(store.getBool("S.K") ? "on" : "off"); });
}

// clang-format off
const Row kRows[] = {
    // name                       content                           text              number         switch
    {"Plain",                     "[S]\nK=1\n",                     "1",              "1",           "on"},
    {"Zero",                      "[S]\nK=0\n",                     "0",              "0",           "off"},
    {"BlanksAround",              "[S]\n  K  =  12  \n",            "12",             "12",          "on"},
    {"TabsAround",                "[S]\n\tK\t=\t12\t\n",            "12",             "12",          "on"},
    {"CarriageReturn",            "[S]\r\nK=12\r\n",                "12",             "12",          "on"},
    {"NoNewlineAtTheEnd",         "[S]\nK=12",                      "12",             "12",          "on"},
    {"Negative",                  "[S]\nK=-3\n",                    "-3",             "-3",          "on"},
    {"PlusSign",                  "[S]\nK=+4\n",                    "+4",             "4",           "on"},
    {"Hexadecimal",               "[S]\nK=0x1F\n",                  "0x1F",           "31",          "-"},
    {"Thousands",                 "[S]\nK=1,000\n",                 "1,000",          "1000",        "on"},
    {"Greatest",                  "[S]\nK=2147483647\n",            "2147483647",     "2147483647",  "on"},
    {"TooGreat",                  "[S]\nK=2147483648\n",            "2147483648",     "-",           "-"},
    {"Smallest",                  "[S]\nK=-2147483648\n",           "-2147483648",    "-2147483648", "on"},
    {"Fraction",                  "[S]\nK=3.5\n",                   "3.5",            "-",           "-"},
    {"Unit",                      "[S]\nK=12s\n",                   "12s",            "-",           "-"},
    {"Empty",                     "[S]\nK=\n",                      "",               "-",           "-"},
    {"NoEquals",                  "[S]\nK\n",                       "",               "-",           "-"},
    {"Yes",                       "[S]\nK=yes\n",                   "yes",            "-",           "on"},
    {"TrueInAnyCase",             "[S]\nK=True\n",                  "True",           "-",           "on"},
    {"On",                        "[S]\nK=on\n",                    "on",             "-",           "on"},
    {"No",                        "[S]\nK=no\n",                    "no",             "-",           "off"},
    {"False",                     "[S]\nK=false\n",                 "false",          "-",           "off"},
    {"Off",                       "[S]\nK=off\n",                   "off",            "-",           "off"},
    {"Word",                      "[S]\nK=master\n",                "master",         "-",           "-"},
    {"CommandWithSemicolons",     "[S]\nK=ip a; arping -q # x\n",   "ip a; arping -q # x", "-",      "-"},
    {"CommandWithEquals",         "[S]\nK=A=1 B=2 run\n",           "A=1 B=2 run",    "-",           "-"},
    {"QuotesStay",                "[S]\nK=\"7\"\n",                 "\"7\"",          "-",           "-"},
    {"CommentBefore",             "; K=9\n[S]\n  ; K=8\nK=7\n",     "7",              "7",           "on"},
    {"HashIsNoComment",           "[S]\n#K=9\nK=7\n",               "7",              "7",           "on"},
    {"CaseOfTheKey",              "[s]\nk=7\n",                     "7",              "7",           "on"},
    {"LastDuplicate",             "[S]\nK=1\nK=2\n",                "2",              "2",           "on"},
    {"SectionTwice",              "[S]\nK=1\n[T]\nK=3\n[S]\nK=2\n", "2",              "2",           "on"},
    {"BlanksInTheBrackets",       "[ S ]\nK=7\n",                   "7",              "7",           "on"},
    {"Reference",                 "[S]\nA=40\nK=${S.A}2\n",         "402",            "402",         "on"},
    {"ReferenceToNothing",        "[S]\nK=${S.NONE}\n",             "${S.NONE}",      "-",           "-"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Forms, SettingsValues, testing::ValuesIn(kRows), rowName<Row>);

} // namespace
