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

TEST_F(HistoryTest, APlannedMoveIsNoFaultAndNoFlapping)
{
	becomeMaster();
	moved = now;
	checked('M', 0);
	receiver(567);
	receiver(106);
	EXPECT_THAT(events(), ElementsAre("programs-stopped (switchover) 100ms",
	                                  "role-changed master->slave (switchover) 1200ms", "ask-made (switchover)"));
	EXPECT_FALSE(snapshot().fault(Fault::programs).there);
	// The partner's move back, and once more there.
	receiver(414);
	takeService();
	moved = now;
	receiver(106);
	EXPECT_THAT(snapshot().roleChanges, SizeIs(1)) << "the first take-over";
}

TEST_F(HistoryTest, OnThePartnerAMoveThereAndBackIsNoFlapping)
{
	becomeStandby();
	receiver(414);
	takeService();
	EXPECT_THAT(snapshot().roleChanges, SizeIs(1));
	moved = now;
	receiver(106);
	EXPECT_THAT(snapshot().roleChanges, IsEmpty());
}

// The move before has made this node standby: it tells nothing of what happens as master since.
TEST_F(HistoryTest, AFailureAfterAMoveIsAFailure)
{
	moved = now;
	becomeMaster();
	receiver(567);
	receiver(106);
	EXPECT_THAT(events(), Contains(HasSubstr("master->slave (programs-gone)")));
	moved = now;
	receiver(414);
	takeService();
	now += 6min;
	moved = now - 6min + 1s;
	receiver(106);
	EXPECT_THAT(events(), Contains(HasSubstr("master->slave (programs-gone)")));
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
