// keeper.ini: one row for each thing that can be wrong, with its line.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sysexits.h>

#include "keeper/Settings.h"

namespace
{

using namespace velarix::keeper;

const std::string kAddressSection = "[address]\naddress = 192.0.2.100\ninterface = eth0\non_conflict = yield\n";

TEST(Settings, TheWholeOfThem)
{
	const ParsedSettings parsed = parseSettings(
	    "; a comment\n# another\n\n[address]\n address=192.0.2.100/24 ; the shared one\ninterface = eth0\non_conflict "
	    "= defend\n"
	    "[service web]\ncommand = /usr/sbin/nginx -g \"daemon off;\"   ; or: unit = x.service\nuser = www-data\n"
	    "group = adm\ndirectory = /var/www\nenvironment = A=1 \"B=two words\"\ncheck = curl -fsS 'http://x/;y'\n"
	    "check_interval = 5\ncheck_failures = 2\ncheck_timeout = 1\nrestarts = 4 in 120\nstop_timeout = 0\n"
	    "[service db]\nunit = postgresql@15-main.service\r\n");
	EXPECT_TRUE(parsed.findings.empty()) << parsed.findings.front().text;
	const AddressSettings& address = parsed.settings.address;
	EXPECT_EQ(address.address, ::inet_addr("192.0.2.100"));
	EXPECT_EQ(address.text, "192.0.2.100");
	EXPECT_EQ(address.prefix, 24);
	EXPECT_EQ(address.interface, "eth0");
	EXPECT_TRUE(address.defend);
	ASSERT_EQ(parsed.settings.services.size(), 2U);
	const ServiceSettings& web = parsed.settings.services[0];
	EXPECT_EQ(web.program, "ha-web");
	EXPECT_EQ(web.command, (std::vector<std::string>{"/usr/sbin/nginx", "-g", "daemon off;"}));
	EXPECT_EQ(web.user, "www-data");
	EXPECT_EQ(web.group, "adm");
	EXPECT_EQ(web.directory, "/var/www");
	EXPECT_EQ(web.environment, (std::vector<std::string>{"A=1", "B=two words"}));
	EXPECT_EQ(web.check, (std::vector<std::string>{"curl", "-fsS", "http://x/;y"}));
	EXPECT_EQ(web.checkInterval, 5);
	EXPECT_EQ(web.checkFailures, 2);
	EXPECT_EQ(web.checkTimeout, 1);
	EXPECT_EQ(web.restarts, 4);
	EXPECT_EQ(web.restartsWithin, 120);
	EXPECT_EQ(web.stopTimeout, 0);
	EXPECT_EQ(parsed.settings.services[1].unit, "postgresql@15-main.service");
}

TEST(Settings, WhatIsNotSaid)
{
	const ParsedSettings parsed = parseSettings(kAddressSection + "[service web]\ncommand = x\n");
	ASSERT_TRUE(parsed.findings.empty());
	EXPECT_EQ(parsed.settings.address.prefix, 32);
	EXPECT_FALSE(parsed.settings.address.defend);
	const ServiceSettings& web = parsed.settings.services.front();
	EXPECT_EQ(web.checkInterval, 2);
	EXPECT_EQ(web.checkFailures, 3);
	EXPECT_EQ(web.restarts, 3);
	EXPECT_EQ(web.restartsWithin, 60);
	EXPECT_EQ(web.stopTimeout, 20);
	EXPECT_TRUE(web.check.empty());
}

struct Wrong
{
	const char* text; ///< behind a sound [address], whose last line is 4
	int line;
	const char* finding; ///< in the finding's text
};

// clang-format off
const std::vector<Wrong> kWrong{
	{"[service web]\ncommand = x\ncolour = red\n",                   7, "no such key in [service]: colour"},
	{"[service web]\ncommand = x\naddress = 192.0.2.1\n",            7, "no such key in [service]: address"},
	{"[service web]\ncommand = x\nCommand = y\n",                    7, "no such key in [service]: Command"},
	{"[service web]\ncommand = x\ncommand = y\n",                    7, "a second command"},
	{"[services]\ncommand = x\n",                                    5, "no such section: [services]"},
	{"[service]\ncommand = x\n",                                     5, "no such section: [service]"},
	{"[service web\ncommand = x\n",                                  5, "no such section: [service web"},
	{"[address]\naddress = 192.0.2.1\n",                             5, "a second [address]"},
	{"[service web]\ncommand = x\n[service web]\ncommand = y\n",     7, "a second [service web]"},
	{"[service abcdefghijklm]\ncommand = x\n",                       5, "\"abcdefghijklm\" cannot be"},
	{"[service Web]\ncommand = x\n",                                 5, "\"Web\" cannot be"},
	{"[service a b]\ncommand = x\n",                                 5, "\"a b\" cannot be"},
	{"[service ../x]\ncommand = x\n",                                5, "\"../x\" cannot be"},
	{"[service web]\ncommand = x\n[service web2]\ncommand = y\n",    7, "ha-web is contained in ha-web2"},
	{"[service address]\ncommand = x\n",                             5, "ha-address is contained in ha-address"},
	{"[service addr]\ncommand = x\n",                                5, "ha-addr is contained in ha-address"},
	{"[service web]\nuser = root\n",                                 5, "without a command"},
	{"[service web]\ncommand = x\nunit = x.service\n",               7, "both a command and a unit"},
	{"[service web]\ncommand =\n",                                   6, "is empty"},
	{"[service web]\ncommand = \"\"\n",                              6, "is empty"},
	{"[service web]\ncommand = x \"y\n",                             6, "has an open quote"},
	{"[service web]\ncommand = x \\\n",                              6, "ends in a backslash"},
	{"[service web]\nunit = postgresql\n",                           6, "is not NAME.service"},
	{"[service web]\nunit = --now.service\n",                        6, "is not NAME.service"},
	{"[service web]\nunit = a b.service\n",                          6, "is not NAME.service"},
	{"[service web]\ncommand = x\nuser =\n",                         7, "is empty"},
	{"[service web]\ncommand = x\ndirectory = var\n",                7, "is not an absolute path"},
	{"[service web]\ncommand = x\nenvironment = A\n",                7, "is not NAME=value"},
	{"[service web]\ncommand = x\nuser = a b\n",                    7, "is not a user"},
	{"[service web]\ncommand = x\nenvironment = =1\n",               7, "is not NAME=value"},
	{"[service web]\ncommand = x\ncheck_interval = 0\n",             7, "is not 1 to 3600"},
	{"[service web]\ncommand = x\ncheck_interval = 3601\n",          7, "is not 1 to 3600"},
	{"[service web]\ncommand = x\ncheck_interval = 2s\n",            7, "is not 1 to 3600"},
	{"[service web]\ncommand = x\ncheck_interval = 0x2\n",           7, "is not 1 to 3600"},
	{"[service web]\ncommand = x\ncheck_interval = 99999999999\n",   7, "is not 1 to 3600"},
	{"[service web]\ncommand = x\ncheck_failures = 0\n",             7, "is not 1 to 100"},
	{"[service web]\ncommand = x\ncheck_timeout = 0\n",              7, "is not 1 to 3600"},
	{"[service web]\ncommand = x\nstop_timeout = -1\n",              7, "is not 0 to 3600"},
	{"[service web]\ncommand = x\nrestarts = 3\n",                   7, "is not 0 to 1000 in 1 to 86400"},
	{"[service web]\ncommand = x\nrestarts = 3 in 0\n",              7, "is not 0 to 1000 in 1 to 86400"},
	{"[service web]\ncommand = x\nrestarts = 1001 in 60\n",          7, "is not 0 to 1000 in 1 to 86400"},
	{"nonsense\n",                                                   5, "neither a section nor key = value"},
};

const std::vector<Wrong> kWrongAddress{
	{"",                                                             0, "there is no [address]"},
	{"key = value\n",                                                1, "a key before the first section"},
	{"[address]\ninterface = eth0\non_conflict = yield\n",           1, "there is no address in [address]"},
	{"[address]\naddress = 192.0.2.1\non_conflict = yield\n",        1, "there is no interface"},
	{"[address]\naddress = 192.0.2.1\ninterface = eth0\n",           1, "there is no on_conflict"},
	{"[address]\naddress = 192.0.2\n",                               2, "is not an IPv4 address"},
	{"[address]\naddress = 2001:db8::1\n",                           2, "is not an IPv4 address"},
	{"[address]\naddress = 192.0.2.1/33\n",                          2, "is not an IPv4 address of a host, with a prefix of /8 to /32"},
	{"[address]\naddress = 192.0.2.1/\n",                            2, "is not an IPv4 address of a host, with a prefix of /8 to /32"},
	{"[address]\naddress = 192.0.2.1/7\n",                           2, "is not an IPv4 address of a host, with a prefix of /8 to /32"},
	{"[address]\naddress = 0.0.0.0\n",                               2, "is not an IPv4 address of a host"},
	{"[address]\naddress = 255.255.255.255\n",                       2, "is not an IPv4 address of a host"},
	{"[address]\naddress = 224.0.0.1\n",                             2, "is not an IPv4 address of a host"},
	{"[address]\naddress = 127.0.0.1\n",                             2, "is not an IPv4 address of a host"},
	{"[address]\ninterface = eth0/1\n",                              2, "is not a name of at most 15"},
	{"[address]\ninterface = eth0:ha\n",                             2, "is not a name of at most 15"},
	{"[address]\ninterface = abcdefghijklmnop\n",                    2, "is not a name of at most 15"},
	{"[address]\non_conflict = fight\n",                             2, "is not defend or yield"},
};
// clang-format on

void expectFinding(const std::string& text, const Wrong& wrong)
{
	SCOPED_TRACE(text);
	const ParsedSettings parsed = parseSettings(text);
	bool found = false;
	for (const Finding& finding : parsed.findings)
	{
		found = found || (finding.line == wrong.line && finding.text.find(wrong.finding) != std::string::npos);
		EXPECT_EQ(finding.status, EX_CONFIG);
		EXPECT_FALSE(finding.cure.empty());
	}
	EXPECT_TRUE(found) << wrong.finding
	                   << ", but: " << (parsed.findings.empty() ? "nothing" : parsed.findings.front().text)
	                   << " in line " << (parsed.findings.empty() ? 0 : parsed.findings.front().line);
	EXPECT_NE(parsed.error(), nullptr);
}

TEST(Settings, EachThingThatIsWrongIsFoundInItsLine)
{
	for (const Wrong& wrong : kWrong)
	{
		expectFinding(kAddressSection + wrong.text, wrong);
	}
	for (const Wrong& wrong : kWrongAddress)
	{
		expectFinding(wrong.text, wrong);
	}
}

TEST(Settings, TheKeysOfARefusedSectionAreNoFindings)
{
	const ParsedSettings parsed = parseSettings(kAddressSection + "[nonsense]\na = b\nc = d\n");
	ASSERT_EQ(parsed.findings.size(), 1U);
	EXPECT_EQ(parsed.findings.front().line, 5);
}

TEST(Settings, WhatOnlyAShellUnderstandsIsAWarning)
{
	const auto wordsFor = [](const std::string& line)
	{
		const ParsedSettings parsed = parseSettings(kAddressSection + "[service web]\n" + line + "\n");
		EXPECT_EQ(parsed.error(), nullptr) << line;
		return parsed.findings.empty() ? std::string() : parsed.findings.front().text;
	};
	for (const auto& [value, word] :
	     std::initializer_list<std::pair<const char*, const char*>>{{"curl x | grep ok", " |,"},
	                                                                {"a >/dev/null", " >/dev/null,"},
	                                                                {"a 2>&1", " 2>&1,"},
	                                                                {"a < b", " <,"},
	                                                                {"a & b", " &,"},
	                                                                {"a 'b c' && d", " &&,"},
	                                                                {"a b; c", " b;,"},
	                                                                {"a \xE2\x80\x9C"
	                                                                 "b\xE2\x80\x9D",
	                                                                 "typographic"}})
	{
		EXPECT_NE(wordsFor(std::string("command = ") + value).find(word), std::string::npos) << value;
	}
	for (const char* value : {"nginx -g \"daemon off;\"", "find . -exec a {} \\;", "cut -d '|' -f 1", "a b ; c | d",
	                          "curl http://x/?a=1&b=2", "sh -c 'a | b && c'"})
	{
		EXPECT_EQ(wordsFor(std::string("command = ") + value), "") << value;
	}
	EXPECT_NE(wordsFor("command = a\ncheck = b | c"), "");
}

TEST(Settings, TheSampleIsSound)
{
	const ParsedSettings sample = readSettings(KEEPER_SAMPLE);
	EXPECT_TRUE(sample.findings.empty());
	EXPECT_EQ(sample.settings.written, std::filesystem::last_write_time(KEEPER_SAMPLE));
}

TEST(Settings, AFileThatIsNoneIsAFinding)
{
	for (const char* path : {"/nonexistent", "/", "/dev/zero"})
	{
		const ParsedSettings parsed = readSettings(path);
		ASSERT_EQ(parsed.findings.size(), 1U) << path;
		EXPECT_EQ(parsed.findings.front().status, EX_CONFIG);
	}
}

TEST(Settings, EveryKeyIsReportedWithItsRange)
{
	std::ifstream page(KEEPER_PAGE);
	const std::string text((std::istreambuf_iterator<char>(page)), std::istreambuf_iterator<char>());
	EXPECT_EQ(keyTable().size(), 23U);
	for (const KeyInfo& key : keyTable())
	{
		EXPECT_NE(std::string(key.meaning), "");
		EXPECT_NE(std::string(key.range), "");
		EXPECT_NE(text.find("`" + std::string(key.name) + "`"), std::string::npos)
		    << key.name << " is not in docs/keeper.md";
	}
}

TEST(SettingsOfThisMachine, WhatIsMissingIsFoundWithItsStatus)
{
	Settings settings =
	    parseSettings("[address]\naddress=192.0.2.1\ninterface=nosuch0\non_conflict=yield\n"
	                  "[service a]\ncommand = /nonexistent\nuser = nosuchuser\n"
	                  "[service b]\ncommand = sh -c true\ngroup = nosuchgroup\ndirectory = /nonexistent\n"
	                  "[service c]\ncommand = sh\ncheck = nosuchcheck\n")
	        .settings;
	std::vector<std::string> found;
	for (const Finding& finding : checkMachine(settings))
	{
		if (finding.text.find("/usr/velarix/run") == std::string::npos)
		{
			found.push_back(std::to_string(finding.line) + " " + std::to_string(finding.status) + " " + finding.text);
		}
	}
	EXPECT_EQ(found, (std::vector<std::string>{
	                     "1 0 there is no interface nosuch0",
	                     "6 69 command: /nonexistent is no program here",
	                     "7 67 there is no user nosuchuser",
	                     "10 67 there is no group nosuchgroup",
	                     "8 69 there is no directory /nonexistent",
	                     "12 69 check: nosuchcheck is no program here",
	                 }));
}

using Words = std::vector<std::string>;

TEST(Arguments, AreSplitAsAShellWouldWithoutItsExpansions)
{
	const std::vector<std::pair<std::string, Words>> rows{
	    {"", {}},
	    {"  \t ", {}},
	    {"a", {"a"}},
	    {" a  b\tc ", {"a", "b", "c"}},
	    {"\"a b\" 'c d'", {"a b", "c d"}},
	    {"a\"b c\"d", {"ab cd"}},
	    {"''", {""}},
	    {"a '' b", {"a", "", "b"}},
	    {"a\\ b", {"a b"}},
	    {"\\\"a\\\"", {"\"a\""}},
	    {"\"a\\\"b\\\\c\\d\"", {"a\"b\\c\\d"}},
	    {"'a\\b'", {"a\\b"}},
	    {"$HOME `id` * | > &", {"$HOME", "`id`", "*", "|", ">", "&"}},
	    {"a; b;c ';' ; comment", {"a;", "b;c", ";"}},
	};
	for (const auto& [text, expected] : rows)
	{
		Words words;
		std::string error;
		EXPECT_TRUE((error = splitArguments(text, words)).empty()) << text;
		EXPECT_EQ(words, expected) << text;
	}
	for (const char* text : {"\"a", "'a", "a\\", "\"a\\\""})
	{
		Words words;
		std::string error;
		EXPECT_FALSE((error = splitArguments(text, words)).empty()) << text;
		EXPECT_FALSE(error.empty());
	}
}

TEST(Arguments, ACommandIsFoundOnThePath)
{
	EXPECT_EQ(findCommand("/bin/sh"), "/bin/sh");
	EXPECT_NE(findCommand("sh"), "");
	EXPECT_EQ(findCommand("/etc/passwd"), "");
	EXPECT_EQ(findCommand("/etc"), "");
	EXPECT_EQ(findCommand("nosuchprogram"), "");
}

} // namespace
