// How long a sound agent may be silent with which settings.

#include <gtest/gtest.h>

#include "ctl/status/Timing.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

struct Row
{
	Timing timing;
	std::chrono::milliseconds log;
	std::chrono::milliseconds receiver;
	std::chrono::milliseconds role;
	std::chrono::milliseconds heartbeat;
	std::chrono::milliseconds handOver;
};

} // namespace

TEST(Timing, GivesTheLongestPauses)
{
	const Row rows[] = {{{1s, 2s, 1s, 0s}, 6s, 17s, 17s, 11s, 15s},
	                    {{1s, 2s, 1s, 30s}, 6s, 17s, 17s, 11s, 45s},
	                    {{10s, 20s, 60s, 1s}, 35s, 35s, 65s, 65s, 34s},
	                    {{1s, 3s, 3600s, 0s}, 10s, 18s, 3605s, 13s, 15s},
	                    {{0s, 0s, 0s, 0s}, 5s, 15s, 15s, 5s, 13s}};
	for (const Row& row : rows)
	{
		EXPECT_EQ(row.timing.logPause(), row.log);
		EXPECT_EQ(row.timing.receiverPause(), row.receiver);
		EXPECT_EQ(row.timing.rolePause(), row.role);
		EXPECT_EQ(row.timing.heartbeatPause(), row.heartbeat);
		EXPECT_EQ(row.timing.handOver(), row.handOver);
	}
}

// interval, receiving time, check cycle, waiting time
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
