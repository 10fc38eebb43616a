// The database probe as it is shipped: the check always succeeds.

#include "Database.h"

#include "Daemon.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class Database : public DaemonTest
{
};

TEST_F(Database, TheCheckSucceedsWithoutLookingAtAnything)
{
	MODE mode = MODE_SLAVE;
	EXPECT_TRUE(DBFileCheck(&mode));
	EXPECT_TRUE(DBFileCheck(nullptr));
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(Database, TheProbeIsTrueAtOnce)
{
	MODE mode = MODE_MASTER;
	testing::internal::CaptureStdout();
	EXPECT_TRUE(isDBOn(&mode));
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "**DEBUG**(Utill:728)DB is working\n");
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:728 DB is working"));
}

} // namespace
