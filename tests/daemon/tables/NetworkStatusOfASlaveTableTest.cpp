// The network verdict of a node that is not master: it takes over only when
// partner and service are silent while its own network answers. Each probe is
// asked only when the one before it was silent.
#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAreArray;

namespace
{

struct Row
{
	const char* name;
	MODE role;
	int partner;
	int service;
	int gateway;
	int verdict;
	MODE roleAfter;
	events::List steps;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
	*pStream << row.name;
}

class NetworkStatusOfASlave : public ReceiverTest, public testing::WithParamInterface<Row>
{
};

TEST_P(NetworkStatusOfASlave, Decides)
{
	const Row& row = GetParam();
	fakeoutside::pingGives("10.0.0.2", row.partner);
	fakeoutside::pingGives("10.0.1.100", row.service);
	fakeoutside::pingGives("10.0.0.254", row.gateway);
	// The virtual IP, listed, starts without a ping; programs that run stay.
	programRuns(true);
	mode = row.role;
	status() = 0;
	count() = 2;

	EXPECT_EQ(receiver->networkStatus(), row.verdict);

	EXPECT_EQ(mode, row.roleAfter);
	EXPECT_EQ(status(), 0);
	EXPECT_EQ(count(), 2);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_FALSE(running);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::join({"log D CHeartReciver:500 networkStatus : start",
	                                          "log D CHeartReciver:538 networkStatus : SLAVE", row.steps})));
}

events::List partnerAnswers()
{
	return {"log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2", "ping 10.0.0.2 x10",
	        "log D Utill:760 partnerComunicationIPcheck : true"};
}

events::List partnerSilent()
{
	return {"log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2", "ping 10.0.0.2 x10",
	        "log D Utill:768 partnerComunicationIPcheck : false"};
}

events::List serviceAnswers()
{
	return {"log D Utill:797 serviceIPcheck : START", "ping 10.0.1.100 x10",
	        "log D Utill:807 serviceIP[10.0.1.100],serviceIPcheck : true"};
}

events::List serviceSilent()
{
	return {"log D Utill:797 serviceIPcheck : START", "ping 10.0.1.100 x10", "log D Utill:817 serviceIPcheck : false",
	        "log D CHeartReciver:543 networkStatus : SLAVE 1"};
}

events::List gatewayAnswers()
{
	return steps::join({"log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	                    "log D Utill:783 myComunicationIPcheck : TRUE",
	                    "log D CHeartReciver:548 partner comunication IP is not OK",
	                    "log D CHeartReciver:549 slave -> master  process run", steps::runPrograms()});
}

events::List gatewaySilent()
{
	return {"log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	        "log D Utill:791 myComunicationIPcheck : FALSE"};
}

std::vector<Row> rows()
{
	using steps::join;
	// clang-format off
	return {
	    // name                                  own partner service gateway verdict role  steps
	    {"AllAnswer",                             2,   10,     10,     10,      1,     2,  partnerAnswers()},
	    {"GatewaySilent",                         2,   10,     10,      0,      1,     2,  partnerAnswers()},
	    {"ServiceSilent",                         2,   10,      0,     10,      1,     2,  partnerAnswers()},
	    {"OnlyThePartnerAnswers",                 2,   10,      0,      0,      1,     2,  partnerAnswers()},
	    {"PartnerSilent",                         2,    0,     10,     10,      1,     2,  join({partnerSilent(), serviceAnswers()})},
	    {"OnlyTheServiceAnswers",                 2,    0,     10,      0,      1,     2,  join({partnerSilent(), serviceAnswers()})},
	    {"PartnerAndServiceSilentTakesOver",      2,    0,      0,     10,      0,     1,  join({partnerSilent(), serviceSilent(), gatewayAnswers()})},
	    {"AllSilentStaysSlave",                   2,    0,      0,      0,      1,     2,  join({partnerSilent(), serviceSilent(), gatewaySilent()})},
	    {"OneReplyOfThePartnerIsEnough",          2,    1,      0,     10,      1,     2,  partnerAnswers()},
	    {"OneReplyOfTheServiceIsEnough",          2,    0,      1,     10,      1,     2,  join({partnerSilent(), serviceAnswers()})},
	    {"OneReplyOfTheGatewayIsEnough",          2,    0,      0,      1,      0,     1,  join({partnerSilent(), serviceSilent(), gatewayAnswers()})},
	    {"UnsetIsJudgedAsASlave",                 0,   10,      0,      0,      1,     0,  partnerAnswers()},
	    {"UnsetTakesOver",                        0,    0,      0,     10,      0,     1,  join({partnerSilent(), serviceSilent(), gatewayAnswers()})},
	    {"RoleThreeIsJudgedAsASlave",             3,    0,     10,      0,      1,     3,  join({partnerSilent(), serviceAnswers()})},
	    {"RoleThreeTakesOver",                    3,    0,      0,     10,      0,     1,  join({partnerSilent(), serviceSilent(), gatewayAnswers()})},
	    {"NegativeRoleSeeingNothingStays",       -1,    0,      0,      0,      1,    -1,  join({partnerSilent(), serviceSilent(), gatewaySilent()})},
	};
	// clang-format on
}

INSTANTIATE_TEST_SUITE_P(Table, NetworkStatusOfASlave, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });

} // namespace
