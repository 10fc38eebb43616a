#include "VirtualIP.h"
#include "Daemon.h"
#include "FakeOutside.h"
#include "Utill.h"

using testing::ElementsAre;

namespace
{

class VirtualIP : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fakeoutside::reset();
	}
};

TEST_F(VirtualIP, AnAddressAlreadyListedNeedsNoStartCommand)
{
	fakeoutside::commandPrints("ifconfig", "eth0:ha: flags\n  inet 10.0.1.100  netmask\n");
	MODE mode = MODE_SLAVE;
	EXPECT_TRUE(Utill::startVirtualIP(&mode));
	EXPECT_THAT(events::all(), ElementsAre("command vip-stop", "log I Utill:573 command(vip-stop) : ",
	                                       "command ifconfig", "log D Utill:668 myVirtualIP working"));
}

TEST_F(VirtualIP, AMissingStopCommandEndsTheDaemon)
{
	settings.remove("AGENT.VIRTUAL_IP_STOP_COMMAND");
	apply();
	EXPECT_FATAL(Utill::stopVirtualIP(), "0", "Configuraion", 66,
	             "std::string Configuraion::getString(const std::string&)");
}

} // namespace
