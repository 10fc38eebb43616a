/// One short run of keepalived and of ucarp. Built where both are installed.

#include <gtest/gtest.h>

#include "evidence/peers/Run.h"
#include "lab/core/Programs.h"

namespace velarix::evidence::peers
{

class PeerOnLab : public testing::TestWithParam<Settings>
{
};

TEST_P(PeerOnLab, TakesOverFromALostHost)
{
	if (const std::optional<std::string> problem = namespaceProblem())
	{
		GTEST_SKIP() << *problem;
	}
	const RunPlan plan{peerCells({"power-off/a/master"}).front(), GetParam()};
	const RunRecord record = runCell(plan);
	ASSERT_TRUE(record.differences.empty()) << record.differences.front() << record.timeline;
	ASSERT_EQ(record.phases.size(), 2U);
	EXPECT_EQ(record.phases[0].owner, "b") << record.timeline;
	EXPECT_EQ(record.phases[0].answer, "b");
	EXPECT_EQ(record.phases[0].programs, "b");
	EXPECT_EQ(record.phases[0].moves, 1);
	EXPECT_LT(record.phases[0].noOwner, Millis(10000));
	EXPECT_GE(record.phases[0].noOwner, plan.settings.times.silence(plan.settings.program) / 2);
	EXPECT_EQ(record.phases[1].owner, "b") << "it does not go back";
	EXPECT_EQ(record.phases[1].programs, "a+b");
}

INSTANTIATE_TEST_SUITE_P(Peers, PeerOnLab, testing::ValuesIn(allPeers()),
                         [](const auto& peer)
                         { return std::string(nameOf(peer.param.program)) + "_" + peer.param.name; });

} // namespace velarix::evidence::peers
