// What a heartbeat says, for every combination of the shared values, and how the
// start time is copied into it. The rows are bytes on the wire.

#include "SenderTest.h"

namespace
{

struct Beat
{
	bool running;
	MODE mode;
	std::int32_t asking;
	std::string message;
};

/// Every combination of what the three fields can be.
std::vector<Beat> combinations()
{
	const std::map<bool, std::string> runnings{{false, "0"}, {true, "1"}};
	const std::map<MODE, std::string> roles{{1, "1"}, {2, "2"}, {0, "2"}, {3, "2"}, {-1, "2"}};
	const std::map<std::int32_t, std::string> asks{{0, "0"}, {1, "1"}, {2, "0"}, {-1, "0"}};
	std::vector<Beat> all;
	for (const auto& [running, runningField] : runnings)
	{
		for (const auto& [role, roleField] : roles)
		{
			for (const auto& [asking, askField] : asks)
			{
				all.push_back({running, role, asking,
				               "/process/" + runningField + "/" + roleField + "/20240131235959/" + askField + "/"});
			}
		}
	}
	return all;
}

TEST_F(SenderTest, EveryCombinationOfTheSharedValuesIsSentAsItsFields)
{
	// A thread that starts with the role 0 ends at once, so the values come with the waits.
	std::string expected = beats::kBeat;
	int wait = 0;
	for (const Beat& beat : combinations())
	{
		atWait(++wait,
		       [&, beat]
		       {
			       EXPECT_EQ(partner->message(), expected);
			       EXPECT_EQ(events::all().at(events::all().size() - 2),
			                 "log D CHeartSender:124 beat sent[noName]:" + expected);
			       velarix::storeShared(running, beat.running);
			       velarix::storeShared(mode, beat.mode);
			       velarix::storeShared(g_specialAsking, beat.asking);
			       expected = beat.message;
		       });
	}
	untilWait(wait + 1);
	EXPECT_EQ(wait, 40);
	EXPECT_EQ(partner->message(), expected);
}

struct TimeRow
{
	const char* name;
	const char* label;
	std::string record;
	std::string message;
};

const std::string kLongTime(2000, '7');

// clang-format off
const TimeRow kTimeRows[] = {
	// name                  label       record                                        message
	{"fourteen_digits",      "noName",   "LAST_RUN_TIME = 20240131235959",             "/process/0/2/20240131235959/0/"},
	{"empty",                "noName",   "LAST_RUN_TIME = ",                           "/process/0/2//0/"},
	{"empty_without_blank",  "noName",   "LAST_RUN_TIME=",                             "/process/0/2//0/"},
	{"no_time_at_all",       "noName",   "LAST_RUN_TIME = never",                      "/process/0/2/never/0/"},
	{"slash_is_not_escaped", "noName",   "LAST_RUN_TIME = 2024/01",                    "/process/0/2/2024/01/0/"},
	{"blank_inside",         "noName",   "LAST_RUN_TIME = 2024 01",                    "/process/0/2/2024 01/0/"},
	{"longer_than_a_beat",   "noName",   "LAST_RUN_TIME = " + kLongTime,               "/process/0/2/" + kLongTime + "/0/"},
	{"key_of_the_master",    "master1",  "LAST_RUN_TIME = 1\nMASTER_LAST_RUN_TIME = 2", "/process/0/2/2/0/"},
	{"key_of_the_slave",     "master2",  "LAST_RUN_TIME = 1\nSLAVE_LAST_RUN_TIME = 3",  "/process/0/2/3/0/"},
};
// clang-format on

class HeartbeatTime : public SenderTest, public testing::WithParamInterface<TimeRow>
{
};

TEST_P(HeartbeatTime, IsCopiedFromTheRecord)
{
	location = GetParam().label;
	makeSender();
	sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\n" + GetParam().record + "\n");
	untilWait(1);
	EXPECT_EQ(partner->message(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Rows, HeartbeatTime, testing::ValuesIn(kTimeRows), rowName<TimeRow>);

} // namespace
