// The receiver's smaller checks: the managed programs, the carrier of the two
// interfaces and the gateway.

#include <Poco/Net/NetException.h>

#include "ReceiverTest.h"

namespace
{

class ProcessStatus : public ReceiverTest
{
};

TEST_F(ProcessStatus, IsThatOfAMastersProgramsAlone)
{
	struct Row
	{
		MODE role;
		bool program;
		int status;
		events::List lines;
	};
	const char* const start = "log D CHeartReciver:561 processStatus : start";
	const Row rows[] = {{1, true, 1, {start, "log D CHeartReciver:564 processStatus : OK"}},
	                    {1, false, 0, {start, "log D CHeartReciver:567 processStatus : ERROR"}},
	                    {2, false, 1, {}},
	                    {0, false, 1, {}},
	                    {3, false, 1, {}},
	                    {-1, false, 1, {}}};
	running = true; // the shared flag is not consulted
	for (const Row& row : rows)
	{
		SCOPED_TRACE(row.role);
		events::clear();
		mode = row.role;
		programRuns(row.program);
		EXPECT_EQ(receiver->processStatus(), row.status);
		EXPECT_EQ(events::all(), row.lines);
		EXPECT_EQ(mode, row.role);
	}
	EXPECT_EQ(status(), 1);
	EXPECT_EQ(count(), 0);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_TRUE(running);
}

struct CardOutput
{
	const char* name;
	std::string printed;
	int carrier;
	std::string logged;
};

class CardCheck : public ReceiverTest, public testing::WithParamInterface<CardOutput>
{
};

TEST_P(CardCheck, TheServiceCardIsEth0)
{
	const CardOutput& output = GetParam();
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", output.printed);
	EXPECT_EQ(receiver->serviceLanCardCheck(), output.carrier);
	EXPECT_THAT(events::all(),
	            ElementsAre("command cat /sys/class/net/eth0/carrier",
	                        "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : " + output.logged));
}

TEST_P(CardCheck, TheCommunicationCardIsEth1)
{
	const CardOutput& output = GetParam();
	fakeoutside::commandPrints("cat /sys/class/net/eth1/carrier", output.printed);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), output.carrier);
	EXPECT_THAT(events::all(),
	            ElementsAre("command cat /sys/class/net/eth1/carrier",
	                        "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : " + output.logged));
}

INSTANTIATE_TEST_SUITE_P(
    Output, CardCheck,
    testing::Values(CardOutput{"OneAndALineFeedIsCarrier", "1\n", 1, "1\n\n"},
                    CardOutput{"OneAloneIsCarrier", "1", 1, "1\n"},
                    CardOutput{"ZeroAndALineFeedIsNone", "0\n", 0, "0\n\n"}, CardOutput{"NothingIsNone", "", 0, ""},
                    CardOutput{"ALineFeedIsNone", "\n", 0, "\n\n"},
                    CardOutput{"ATextWithoutAOneIsNone", "cat: No such file\n", 0, "cat: No such file\n\n"},
                    CardOutput{"ATextWithAOneIsCarrier", "cat: error 13\n", 1, "cat: error 13\n\n"},
                    CardOutput{"AOneOnTheSecondLineIsCarrier", "0\n1\n", 1, "0\n\n1\n\n"},
                    CardOutput{"TheRunnersErrorTextIsNone", "velarixErr\n", 0, "velarixErr\n\n"}),
    [](const testing::TestParamInfo<CardOutput>& output) { return output.param.name; });

class MyNetwork : public ReceiverTest
{
};

TEST_F(MyNetwork, OneReplyOfTenIsEnough)
{
	fakeoutside::pingGivesInTurn("10.0.0.254", {1, 0});
	EXPECT_TRUE(receiver->isMyNetworkOK());
	EXPECT_FALSE(receiver->isMyNetworkOK());
	EXPECT_THAT(events::all(), ElementsAre("ping 10.0.0.254 x10", "ping 10.0.0.254 x10"));
}

TEST_F(MyNetwork, AnErrorOfThePingIsLoggedWithItsCode)
{
	fakeoutside::pingThrows("10.0.0.254", [] { throw Poco::Net::HostNotFoundException("gateway", 42); });
	EXPECT_FALSE(receiver->isMyNetworkOK());
	EXPECT_THAT(events::all(),
	            ElementsAre("ping 10.0.0.254 x10",
	                        "log E CHeartReciver:590 my network has some problems: Host not found: gateway[CODE:42]"));
}

TEST_F(MyNetwork, AnErrorOutsideTheLibraryIsPassedOn)
{
	fakeoutside::pingThrows("10.0.0.254", [] { throw std::runtime_error("broken"); });
	EXPECT_THROW(receiver->isMyNetworkOK(), std::runtime_error);
	EXPECT_THAT(events::all(), ElementsAre("ping 10.0.0.254 x10"));
}

} // namespace
