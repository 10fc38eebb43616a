// The probes with real ICMP, inside the network of the sandbox.

#include "Probes.h"

#include "Daemon.h"
#include "PlainUser.h"

namespace
{

class RealPing : public DaemonTest
{
protected:
	RealPing()
	{
		sandbox::addInterface("eth1", true);
		sandbox::shell("ip addr add 10.88.0.1/24 dev eth1");
	}

	~RealPing() override { sandbox::shell("ip link del eth1"); }

	void configure(const std::string& address)
	{
		settings.set("AGENT.PARTNER_IP", address).set("AGENT.GATEWAY_IP", address).set("AGENT.VIRTUAL_IP", address);
	}
};

TEST_F(RealPing, AnAddressOfThisServerAnswersEveryProbe)
{
	configure("127.0.0.1");
	EXPECT_TRUE(partnerComunicationIPcheck());
	EXPECT_TRUE(myComunicationIPcheck());
	EXPECT_TRUE(serviceIPcheck());
	EXPECT_TRUE(Utill::waitngForVirtualIPSet());
	EXPECT_THAT(events::all(),
	            ElementsAre("log D Utill:756 partnerComunicationIPcheck : partnerIP: 127.0.0.1",
	                        "log D Utill:760 partnerComunicationIPcheck : true",
	                        "log D Utill:774 myComunicationIPcheck : START",
	                        "log D Utill:783 myComunicationIPcheck : TRUE", "log D Utill:797 serviceIPcheck : START",
	                        "log D Utill:807 serviceIP[127.0.0.1],serviceIPcheck : true",
	                        "log D Utill:490 set virtual ip...", "log D Utill:496 ping: 10"));
}

TEST_F(RealPing, AnAddressThatNobodyHoldsIsSilentAndNoError)
{
	configure("10.88.0.2");
	EXPECT_FALSE(partnerComunicationIPcheck());
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.88.0.2",
	                                       "log D Utill:768 partnerComunicationIPcheck : false"));
}

TEST_F(RealPing, AnAddressThatCannotBeResolvedIsAnError)
{
	configure("no host");
	EXPECT_FALSE(partnerComunicationIPcheck());
	EXPECT_FALSE(myComunicationIPcheck());
	EXPECT_FALSE(serviceIPcheck());
	EXPECT_FALSE(Utill::waitngForVirtualIPSet());
	EXPECT_THAT(events::all(),
	            ElementsAre("log D Utill:756 partnerComunicationIPcheck : partnerIP: no host",
	                        "log E Utill:766 partner Comunication IP Check Failed: Host not found: no host[CODE:0]",
	                        "log D Utill:768 partnerComunicationIPcheck : false",
	                        "log D Utill:774 myComunicationIPcheck : START",
	                        "log E Utill:789 My Comunication IP Check Failed: Host not found: no host[CODE:0]",
	                        "log D Utill:791 myComunicationIPcheck : FALSE", "log D Utill:797 serviceIPcheck : START",
	                        "log E Utill:814 service IP Check Failed: Host not found: no host[CODE:0]",
	                        "log D Utill:817 serviceIPcheck : false", "log D Utill:490 set virtual ip...",
	                        "log E Utill:504 set virtual ip failed: Host not found: no host"));
}

TEST_F(RealPing, WithoutThePrivilegeForRawSocketsAPingIsAnError)
{
	configure("127.0.0.1");
	const PlainUser withoutRawSockets(1U << CAP_NET_RAW);
	EXPECT_FALSE(serviceIPcheck());
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:797 serviceIPcheck : START",
	                                       "log E Utill:814 service IP Check Failed: I/O error: 1[CODE:1]",
	                                       "log D Utill:817 serviceIPcheck : false"));
}

} // namespace
