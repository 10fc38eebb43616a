// The history of real logs: what two agents wrote in the lab while hosts, interfaces,
// programs and agents failed (logs/README.md).

#include "CtlTest.h"

namespace
{

class EventsOfARealLog : public CtlTest, public testing::WithParamInterface<const char*>
{
protected:
	const LocalZone zone{"UTC0"};

	static std::string log() { return std::string(VELARIX_CTL_LOGS) + "/" + GetParam() + ".log"; }
};

TEST_P(EventsOfARealLog, AreThoseOfItsGoldenFile)
{
	const Outcome outcome = run({"events", "--log", log()});
	expectGolden(std::string("events/") + GetParam() + ".txt", outcome.out);
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.err, "");
}

INSTANTIATE_TEST_SUITE_P(Log, EventsOfARealLog,
                         testing::Values("host-loss-a", "host-loss-b", "program-loss-a", "program-loss-b",
                                         "service-interface-a", "service-interface-b", "communication-interface-a",
                                         "communication-interface-b", "both-masters-a", "both-masters-b",
                                         "agent-killed-a", "agent-killed-b", "agent-frozen-a",
                                         "printing-start-command-a"),
                         [](const auto& row)
                         {
	                         std::string name = row.param;
	                         std::replace(name.begin(), name.end(), '-', '_');
	                         return name;
                         });

} // namespace
