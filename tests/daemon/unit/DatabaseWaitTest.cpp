// The wait for a database whose check fails.

#include "Database.h"

#include "Daemon.h"
#include "FakeDatabaseCheck.h"

using testing::ElementsAre;

namespace
{

class DatabaseWait : public DaemonTest
{
};

TEST_F(DatabaseWait, ADatabaseThatComesUpAfterTwoChecksIsWorking)
{
	fakedatabase::failTimes(2);
	testing::internal::CaptureStdout();
	EXPECT_TRUE(isDBOn(nullptr));
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "waiting database...: 1\n"
	                                                  "waiting database...: 2\n"
	                                                  "**DEBUG**(Utill:728)DB is working\n");
	EXPECT_THAT(events::all(), ElementsAre("database check", "sleep 1000", "database check", "sleep 1000",
	                                       "database check", "log D Utill:728 DB is working"));
}

TEST_F(DatabaseWait, AHundredFailedChecksEndTheWait)
{
	fakedatabase::failTimes(100);
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

TEST_F(DatabaseWait, TheCheckIsGivenTheRole)
{
	fakedatabase::failTimes(0);
	MODE mode = MODE_MASTER;
	EXPECT_TRUE(isDBOn(&mode));
	EXPECT_EQ(fakedatabase::lastMode(), &mode);
}

} // namespace
