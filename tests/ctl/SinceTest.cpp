// Times as people write them, and bytes made fit for a terminal.

#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "ctl/history/Since.h"
#include "inspect/Printable.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

Instant utc(int month, int day, std::chrono::seconds ofDay)
{
	return std::chrono::sys_days(std::chrono::year(2026) / month / day) + ofDay;
}

struct SinceRow
{
	const char* text;
	Instant expected;
};

/// On 27 March 2026, 12:30 local time (11:30 UTC), two days before the clocks go
/// forward.
class Since : public testing::TestWithParam<SinceRow>
{
protected:
	const LocalZone zone{kCentralEurope};
};

const Instant kNow = utc(3, 27, 11h + 30min);

TEST_P(Since, Means)
{
	const auto since = parseSince(GetParam().text, kNow);
	ASSERT_TRUE(since);
	EXPECT_EQ(*since, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Text, Since,
    testing::Values(SinceRow{"90s", kNow - 90s}, SinceRow{"15m", kNow - 15min}, SinceRow{"15 min", kNow - 15min},
                    SinceRow{"2h", kNow - 2h}, SinceRow{"1d12h", kNow - 36h}, SinceRow{"1 d 12 h", kNow - 36h},
                    SinceRow{"2 weeks", kNow - 24h * 14}, SinceRow{"1 hour 1 minute 1 second", kNow - 3661s},
                    SinceRow{"0s", kNow}, SinceRow{"2026-03-01", utc(2, 28, 23h)},
                    SinceRow{"2026-03-01 09:07", utc(3, 1, 8h + 7min)},
                    SinceRow{"2026-03-01T09:07:05", utc(3, 1, 8h + 7min + 5s)},
                    SinceRow{"2026-03-01 09:07:05Z", utc(3, 1, 9h + 7min + 5s)}, SinceRow{"2026-03-01Z", utc(3, 1, 0s)},
                    SinceRow{"2026-07-01 09:07", utc(7, 1, 7h + 7min)}, SinceRow{"09:07", utc(3, 27, 8h + 7min)},
                    SinceRow{"09:07:05", utc(3, 27, 8h + 7min + 5s)}, SinceRow{"today", utc(3, 26, 23h)},
                    SinceRow{"yesterday", utc(3, 25, 23h)}, SinceRow{"5 minutes ago", kNow - 5min},
                    SinceRow{"1.5h", kNow - 90min}, SinceRow{"0.25 h ago", kNow - 15min},
                    SinceRow{"1.125s", kNow - 1125ms}, SinceRow{"1.05d", kNow - 25h - 12min}));

class NoSince : public testing::TestWithParam<const char*>
{
};

TEST_P(NoSince, IsRefused)
{
	EXPECT_FALSE(parseSince(GetParam(), kNow));
}

INSTANTIATE_TEST_SUITE_P(Text, NoSince,
                         testing::Values("", " ", "2", "h", "2x", "2h3", "-2h", "1,5h", "2.h", "2.5", "2.5555h",
                                         "1.5.5h", "ago", " ago", "2 ago", "today ago", "99999999999h",
                                         "99999999999999999999h", "1000000000w", "2026-02-30", "2026-13-01",
                                         "2026-03-01 24:00", "2026-03-01 9:07", "21.11.2026", "9:07", "09:70", "now",
                                         "Z", "1960-01-01", "9999-01-01", "9999-01-01Z", "999999999w 999999999w"));

TEST(SinceYesterday, IsADayAlsoWhenTheDayHadTwentyThreeHours)
{
	const LocalZone zone{kCentralEurope};
	EXPECT_EQ(parseSince("yesterday", utc(3, 30, 10h)), utc(3, 28, 23h));
	EXPECT_EQ(parseSince("today", utc(3, 30, 10h)), utc(3, 29, 22h));
}

struct PrintableRow
{
	std::string bytes;
	const char* text;
};

class PrintableBytes : public testing::TestWithParam<PrintableRow>
{
};

TEST_P(PrintableBytes, Are)
{
	EXPECT_EQ(printable(GetParam().bytes), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, PrintableBytes,
    testing::Values(PrintableRow{"", ""}, PrintableRow{"plain ~", "plain ~"},
                    PrintableRow{"a\nb\tc\r", "a\\nb\\tc\\x0d"}, PrintableRow{std::string("\0", 1), "\\x00"},
                    PrintableRow{"\x1b[31m", "\\x1b[31m"}, PrintableRow{"\x7f", "\\x7f"},
                    PrintableRow{"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f"},
                    PrintableRow{"\xe2\x82\xac\xf0\x9f\x98\x80", "\xe2\x82\xac\xf0\x9f\x98\x80"},
                    PrintableRow{"\xff\xfe", "\\xff\\xfe"}, PrintableRow{"\xc3", "\\xc3"},
                    PrintableRow{"\xc3(", "\\xc3("}, PrintableRow{"\xc0\xaf", "\\xc0\\xaf"},
                    PrintableRow{"\xe0\x80\xaf", "\\xe0\\x80\\xaf"}, PrintableRow{"\xed\xa0\x80", "\\xed\\xa0\\x80"},
                    PrintableRow{"\xc2\x9b", "\\xc2\\x9b"}, PrintableRow{"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
                    PrintableRow{"\xf0\x80\x80\x80", "\\xf0\\x80\\x80\\x80"}, PrintableRow{"\x80", "\\x80"}));

} // namespace
