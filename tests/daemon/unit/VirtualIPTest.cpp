// The virtual IP: stop, start, wait, and the search for it in the interface listing.

#include "VirtualIP.h"

#include "Workers.h"

using namespace steps;

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
	fakeoutside::commandPrints("vip-stop", {"RTNETLINK answers: Cannot assign requested address\n"});
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
	events::at("sleep ",
	           [&shown]
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
	events::atNth(2, "command vip-start", [] { fakeoutside::commandPrints("vip-start", {""}); });
	EXPECT_TRUE(start());
	events::List raised = kRaiseAddress;
	raised.erase(raised.begin(), raised.begin() + 2); // it is dropped once
	EXPECT_EQ(events::all(), join({kDropAddress,
	                               kMissAddress,
	                               {"log E Utill:550 shell command run error(fp is NULL): vip-start", "sleep 1000",
	                                "log E Utill:432 can't start virtual ip: velarixErr", "sleep 500"},
	                               raised}));
}

TEST_F(VirtualIP, APingErrorAfterASilentStartCommandIsLoggedWithTheEmptyOutput)
{
	events::at("ping 10.0.1.100", events::throws(Poco::IOException("no raw socket")));
	fakeoutside::commandPrints("ifconfig", {kListingWithout, kListing});
	EXPECT_TRUE(start());
	EXPECT_EQ(events::all(),
	          join({kDropAddress,
	                kMissAddress,
	                {"log I Utill:573 command(vip-start) : ", "log D Utill:490 set virtual ip...",
	                 "ping 10.0.1.100 x10", "log E Utill:504 set virtual ip failed: I/O error: no raw socket",
	                 "log E Utill:432 can't start virtual ip: ", "sleep 500", "command ifconfig",
	                 "log D Utill:668 myVirtualIP working"}}));
}

TEST_F(VirtualIP, ASilentAddressIsPingedEachSecondUntilItAnswers)
{
	fakeoutside::pingGives("10.0.1.100", {0, 0, 1});
	EXPECT_TRUE(Utill::waitngForVirtualIPSet());
	EXPECT_THAT(events::all(),
	            ElementsAre("log D Utill:490 set virtual ip...", "ping 10.0.1.100 x10", "log D Utill:496 ping: 0",
	                        "sleep 1000", "ping 10.0.1.100 x10", "log D Utill:496 ping: 0", "sleep 1000",
	                        "ping 10.0.1.100 x10", "log D Utill:496 ping: 1"));
}

TEST_F(VirtualIP, TheMacAddressHooksDoNothing)
{
	Utill::changeMacAddress();
	Utill::rollBackMacAddress();
	EXPECT_THAT(events::all(), IsEmpty());
}

class VirtualIPListing : public DaemonTest
{
protected:
	/// @return the answer, after the log line of that answer was checked, which comes
	///         before the listing is closed
	static bool isListedIn(const std::string& listing)
	{
		int openAtTheLine = -1;
		events::at("log ", [&openAtTheLine] { openAtTheLine = fakeoutside::openPipes(); });
		fakeoutside::commandPrints("ifconfig", {listing});
		const bool listed = isMyVirtualIPWorking();
		EXPECT_EQ(openAtTheLine, 1);
		EXPECT_EQ(fakeoutside::openPipes(), 0);
		EXPECT_THAT(events::all(), ElementsAre("command ifconfig", listed ? "log D Utill:668 myVirtualIP working"
		                                                                  : "log D Utill:680 myVirtualIP not working"));
		return listed;
	}
};

TEST_F(VirtualIPListing, TheAddressIsLookedForInPiecesOf127Bytes)
{
	struct Row
	{
		std::string listing;
		bool listed;
	};
	for (const Row& row : {Row{"eth0: flags\n        inet 10.0.1.100  netmask 255.255.255.0\n\nlo: flags\n", true},
	                       {"eth0: flags\n        inet 10.0.1.1  netmask 255.255.255.0\n", false},
	                       {"        inet 10.0.1.1001  netmask 255.255.255.0\n", true},
	                       {std::string(117, 'x') + "10.0.1.100\n", true},
	                       {std::string(118, 'x') + "10.0.1.100\n", false},
	                       {std::string(126, 'x') + "10.0.1.100\n", false}})
	{
		events::clear();
		EXPECT_EQ(isListedIn(row.listing), row.listed) << row.listing;
	}
}

TEST_F(VirtualIPListing, ALogThatTakesNoLineLeavesNoListingOpen)
{
	fakeoutside::commandPrints("ifconfig", {"inet 10.0.1.100\n"});
	events::at("log ", events::throws(Poco::WriteFileException("no room")));
	EXPECT_THROW(isMyVirtualIPWorking(), Poco::WriteFileException);
	EXPECT_EQ(fakeoutside::openPipes(), 0);
	settings.set("AGENT.VIRTUAL_IP", "10.0.1.101");
	EXPECT_THROW(isMyVirtualIPWorking(), Poco::WriteFileException);
	EXPECT_EQ(fakeoutside::openPipes(), 0);
}

TEST_F(VirtualIPListing, AListingThatCannotBeStartedIsNotWorking)
{
	fakeoutside::commandFails("ifconfig");
	EXPECT_FALSE(isMyVirtualIPWorking());
	EXPECT_THAT(events::all(), ElementsAre("command ifconfig", "log E Utill:652 popen error"));
}

} // namespace
