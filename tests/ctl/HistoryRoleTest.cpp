// What the history tells of moves that the log tells in part.

#include "HistoryTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

TEST_F(HistoryTest, ASlaveWithoutProgramsGoesBackInSilence)
{
	becomeMaster();
	receiver(324);
	EXPECT_FALSE(snapshot().networkOk->value);
	pass(false);
	EXPECT_THAT(events(), ElementsAre("fault-found both-masters", "role-changed master->slave (both-masters) 1200ms"));
	receiver(278);
	EXPECT_TRUE(snapshot().networkOk->value);
}

TEST_F(HistoryTest, AChangeWhoseMessagesAreMissingIsReportedWithoutACause)
{
	becomeMaster();
	const std::size_t before = snapshot().roleChanges.size();
	pass(false);
	pass(true);
	EXPECT_EQ(snapshot().roleChanges.size(), before + 2);
	EXPECT_THAT(events(), ElementsAre("role-changed master->slave (not-logged) 1100ms",
	                                  "role-changed slave->master (not-logged) 200ms"));
}

} // namespace
