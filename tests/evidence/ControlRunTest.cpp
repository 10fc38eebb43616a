/// One short run of keepalived and of ucarp. Built where both are installed.

#include <gtest/gtest.h>

#include "evidence/peers/ControlRun.h"
#include "lab/core/Programs.h"

namespace velarix::lab
{

class ControlOnLab : public testing::TestWithParam<ControlSettings>
{
};

TEST_P(ControlOnLab, TakesOverFromALostHost)
{
	if (const std::optional<std::string> problem = namespaceProblem())
	{
		GTEST_SKIP() << *problem;
	}
	const ControlPlan plan{controlCells({"power-off/a/master"}).front(), GetParam()};
	const RunRecord record = runControlCell(plan);
	ASSERT_TRUE(record.differences.empty()) << record.differences.front() << record.timeline;
	ASSERT_EQ(record.legs.size(), 2U);
	EXPECT_EQ(record.legs[0].owner, "b") << record.timeline;
	EXPECT_EQ(record.legs[0].answer, "b");
	EXPECT_EQ(record.legs[0].programs, "b");
	EXPECT_EQ(record.legs[0].moves, 1);
	EXPECT_LT(record.legs[0].noOwner, Millis(10000));
	EXPECT_GE(record.legs[0].noOwner, plan.settings.times.silence(plan.settings.program) / 2);
	EXPECT_EQ(record.legs[1].owner, "b") << "it does not go back";
	EXPECT_EQ(record.legs[1].programs, "a+b");
}

INSTANTIATE_TEST_SUITE_P(Controls, ControlOnLab, testing::ValuesIn(allControls()),
                         [](const auto& control)
                         { return std::string(nameOf(control.param.program)) + "_" + control.param.name; });

} // namespace velarix::lab
