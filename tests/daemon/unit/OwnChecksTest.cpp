// The receiver's smaller checks: the managed programs, the carrier of the two
// interfaces and the gateway.
#include <stdexcept>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class ProcessStatus : public ReceiverTest
{
protected:
	void expectUntouched(MODE role)
	{
		EXPECT_EQ(mode, role);
		EXPECT_EQ(status(), 1);
		EXPECT_EQ(count(), 0);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
		EXPECT_FALSE(running);
	}
};

TEST_F(ProcessStatus, AMasterWithItsProgramsIsOK)
{
	mode = 1;
	programRuns(true);
	EXPECT_EQ(receiver->processStatus(), 1);
	EXPECT_THAT(events::all(), ElementsAre("log D CHeartReciver:561 processStatus : start",
	                                       "log D CHeartReciver:564 processStatus : OK"));
	expectUntouched(1);
}

TEST_F(ProcessStatus, AMasterWithoutItsProgramsIsNotOK)
{
	mode = 1;
	EXPECT_EQ(receiver->processStatus(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log D CHeartReciver:561 processStatus : start",
	                                       "log D CHeartReciver:567 processStatus : ERROR"));
	expectUntouched(1);
}

TEST_F(ProcessStatus, TheSharedRunningFlagIsNotConsulted)
{
	mode = 1;
	running = true;
	EXPECT_EQ(receiver->processStatus(), 0);
	EXPECT_TRUE(running);
}

TEST_F(ProcessStatus, ASlaveIsOKWithoutAWord)
{
	EXPECT_EQ(receiver->processStatus(), 1);
	EXPECT_THAT(events::all(), IsEmpty());
	expectUntouched(2);
}

TEST_F(ProcessStatus, EveryOtherRoleIsOKWithoutAWord)
{
	for (const MODE role : {0, 3, -1})
	{
		mode = role;
		EXPECT_EQ(receiver->processStatus(), 1);
		EXPECT_THAT(events::all(), IsEmpty());
		expectUntouched(role);
	}
}

struct CardOutput
{
	const char* name;
	std::string printed;
	int carrier;
	std::string logged;
};

void PrintTo(const CardOutput& output, std::ostream* pStream)
{
	*pStream << output.name;
}

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
	fakeoutside::pingGives("10.0.0.254", 1);
	EXPECT_TRUE(receiver->isMyNetworkOK());
	EXPECT_THAT(events::all(), ElementsAre("ping 10.0.0.254 x10"));
}

TEST_F(MyNetwork, ASilentGatewayIsNotOK)
{
	fakeoutside::pingGives("10.0.0.254", 0);
	EXPECT_FALSE(receiver->isMyNetworkOK());
	EXPECT_THAT(events::all(), ElementsAre("ping 10.0.0.254 x10"));
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
