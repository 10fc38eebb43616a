// How a received text falls into fields. A "/" at the very end closes the message
// and yields no field.

#include <gmock/gmock.h>

#include <Poco/Exception.h>

#include "HeartbeatMessage.h"
#include "RowName.h"

using namespace std::string_literals;

namespace
{

struct Row
{
	const char* name;
	std::string text;
	std::string prefix;
	std::string processRunning;
	std::string role;
	std::string startedTime;
	std::string specialAsk;
};

// clang-format off
const Row kRows[] = {
	// name                     text                                    prefix      running role   time              ask
	{"master_running",          "/process/1/1/20240131235959/0/",       "process",  "1",    "1",   "20240131235959", "0"},
	{"slave_asking",            "/process/0/2/20240131235959/1/",       "process",  "0",    "2",   "20240131235959", "1"},
	{"time_empty",              "/process/0/2//0/",                     "process",  "0",    "2",   "",               "0"},
	{"not_closed",              "/process/0/2/x/0",                     "process",  "0",    "2",   "x",              "0"},
	{"ask_empty",               "/process/0/2/x//",                     "process",  "0",    "2",   "x",              ""},
	{"all_empty",               "//////",                               "",         "",     "",    "",               ""},
	{"text_before_the_message", "x/process/0/2/t/1/",                   "process",  "0",    "2",   "t",              "1"},
	{"prefix_longer",           "/processX/1/1/x/0/",                   "processX", "1",    "1",   "x",              "0"},
	{"fields_beyond_the_fifth", "/process/1/1/x/0/a/b/c/",              "process",  "1",    "1",   "x",              "0"},
	{"two_messages",            "/process/1/1/x/0//process/0/2/y/1/",   "process",  "1",    "1",   "x",              "0"},
	{"blanks_are_kept",         "/ process/ 1/1 / x / 1/",              " process", " 1",   "1 ",  " x ",            " 1"},
	{"line_feed_is_kept",       "/process/1/1/x/0\n/",                  "process",  "1",    "1",   "x",              "0\n"},
	{"nuls_are_kept",           "/process\0/\0/1\0/x/\0/"s,             "process\0"s, "\0"s, "1\0"s, "x",            "\0"s},
	{"bytes_above_ascii",       "/\xff/\x80/1/x/\xfe/",                 "\xff",     "\x80", "1",   "x",              "\xfe"},
};
// clang-format on

class HeartbeatSplit : public testing::TestWithParam<Row>
{
};

TEST_P(HeartbeatSplit, GivesTheFields)
{
	const HeartbeatMessage message = splitHeartbeat(GetParam().text);
	EXPECT_EQ(message.prefix, GetParam().prefix);
	EXPECT_EQ(message.processRunning, GetParam().processRunning);
	EXPECT_EQ(message.role, GetParam().role);
	EXPECT_EQ(message.startedTime, GetParam().startedTime);
	EXPECT_EQ(message.specialAsk, GetParam().specialAsk);
}

INSTANTIATE_TEST_SUITE_P(Rows, HeartbeatSplit, testing::ValuesIn(kRows), rowName<Row>);

TEST(HeartbeatTooShort, IsARangeError)
{
	for (const std::string& text : {""s, "/"s, "/////"s, "\0"s, "process"s, "/process/1/1/x/"s, "/process/1/1/x"s,
	                                "process/1/1/x/0/"s, std::string(256, 'x')})
	{
		try
		{
			splitHeartbeat(text);
			ADD_FAILURE() << "no exception: " << text;
		}
		catch (const Poco::RangeException& exc)
		{
			EXPECT_EQ(exc.displayText(), "Out of range");
		}
	}
}

TEST(HeartbeatSplitSize, AnyNumberOfSlashesIsSplit)
{
	const HeartbeatMessage message = splitHeartbeat(std::string(100000, '/'));
	EXPECT_EQ(message.prefix, "");
	EXPECT_EQ(message.specialAsk, "");
}

} // namespace
