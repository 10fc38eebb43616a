#include "VirtualIP.h"

#include "Daemon.h"

namespace
{

constexpr char kListing[] = "eth0:ha: flags=4163<UP,BROADCAST,RUNNING,MULTICAST>  mtu 1500\n"
                            "        inet 10.0.1.100  netmask 255.255.255.0  broadcast 10.0.1.255\n";
constexpr char kListingWithout[] = "lo: flags=73<UP,LOOPBACK,RUNNING>  mtu 65536\n"
                                   "        inet 127.0.0.1  netmask 255.0.0.0\n";

class VirtualIP : public DaemonTest
{
protected:
	bool start() { return Utill::startVirtualIP(&m_mode); }

private:
	MODE m_mode = MODE_SLAVE;
};

TEST_F(VirtualIP, StopIsTrueWhateverTheCommandPrints)
{
	fakeoutside::commandPrints("vip-stop", "RTNETLINK answers: Cannot assign requested address\n");
	EXPECT_TRUE(Utill::stopVirtualIP());
	EXPECT_THAT(events::all(),
	            ElementsAre("command vip-stop", "log I Utill:573 command(vip-stop) : RTNETLINK answers: Cannot assign "
	                                            "requested address\n\n"));
}

TEST_F(VirtualIP, StopIsFalseWhenTheCommandCannotBeStarted)
{
	fakeoutside::commandFails("vip-stop");
	EXPECT_FALSE(Utill::stopVirtualIP());
	EXPECT_THAT(
	    events::all(),
	    ElementsAre("command vip-stop", "log E Utill:550 shell command run error(fp is NULL): vip-stop", "sleep 1000"));
}

TEST_F(VirtualIP, EachNumberOfTheCountdownIsShownBeforeItsSecond)
{
	std::string shown;
	testing::internal::CaptureStdout();
	events::onSleep(
	    [&shown](long)
	    {
		    shown += testing::internal::GetCapturedStdout() + "|";
		    testing::internal::CaptureStdout();
	    });
	EXPECT_TRUE(start());
	testing::internal::GetCapturedStdout();
	EXPECT_EQ(shown, "**DEBUG**(Utill:680)myVirtualIP not working\n"
	                 "virtual ip starting..: 4\n|"
	                 "virtual ip starting..: 3\n|"
	                 "virtual ip starting..: 2\n|"
	                 "virtual ip starting..: 1\n|"
	                 "virtual ip starting..: 0\n|");
}

TEST_F(VirtualIP, AStartCommandThatCannotBeRunIsRepeatedAfterAnotherCountdown)
{
	fakeoutside::commandFails("vip-start");
	fakeoutside::onAction(
	    [](const std::string& event)
	    {
		    if (event == "command vip-start" && events::only({event}).size() == 2)
		    {
			    fakeoutside::commandPrints("vip-start", "");
		    }
	    });
	EXPECT_TRUE(start());
	EXPECT_THAT(events::all(),
	            ElementsAre("command vip-stop", "log I Utill:573 command(vip-stop) : ", "command ifconfig",
	                        "log D Utill:680 myVirtualIP not working", "sleep 1000", "sleep 1000", "sleep 1000",
	                        "sleep 1000", "sleep 1000", "command vip-start",
	                        "log E Utill:550 shell command run error(fp is NULL): vip-start", "sleep 1000",
	                        "log E Utill:432 can't start virtual ip: velarixErr", "sleep 500", "command ifconfig",
	                        "log D Utill:680 myVirtualIP not working", "sleep 1000", "sleep 1000", "sleep 1000",
	                        "sleep 1000", "sleep 1000", "command vip-start", "log I Utill:573 command(vip-start) : ",
	                        "log D Utill:490 set virtual ip...", "ping 10.0.1.100 x10", "log D Utill:496 ping: 10"));
}

TEST_F(VirtualIP, APingErrorAfterASilentStartCommandIsLoggedWithTheEmptyOutput)
{
	fakeoutside::pingThrows("10.0.1.100", [] { throw Poco::IOException("no raw socket"); });
	fakeoutside::commandPrintsInTurn("ifconfig", {kListingWithout, kListing});
	EXPECT_TRUE(start());
	EXPECT_THAT(events::all(),
	            ElementsAre("command vip-stop", "log I Utill:573 command(vip-stop) : ", "command ifconfig",
	                        "log D Utill:680 myVirtualIP not working", "sleep 1000", "sleep 1000", "sleep 1000",
	                        "sleep 1000", "sleep 1000", "command vip-start",
	                        "log I Utill:573 command(vip-start) : ", "log D Utill:490 set virtual ip...",
	                        "ping 10.0.1.100 x10", "log E Utill:504 set virtual ip failed: I/O error: no raw socket",
	                        "log E Utill:432 can't start virtual ip: ", "sleep 500", "command ifconfig",
	                        "log D Utill:668 myVirtualIP working"));
}

TEST_F(VirtualIP, AListingThatCannotBeMadeCountsAsAnAbsentAddress)
{
	fakeoutside::commandFails("ifconfig");
	EXPECT_TRUE(start());
	EXPECT_THAT(events::all(),
	            ElementsAre("command vip-stop", "log I Utill:573 command(vip-stop) : ", "command ifconfig",
	                        "log E Utill:652 popen error", "sleep 1000", "sleep 1000", "sleep 1000", "sleep 1000",
	                        "sleep 1000", "command vip-start", "log I Utill:573 command(vip-start) : ",
	                        "log D Utill:490 set virtual ip...", "ping 10.0.1.100 x10", "log D Utill:496 ping: 10"));
}

TEST_F(VirtualIP, ASilentAddressIsPingedEachSecondUntilItAnswers)
{
	fakeoutside::pingGivesInTurn("10.0.1.100", {0, 0, 1});
	EXPECT_TRUE(Utill::waitngForVirtualIPSet());
	EXPECT_THAT(events::all(),
	            ElementsAre("log D Utill:490 set virtual ip...", "ping 10.0.1.100 x10", "log D Utill:496 ping: 0",
	                        "sleep 1000", "ping 10.0.1.100 x10", "log D Utill:496 ping: 0", "sleep 1000",
	                        "ping 10.0.1.100 x10", "log D Utill:496 ping: 1"));
}

TEST_F(VirtualIP, APingErrorEndsTheWait)
{
	fakeoutside::pingThrows("10.0.1.100", [] { throw Poco::NotFoundException("no such host", 7); });
	EXPECT_FALSE(Utill::waitngForVirtualIPSet());
	EXPECT_THAT(events::all(), ElementsAre("log D Utill:490 set virtual ip...", "ping 10.0.1.100 x10",
	                                       "log E Utill:504 set virtual ip failed: Not found: no such host"));
}

TEST_F(VirtualIP, AnErrorOutsideTheLibraryIsPassedOn)
{
	fakeoutside::pingThrows("10.0.1.100", [] { throw std::runtime_error("broken"); });
	EXPECT_THROW(Utill::waitngForVirtualIPSet(), std::runtime_error);
}

TEST_F(VirtualIP, TheMacAddressHooksDoNothing)
{
	Utill::changeMacAddress();
	Utill::rollBackMacAddress();
	EXPECT_THAT(events::all(), IsEmpty());
}

} // namespace
