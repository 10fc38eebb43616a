/// An administrator works on a real pair, and nothing fails over.

#include "OperatorTest.h"

namespace velarix::lab
{

class OperatorMaintenance : public OperatorTest, public testing::WithParamInterface<Profile>
{
protected:
	void maintenance(HostId node, const std::string& word)
	{
		const CommandResult result = ctl(node, {"maintenance", word});
		ASSERT_EQ(result.status, 0) << result.output;
	}
};

TEST_P(OperatorMaintenance, AServiceMayBeStoppedAndStarted)
{
	PairSettings settings;
	settings.profile = GetParam();
	const LabOptions options({}, settings);
	PAIR_OR_RETURN(startReadyPair(options));
	maintenance(HostId::b, "on");
	maintenance(HostId::a, "on");
	EXPECT_EQ(status(HostId::a)["problems"][0]["id"], "maintenance");
	const Millis begin = lab().clock().now();

	lab().run(HostId::a, {"pkill", "-9", "-x", "labhttpd"});
	ASSERT_TRUE(waitFor([&] { return lab().answeredBy() == "none"; }, moveLimit, "the service to be gone"));
	// Longer than the pair would need to notice it and to move the service.
	const auto moved = [&] { return lab().answeredBy() != "none" || lab().owners() != "a"; };
	EXPECT_FALSE(waitFor(moved, Millis(15000), "nothing"));

	if (GetParam() == Profile::plain)
	{
		EXPECT_EQ(ctl(HostId::a, {"maintenance", "off"}).status, 69) << "the agent would give the service up";
		lab().run(HostId::a, {"sh", "-c", std::string("setsid ") + plan::serviceProgram + " >/dev/null 2>&1 &"});
	}
	maintenance(HostId::a, "off");
	maintenance(HostId::b, "off");
	ASSERT_TRUE(waitUntilReady());
	EXPECT_TRUE(lab().waitForService(HostId::a, moveLimit));
	for (const char* owners : {"none", "b", "a+b"})
	{
		EXPECT_EQ(heldBy(owners, begin), Millis(0)) << owners;
	}
}

INSTANTIATE_TEST_SUITE_P(Settings, OperatorMaintenance, testing::Values(Profile::plain, Profile::keeper),
                         [](const auto& row) { return nameOf(row.param); });

} // namespace velarix::lab
