// The carrier of real cards, read with the real command.
#include "RealNode.h"
#include "Sandbox.h"

using testing::ElementsAre;

namespace
{

class CardCarrier : public RealNode
{
};

TEST_F(CardCarrier, ACardWithCarrierIsSeen)
{
	EXPECT_EQ(receiver->serviceLanCardCheck(), 1);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 1);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : 1\n\n"));
}

TEST_F(CardCarrier, APulledServiceCableIsSeenOnTheServiceCardAlone)
{
	sandbox::setCarrier("eth0", false);
	EXPECT_EQ(receiver->serviceLanCardCheck(), 0);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 1);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 0\n\n",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : 1\n\n"));
}

TEST_F(CardCarrier, APulledCommunicationCableIsSeenOnTheCommunicationCardAlone)
{
	sandbox::setCarrier("eth1", false);
	EXPECT_EQ(receiver->serviceLanCardCheck(), 1);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : 0\n\n"));
}

TEST_F(CardCarrier, AReplacedCableIsSeen)
{
	sandbox::setCarrier("eth0", false);
	EXPECT_EQ(receiver->serviceLanCardCheck(), 0);
	sandbox::setCarrier("eth0", true);
	EXPECT_EQ(receiver->serviceLanCardCheck(), 1);
}

TEST_F(CardCarrier, ACardThatIsSwitchedOffHasNone)
{
	sandbox::shell("ip link set eth0 down && ip link set eth1 down");
	EXPECT_EQ(receiver->serviceLanCardCheck(), 0);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : ",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : "));
}

TEST_F(CardCarrier, AMissingCardHasNone)
{
	sandbox::shell("ip link del eth0 && ip link del eth1");
	EXPECT_EQ(receiver->serviceLanCardCheck(), 0);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : ",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : "));
}

} // namespace
