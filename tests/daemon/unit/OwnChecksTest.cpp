// The receiver's smaller checks: the carrier of the two interfaces and the gateway.

#include <Poco/Net/NetException.h>

#include "ReceiverTest.h"

namespace
{

using OwnChecks = ReceiverTest;

TEST_F(OwnChecks, AOneAnywhereInTheCarrierFilesTextIsACarrier)
{
	for (const auto& [printed, carrier] : std::map<std::string, int>{
	         {"1\n", 1}, {"1", 1}, {"0\n", 0}, {"", 0}, {"cat: error 13\n", 1}, {"0\n1\n", 1}, {"velarixErr\n", 0}})
	{
		events::clear();
		fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", printed);
		EXPECT_EQ(receiver->serviceLanCardCheck(), carrier) << printed;
		fakeoutside::commandPrints("cat /sys/class/net/eth1/carrier", printed);
		EXPECT_EQ(receiver->ComunicationLanCardCheck(), carrier) << printed;
		EXPECT_THAT(events::without({"log "}),
		            ElementsAre("command cat /sys/class/net/eth0/carrier", "command cat /sys/class/net/eth1/carrier"));
	}
}

TEST_F(OwnChecks, OneReplyOfTheGatewayOfTenIsEnoughAndAnErrorIsLoggedWithItsCode)
{
	fakeoutside::pingGivesInTurn("10.0.0.254", {1, 0});
	EXPECT_TRUE(receiver->isMyNetworkOK());
	EXPECT_FALSE(receiver->isMyNetworkOK());
	fakeoutside::pingThrows("10.0.0.254", [] { throw Poco::Net::HostNotFoundException("gateway", 42); });
	EXPECT_FALSE(receiver->isMyNetworkOK());
	EXPECT_THAT(events::all(),
	            ElementsAre("ping 10.0.0.254 x10", "ping 10.0.0.254 x10", "ping 10.0.0.254 x10",
	                        "log E CHeartReciver:590 my network has some problems: Host not found: gateway[CODE:42]"));
}

} // namespace
