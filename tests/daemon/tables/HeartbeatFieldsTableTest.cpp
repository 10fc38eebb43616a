// What a heartbeat says, for every combination of the shared values, and how the
// start time is copied into it. The rows are bytes on the wire.

#include "Loops.h"

namespace
{

TEST_F(SenderTest, EveryCombinationOfTheSharedValuesIsSentAsItsFields)
{
	const std::map<bool, std::string> runnings{{false, "0"}, {true, "1"}};
	const std::map<MODE, std::string> roles{{1, "1"}, {2, "2"}, {0, "2"}, {3, "2"}, {-1, "2"}};
	const std::map<std::int32_t, std::string> asks{{0, "0"}, {1, "1"}, {2, "0"}, {-1, "0"}};
	// A thread that starts with the role 0 ends at once, so the values come with the waits.
	int waits = 0;
	events::List expected{beats::kBeat};
	for (const auto& [isRunning, runningField] : runnings)
	{
		for (const auto& [role, roleField] : roles)
		{
			for (const auto& [ask, askField] : asks)
			{
				atWait(++waits,
				       [this, isRunning, role, ask]
				       {
					       velarix::storeShared(running, isRunning);
					       velarix::storeShared(mode, role);
					       velarix::storeShared(g_specialAsking, ask);
				       });
				expected.push_back("/process/" + runningField + "/" + roleField + "/20240131235959/" + askField + "/");
			}
		}
	}
	untilWait(waits + 1);
	EXPECT_EQ(waits, 40);
	const std::string sent = "log D CHeartSender:124 beat sent[noName]:";
	const events::List logged = events::only({sent});
	ASSERT_EQ(logged.size(), expected.size());
	for (std::size_t i = 0; i < expected.size(); ++i)
	{
		EXPECT_EQ(logged[i], sent + expected[i]);
		EXPECT_EQ(partner->message(), expected[i]);
	}
}

struct TimeRow
{
	std::string record;
	std::string message;
};

const std::string kLongTime(2000, '7');

// clang-format off
const TimeRow kTimeRows[] = {
	// record                              message
	{"LAST_RUN_TIME = 20240131235959",   "/process/0/2/20240131235959/0/"},
	{"LAST_RUN_TIME = ",                 "/process/0/2//0/"},
	{"LAST_RUN_TIME=",                   "/process/0/2//0/"},
	{"LAST_RUN_TIME = never",            "/process/0/2/never/0/"},
	{"LAST_RUN_TIME = 2024/01",          "/process/0/2/2024/01/0/"},
	{"LAST_RUN_TIME = 2024 01",          "/process/0/2/2024 01/0/"},
	{"LAST_RUN_TIME = " + kLongTime,     "/process/0/2/" + kLongTime + "/0/"},
};
// clang-format on

TEST_F(SenderTest, TheStartTimeIsCopiedFromTheRecord)
{
	for (const TimeRow& row : kTimeRows)
	{
		sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\n" + row.record + "\n");
		untilWait(1);
		EXPECT_EQ(partner->message(), row.message);
	}
}

} // namespace
