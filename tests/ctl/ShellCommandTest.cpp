// Command lines of sh, taken apart: which programs run, what reaches the output,
// what stays behind. One command line per row.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/check/AddressCommand.h"
#include "ctl/check/CommandOutput.h"
#include "ctl/check/ShellCommand.h"

using namespace velarix::ctl::shell;

namespace
{

/// "ip addr show" as it stands, "(echo a)" with its output discarded, "echo a&" in
/// the background.
std::vector<std::string> told(const std::string& text)
{
	const Script script = parse(text);
	if (!script.error.empty())
	{
		return {"ERROR " + script.error};
	}
	std::vector<std::string> result;
	forEachSimple(script,
	              [&](const Command& command, const Place& place)
	              {
		              std::string line;
		              for (const std::string& word : command.words)
		              {
			              line += (line.empty() ? "" : " ") + word;
		              }
		              line = place.silenced ? "(" + line + ")" : line;
		              result.push_back(place.background ? line + "&" : line);
	              });
	return result;
}

struct Row
{
	const char* text;
	std::vector<std::string> expected;
};

// clang-format off
const Row kRows[] = {
// ---- simple commands
{"",                                   {}},
{"# nothing",                          {}},
{"ip addr show",                       {"ip addr show"}},
{"  ip   addr\tshow  ",                {"ip addr show"}},
{"a; b;",                              {"a", "b"}},
{"a && b || c",                        {"a", "b", "c"}},
{"! a",                                {"a"}},
{"A=1 B=2 run C=3",                    {"run C=3"}},
{"1=2 run",                            {"1=2 run"}},
{"a # b; c",                           {"a"}},
{"a#b",                                {"a#b"}},
// ---- quotes
{"echo 'a; b' \"c & d\" e\\;f",        {"echo a; b c & d e;f"}},
{"echo \"a\\\"b\" 'c\\'",              {"echo a\"b c\\"}},
{"echo $(date; date) `ls | wc`",       {"echo $(date; date) ls | wc"}},
{"echo ${A:-b c}",                     {"echo ${A:-b c}"}},
{"echo $((1 + (2)))",                  {"echo $((1 + (2)))"}},
{"'while' x",                          {"while x"}},
// ---- redirections
{"a >f",                               {"(a)"}},
{"a>f b",                              {"(a b)"}},
{"a >>f",                              {"(a)"}},
{"a >|f",                              {"(a)"}},
{"a 1>f",                              {"(a)"}},
{"a 2>f",                              {"a"}},
{"a <f",                               {"a"}},
{"a <<<f",                             {"a"}},
{"a >&2",                              {"(a)"}},
{"a 1>&2",                             {"(a)"}},
{"a 2>&1",                             {"a"}},
{"a >&-",                              {"(a)"}},
{"a >&1",                              {"a"}},
{"a >f 2>&1; b",                       {"(a)", "b"}},
{"exec >f; a; b",                      {"(exec)", "(a)", "(b)"}},
{"a; exec 2>f; b",                     {"a", "exec", "b"}},
{"a &>f",                              {"a&", "()"}},
// ---- pipes
{"a | b | c",                          {"(a)", "(b)", "c"}},
{"a | b >f",                           {"(a)", "(b)"}},
{"(a; b) | c",                         {"(a)", "(b)", "c"}},
// ---- groups
{"(a; b) >f",                          {"(a)", "(b)"}},
{"{ a; b; } >f; c",                    {"(a)", "(b)", "c"}},
{"(a; (b) >f; c)",                     {"a", "(b)", "c"}},
{"sh -c 'a; b >f'",                    {"a", "(b)"}},
{"/bin/sh -c 'a' >f",                  {"(a)"}},
{"sh script",                          {"sh script"}},
// ---- background
{"a &",                                {"a&"}},
{"a & b",                              {"a&", "b"}},
{"a && b & c",                         {"a&", "b&", "c"}},
{"(a; b &) >f",                        {"(a)", "(b)&"}},
{"(a; b) &",                           {"a&", "b&"}},
// ---- compound commands
{"while a; do b; c; done",             {"a", "b", "c"}},
{"until a; do b; done >f",             {"(a)", "(b)"}},
{"while a; do b; done &",              {"a&", "b&"}},
{"for i in 1 2 3; do a $i; done",      {"a $i"}},
{"for i\ndo a; done",                  {"a"}},
{"if a; then b; elif c; then d; else e; fi", {"a", "b", "c", "d", "e"}},
{"if a; then b; fi >f",                {"(a)", "(b)"}},
{"case $1 in x) a;; *) b;; esac; c",   {"c"}},
// ---- what is no command line
{"a 'b",                               {"ERROR the ' is not closed"}},
{"a \"b",                              {"ERROR the \" is not closed"}},
{"a $(b",                              {"ERROR the $( is not closed"}},
{"a ${b",                              {"ERROR the ${ is not closed"}},
{"(a",                                 {"ERROR \")\" is missing"}},
{"a)",                                 {"ERROR \")\" has no beginning"}},
{"{ a",                                {"ERROR \"}\" is missing"}},
{"a >",                                {"ERROR \">\" leads nowhere"}},
{"a |",                                {"ERROR it breaks off"}},
{"a &&",                               {"ERROR it breaks off"}},
{"; a",                                {"ERROR \";\" is out of place"}},
{"a ;; b",                             {"ERROR \";;\" is out of place"}},
{"while a; b; done",                   {"ERROR \"do\" is missing"}},
{"while a; do b",                      {"ERROR \"done\" is missing"}},
{"if a; then b",                       {"ERROR \"fi\" is missing"}},
{"case a in b) c;;",                   {"ERROR \"esac\" is missing"}},
};
// clang-format on

class ShellCommand : public testing::TestWithParam<Row>
{
};

TEST_P(ShellCommand, IsTakenApart)
{
	EXPECT_EQ(told(GetParam().text), GetParam().expected) << GetParam().text;
}

std::string rowNumber(const testing::TestParamInfo<Row>& info)
{
	return "Row" + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Lines, ShellCommand, testing::ValuesIn(kRows), rowNumber);

/// Each action is told as "add 192.0.2.9/24 eth0 eth0:ha".
std::string actionOf(const std::string& text)
{
	std::string result;
	for (const AddressAction& action : addressActions(parse(text)))
	{
		const std::string prefix = action.prefix ? "/" + std::to_string(*action.prefix) : "";
		result += (result.empty() ? "" : ", ") + std::string(action.adds ? "add " : "del ") + action.address + prefix +
		          " " + action.card + " " + action.label;
	}
	return result;
}

TEST(AddressCommand, TellsWhatIsRaisedAndDropped)
{
	struct Line
	{
		const char* text;
		const char* expected;
	};
	// clang-format off
	for (const Line& line : {
	    Line{"ip addr add 192.0.2.9/24 dev eth0 label eth0:ha",              "add 192.0.2.9/24 eth0 eth0:ha"},
	    Line{"ip -4 a a 192.0.2.9/24 brd + dev eth0",                        "add 192.0.2.9/24 eth0 "},
	    Line{"/sbin/ip address replace 192.0.2.9 dev eth0",                  "add 192.0.2.9/32 eth0 "},
	    Line{"ip addr add dev eth0 broadcast 192.0.2.255 local 192.0.2.9/24", "add 192.0.2.9/24 eth0 "},
	    Line{"ip addr add $VIP dev eth0",                                    "add $VIP/32 eth0 "},
	    Line{"sudo -n ip addr del 192.0.2.9/24 dev eth0",                    "del 192.0.2.9/24 eth0 "},
	    Line{"ip a d 192.0.2.9 dev eth0",                                    "del 192.0.2.9 eth0 "},
	    Line{"timeout 5 ip addr del 192.0.2.9/24 dev eth0 || true",          "del 192.0.2.9/24 eth0 "},
	    Line{"ip link set eth0 up",                                          ""},
	    Line{"ip addr show dev eth0",                                        ""},
	    Line{"ip addr",                                                      ""},
	    Line{"ifconfig eth0:1 192.0.2.9 netmask 255.255.255.0 up",           "add 192.0.2.9/24 eth0 eth0:1"},
	    Line{"ifconfig eth0:1 192.0.2.9/16",                                 "add 192.0.2.9/16 eth0 eth0:1"},
	    Line{"ifconfig eth0:1 192.0.2.9",                                    "add 192.0.2.9 eth0 eth0:1"},
	    Line{"ifconfig eth0:1 down",                                         "del  eth0 eth0:1"},
	    Line{"ifconfig eth0 del 192.0.2.9",                                  "del 192.0.2.9 eth0 "},
	    Line{"ifconfig eth0 mtu 1400",                                       ""},
	    Line{"ifconfig eth0",                                                ""},
	    Line{"ip addr add 10.0.0.1/8 dev eth0; ip addr del 10.0.0.2/8 dev eth0", "add 10.0.0.1/8 eth0 , del 10.0.0.2/8 eth0 "}})
	// clang-format on
	{
		EXPECT_EQ(actionOf(line.text), line.expected) << line.text;
	}
}

TEST(CommandOutput, TellsWhatProgramsPrint)
{
	struct Line
	{
		const char* text;
		Output expected;
	};
	// clang-format off
	for (const Line& line : {
	    Line{"ip addr add 192.0.2.9/24 dev eth0", Output::none},
	    Line{"ip link set eth0 up",               Output::none},
	    Line{"ip addr flush label eth0:ha",       Output::none},
	    Line{"ip addr show",                      Output::some},
	    Line{"ifconfig eth0:1 192.0.2.9",         Output::none},
	    Line{"ifconfig eth0",                     Output::some},
	    Line{"arping -A -c 1 192.0.2.9",          Output::some},
	    Line{"arping -qA -c 1 192.0.2.9",         Output::none},
	    Line{"grep x file",                       Output::some},
	    Line{"grep -q x file",                    Output::none},
	    Line{"killall -9 server",                 Output::none},
	    Line{"echo up",                           Output::some},
	    Line{"/bin/echo up",                      Output::some},
	    Line{"/opt/ha/raise",                     Output::notKnown},
	    Line{"/opt/ha/ip addr add",               Output::notKnown},
	    Line{"frobnicate",                        Output::notKnown}})
	// clang-format on
	{
		EXPECT_EQ(outputOf(programWords(parse(line.text).commands.front())), line.expected) << line.text;
	}
}

TEST(CommandOutput, TellsWhatRunsForEver)
{
	const auto forEver = [](const std::string& text) { return runsForEver(parse(text).commands.front().words); };
	EXPECT_TRUE(forEver("arping -q -A -I eth0 192.0.2.9"));
	EXPECT_FALSE(forEver("arping -q -A -c 3 192.0.2.9"));
	EXPECT_FALSE(forEver("arping -q -A -w3 192.0.2.9"));
	EXPECT_TRUE(forEver("ping 192.0.2.9"));
	EXPECT_FALSE(forEver("ping -c1 192.0.2.9"));
	EXPECT_TRUE(forEver("sleep infinity"));
	EXPECT_FALSE(forEver("sleep 4"));
	EXPECT_TRUE(forEver("tail -F /var/log/messages"));
	EXPECT_FALSE(forEver("tail -n 1 /var/log/messages"));
}

TEST(ShellCommandForms, AShellsOwnRedirectionIsNoticed)
{
	EXPECT_TRUE(parse("a &>f").bashRedirection);
	EXPECT_FALSE(parse("a & >f").bashRedirection);
	EXPECT_FALSE(parse("a '&>' f").bashRedirection);
}

} // namespace
