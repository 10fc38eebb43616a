// The wait for a database whose check fails.

#include "Database.h"

#include "Daemon.h"

namespace
{

int g_failures = 0; ///< of the next checks
MODE* g_pLastMode = nullptr;

} // namespace

// In place of src/net/DatabaseCheck.cpp.
bool DBFileCheck(MODE* pMode)
{
	events::add("database check");
	g_pLastMode = pMode;
	return g_failures-- <= 0;
}

namespace
{

class DatabaseWait : public DaemonTest
{
};

TEST_F(DatabaseWait, ADatabaseThatComesUpAfterTwoChecksIsWorking)
{
	g_failures = 2;
	MODE mode = MODE_MASTER;
	testing::internal::CaptureStdout();
	EXPECT_TRUE(isDBOn(&mode));
	EXPECT_EQ(g_pLastMode, &mode);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "waiting database...: 1\n"
	                                                  "waiting database...: 2\n"
	                                                  "**DEBUG**(Utill:728)DB is working\n");
	EXPECT_THAT(events::all(), ElementsAre("database check", "sleep 1000", "database check", "sleep 1000",
	                                       "database check", "log D Utill:728 DB is working"));
}

TEST_F(DatabaseWait, AHundredFailedChecksEndTheWait)
{
	g_failures = 100;
	std::string console;
	for (int i = 1; i <= 100; ++i)
	{
		console += "waiting database...: " + std::to_string(i) + "\n";
	}
	testing::internal::CaptureStdout();
	EXPECT_FALSE(isDBOn(nullptr));
	EXPECT_EQ(testing::internal::GetCapturedStdout(), console + "**DEBUG**(Utill:739)DB is not working\n");
	EXPECT_EQ(events::only({"database check"}).size(), 100U);
	EXPECT_EQ(events::only({"sleep 1000"}).size(), 100U);
	EXPECT_THAT(events::only({"log "}), ElementsAre("log D Utill:739 DB is not working"));
	EXPECT_EQ(events::all().size(), 201U);
}

} // namespace
