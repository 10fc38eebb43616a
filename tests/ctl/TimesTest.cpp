// Times as people write and read them, bytes made fit for a terminal, and how long a sound agent may
// be silent with which settings.

#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "ctl/history/Dates.h"
#include "ctl/status/NodeState.h"
#include "inspect/Printable.h"
#include "inspect/TimeText.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

using SinceRow = std::pair<const char*, Instant>;

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
	EXPECT_EQ(parseSince(GetParam().first, kNow), GetParam().second);
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
                                         "1.5.5h", "1h,1h", "1h+", "1h ago 1h", "ago", " ago", "2 ago", "today ago",
                                         "99999999999h", "99999999999999999999h", "1000000000w", "2026-02-30",
                                         "2026-13-01", "2026-03-01 24:00", "2026-03-01 9:07", "21.11.2026", "9:07",
                                         "09:70", "now", "Z", "1960-01-01", "9999-01-01", "9999-01-01Z",
                                         "999999999w 999999999w"));

TEST(SinceALongText, IsReadPartByPart)
{
	std::string seconds;
	for (int i = 0; i < 10'000; ++i)
	{
		seconds += "1s";
	}
	EXPECT_EQ(parseSince(seconds, kNow), kNow - 10'000s);
	EXPECT_FALSE(parseSince(seconds + "x", kNow));
	EXPECT_FALSE(parseSince(std::string(100'000, '1'), kNow));
}

TEST(SinceYesterday, IsADayAlsoWhenTheDayHadTwentyThreeHours)
{
	const LocalZone zone{kCentralEurope};
	EXPECT_EQ(parseSince("yesterday", utc(3, 30, 10h)), utc(3, 28, 23h));
	EXPECT_EQ(parseSince("today", utc(3, 30, 10h)), utc(3, 29, 22h));
}

using PrintableRow = std::pair<std::string, const char*>;

TEST(PrintableBytes, AreThoseOfATerminal)
{
	for (const PrintableRow& row :
	     {PrintableRow{"", ""}, PrintableRow{"plain ~", "plain ~"}, PrintableRow{"a\nb\tc\r", "a\\nb\\tc\\x0d"},
	      PrintableRow{std::string("\0", 1), "\\x00"}, PrintableRow{"\x1b[31m", "\\x1b[31m"},
	      PrintableRow{"\x7f", "\\x7f"}, PrintableRow{"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f"},
	      PrintableRow{"\xe2\x82\xac\xf0\x9f\x98\x80", "\xe2\x82\xac\xf0\x9f\x98\x80"},
	      PrintableRow{"\xff\xfe", "\\xff\\xfe"}, PrintableRow{"\xc3", "\\xc3"}, PrintableRow{"\xc3(", "\\xc3("},
	      PrintableRow{"\xc0\xaf", "\\xc0\\xaf"}, PrintableRow{"\xe0\x80\xaf", "\\xe0\\x80\\xaf"},
	      PrintableRow{"\xed\xa0\x80", "\\xed\\xa0\\x80"}, PrintableRow{"\xc2\x9b", "\\xc2\\x9b"},
	      PrintableRow{"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
	      PrintableRow{"\xf0\x80\x80\x80", "\\xf0\\x80\\x80\\x80"}, PrintableRow{"\x80", "\\x80"}})
	{
		EXPECT_EQ(printable(row.first), row.second);
	}
}

using SpanRow = std::pair<std::chrono::milliseconds, const char*>;

TEST(SpanText, HasItsTwoLargestUnits)
{
	for (const SpanRow& row :
	     {SpanRow{0ms, "0.0 s"}, SpanRow{449ms, "0.4 s"}, SpanRow{450ms, "0.5 s"}, SpanRow{9949ms, "9.9 s"},
	      SpanRow{9950ms, "10 s"}, SpanRow{59499ms, "59 s"}, SpanRow{59500ms, "1 min"}, SpanRow{185s, "3 min 5 s"},
	      SpanRow{1h, "1 h"}, SpanRow{3h + 12min + 59s, "3 h 12 min"}, SpanRow{24h, "1 d"},
	      SpanRow{52h + 59min, "2 d 4 h"}, SpanRow{-1500ms, "-1.5 s"}})
	{
		EXPECT_EQ(spanText(row.first), row.second);
	}
}

TEST(TimeText, LocalTimeHasSecondsAndUtcHasMilliseconds)
{
	const LocalZone zone{kCentralEurope};
	const std::chrono::system_clock::time_point time =
	    std::chrono::sys_days{std::chrono::year{2026} / 11 / 21} + 8h + 7min + 5s + 340ms;
	EXPECT_EQ(localText(time), "2026-11-21 09:07:05");
	EXPECT_EQ(isoText(time), "2026-11-21T08:07:05.340Z");
	EXPECT_DOUBLE_EQ(inSeconds(time), 1795248425.34);
}

// interval, receiving time, check cycle, waiting time
TEST(Timing, GivesTheLongestPauses)
{
	const auto pauses = [](const Timing& timing)
	{
		return std::array{timing.logPause(), timing.receiverPause(), timing.rolePause(), timing.heartbeatPause(),
		                  timing.handOver()};
	};
	using Pauses = std::array<std::chrono::milliseconds, 5>;
	EXPECT_EQ(pauses({1s, 2s, 1s, 0s}), (Pauses{6s, 17s, 17s, 11s, 15s}));
	EXPECT_EQ(pauses({1s, 2s, 1s, 30s}), (Pauses{6s, 17s, 17s, 11s, 45s}));
	EXPECT_EQ(pauses({10s, 20s, 60s, 1s}), (Pauses{35s, 35s, 65s, 65s, 34s}));
	EXPECT_EQ(pauses({1s, 3s, 3600s, 0s}), (Pauses{10s, 18s, 3605s, 13s, 15s}));
	EXPECT_EQ(pauses({0s, 0s, 0s, 0s}), (Pauses{5s, 15s, 15s, 5s, 13s}));
}

TEST(Timing, TakesMissingAndNegativeSettingsForZero)
{
	const SettingsFile file = SettingsFile::parse("config.ini", "[AGENT]\nHEART_BEAT_INTERVAL = -3\n"
	                                                            "MAX_HEART_BEAT_RECEIING_TIME = 4\n"
	                                                            "WAITING_TIME_BEFORE_PROCESS_RUN = many\n");
	const Timing timing = Timing::of(file);
	EXPECT_EQ(timing.interval, 0s);
	EXPECT_EQ(timing.receivingTime, 4s);
	EXPECT_EQ(timing.checkCycle, 0s);
	EXPECT_EQ(timing.waitingTime, 0s);
}

} // namespace
