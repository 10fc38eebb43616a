// The carrier of real interfaces, read with the real command.
#include <cstdlib>

#include "RealNode.h"
#include "Sandbox.h"
#include "velarix/shared_value.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

class InterfaceCarrier : public RealNode
{
};

/// While it lives the commands find ip and no other tool.
class OnlyIp
{
public:
	OnlyIp()
	{
		sandbox::shell("mkdir -p /usr/velarix/tools && ln -sf $(command -v ip) /usr/velarix/tools/ip");
		::setenv("PATH", "/usr/velarix/tools", 1);
		testing::internal::CaptureStderr();
	}
	~OnlyIp()
	{
		EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cat: not found"));
		::setenv("PATH", m_path.c_str(), 1);
	}
	OnlyIp(const OnlyIp&) = delete;
	OnlyIp& operator=(const OnlyIp&) = delete;

private:
	std::string m_path = std::getenv("PATH");
};

TEST_F(InterfaceCarrier, APulledCommunicationCableIsSeenOnTheCommunicationCardAlone)
{
	sandbox::setCarrier("eth1", false);
	EXPECT_EQ(receiver->serviceLanCardCheck(), 1);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : 0\n\n"));
}

TEST_F(InterfaceCarrier, AMissingCardHasNone)
{
	sandbox::shell("ip link del eth0 && ip link del eth1");
	EXPECT_EQ(receiver->serviceLanCardCheck(), 0);
	EXPECT_EQ(receiver->ComunicationLanCardCheck(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log I Utill:573 command(cat /sys/class/net/eth0/carrier) : ",
	                                       "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : "));
}

TEST_F(InterfaceCarrier, WithoutTheToolThatReadsThemAMasterGivesUp)
{
	addHost(kGateway);
	raiseServiceAddress();
	{
		const OnlyIp tools;
		EXPECT_EQ(receiver->networkStatus(), 0);
	}
	EXPECT_THAT(events::all(), Contains("log D CHeartReciver:524 my service LanCard is not OK (3)"));
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(noted(), "killed dbServer\n");
	EXPECT_FALSE(holdsServiceAddress());
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
}

} // namespace
