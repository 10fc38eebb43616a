// The virtual IP on a network interface of the sandbox, with the real listing.

#include "VirtualIP.h"

#include "Workers.h"

namespace
{

constexpr char kStart[] = "ip addr add 10.77.0.100/24 dev eth0 label eth0:ha";
constexpr char kStop[] = "ip addr del 10.77.0.100/24 dev eth0 2>/dev/null";
constexpr char kNotListed[] = "log D Utill:680 myVirtualIP not working";
constexpr char kListed[] = "log D Utill:668 myVirtualIP working";

class RealVirtualIP : public WorkerTest
{
protected:
	RealVirtualIP()
	{
		sandbox::addInterface("eth0", true);
		sandbox::shell("ip addr add 10.77.0.1/24 dev eth0");
		configure(kStart);
	}

	~RealVirtualIP() override { sandbox::shell("ip link del eth0"); }

	void configure(const std::string& startCommand)
	{
		settings.set("AGENT.VIRTUAL_IP", "10.77.0.100")
		    .set("AGENT.VIRTUAL_IP_START_COMMAND", startCommand)
		    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", kStop);
	}

	static bool start()
	{
		MODE mode = MODE_MASTER;
		return Utill::startVirtualIP(&mode);
	}

	static std::string ran(const std::string& command, const std::string& output = "")
	{
		return "log I Utill:573 command(" + command + ") : " + output;
	}
};

TEST_F(RealVirtualIP, ASilentCommandWithALabelRaisesTheAddressInOnePass)
{
	EXPECT_TRUE(start());
	EXPECT_THAT(events::all(), ElementsAre(ran(kStop), kNotListed, "sleep 1000", "sleep 1000", "sleep 1000",
	                                       "sleep 1000", "sleep 1000", ran(kStart), "log D Utill:490 set virtual ip...",
	                                       MatchesRegex("log D Utill:496 ping: [1-9]0?")));
	EXPECT_TRUE(isMyVirtualIPWorking());
}

TEST_F(RealVirtualIP, AStandingAddressIsDroppedFirstAndRaisedAnew)
{
	EXPECT_TRUE(start());
	events::clear();
	EXPECT_TRUE(start());
	EXPECT_THAT(events::only({"log I", "log D Utill:6"}), ElementsAre(ran(kStop), kNotListed, ran(kStart)));
	EXPECT_TRUE(Utill::stopVirtualIP());
	EXPECT_FALSE(isMyVirtualIPWorking());
}

TEST_F(RealVirtualIP, AnUnlabelledSecondaryAddressIsNotListed)
{
	sandbox::shell("ip addr add 10.77.0.100/24 dev eth0");
	EXPECT_FALSE(isMyVirtualIPWorking());
	sandbox::shell("ip addr del 10.77.0.100/24 dev eth0");
	sandbox::shell(kStart);
	EXPECT_TRUE(isMyVirtualIPWorking());
	EXPECT_THAT(events::all(), ElementsAre(kNotListed, kListed));
}

TEST_F(RealVirtualIP, TheCarrierOfItsInterfaceIsRead)
{
	auto pReceiver = make<CHeartReciver>();
	EXPECT_EQ(pReceiver->serviceLanCardCheck(), 1);
	EXPECT_EQ(pReceiver->ComunicationLanCardCheck(), 0) << "there is no eth1";
	sandbox::setCarrier("eth0", false);
	EXPECT_EQ(pReceiver->serviceLanCardCheck(), 0);
}

/// Only the words are translated, and the agent looks for the address.
TEST_F(RealVirtualIP, AListingInAnotherLanguageShowsTheAddressAsWell)
{
	sandbox::shell("mkdir -p /usr/velarix/locales && localedef -i de_DE -f UTF-8 /usr/velarix/locales/de_DE.UTF-8");
	::setenv("LOCPATH", "/usr/velarix/locales", 1);
	::setenv("LC_ALL", "de_DE.UTF-8", 1);
	sandbox::shell("ifconfig lo | grep -q 'Lokale Schleife'");
	EXPECT_FALSE(isMyVirtualIPWorking());
	sandbox::shell(kStart);
	EXPECT_TRUE(isMyVirtualIPWorking());
	::unsetenv("LC_ALL");
	::unsetenv("LOCPATH");
}

} // namespace
