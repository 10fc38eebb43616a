// Spans and times as people and programs read them.

#include <chrono>
#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "inspect/TimeText.h"

using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

struct SpanRow
{
	std::chrono::milliseconds span;
	const char* text;
};

class SpanText : public testing::TestWithParam<SpanRow>
{
};

} // namespace

TEST_P(SpanText, ReadsAs)
{
	EXPECT_EQ(spanText(GetParam().span), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Row, SpanText,
                         testing::Values(SpanRow{0ms, "0.0 s"}, SpanRow{449ms, "0.4 s"}, SpanRow{450ms, "0.5 s"},
                                         SpanRow{9949ms, "9.9 s"}, SpanRow{9950ms, "10 s"}, SpanRow{59499ms, "59 s"},
                                         SpanRow{59500ms, "1 min"}, SpanRow{185s, "3 min 5 s"}, SpanRow{1h, "1 h"},
                                         SpanRow{3h + 12min + 59s, "3 h 12 min"}, SpanRow{24h, "1 d"},
                                         SpanRow{52h + 59min, "2 d 4 h"}, SpanRow{-1500ms, "-1.5 s"}));

TEST(TimeText, LocalTimeHasSecondsAndUtcHasMilliseconds)
{
	::setenv("TZ", "Europe/Berlin", 1);
	::tzset();
	const std::chrono::system_clock::time_point time =
	    std::chrono::sys_days{std::chrono::year{2026} / 11 / 21} + 8h + 7min + 5s + 340ms;
	EXPECT_EQ(localText(time), "2026-11-21 09:07:05");
	EXPECT_EQ(isoText(time), "2026-11-21T08:07:05.340Z");
	EXPECT_DOUBLE_EQ(inSeconds(time), 1795248425.34);
	::setenv("TZ", "UTC", 1);
	::tzset();
}
