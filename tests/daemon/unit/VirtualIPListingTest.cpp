// The search for the virtual IP in the interface listing.

#include "VirtualIP.h"

#include <Poco/Exception.h>

#include "Daemon.h"
#include "FakeOutside.h"

using testing::ElementsAre;

namespace
{

class VirtualIPListing : public DaemonTest
{
protected:
	/// @return the answer, after the log line of that answer was checked, which comes
	///         before the listing is closed
	static bool isListedIn(const std::string& listing)
	{
		int openAtTheLine = -1;
		onLogLine([&openAtTheLine](const std::string&) { openAtTheLine = fakeoutside::openPipes(); });
		fakeoutside::commandPrints("ifconfig", listing);
		const bool listed = isMyVirtualIPWorking();
		EXPECT_EQ(openAtTheLine, 1);
		EXPECT_EQ(fakeoutside::openPipes(), 0);
		EXPECT_THAT(events::all(), ElementsAre("command ifconfig", listed ? "log D Utill:668 myVirtualIP working"
		                                                                  : "log D Utill:680 myVirtualIP not working"));
		return listed;
	}
};

TEST_F(VirtualIPListing, AListedAddressIsWorking)
{
	EXPECT_TRUE(isListedIn("eth0: flags\n        inet 10.0.1.100  netmask 255.255.255.0\n\nlo: flags\n"));
}

TEST_F(VirtualIPListing, AnAbsentAddressIsNotWorking)
{
	EXPECT_FALSE(isListedIn("eth0: flags\n        inet 10.0.1.1  netmask 255.255.255.0\n"));
}

TEST_F(VirtualIPListing, ALogThatTakesNoLineLeavesNoListingOpen)
{
	fakeoutside::commandPrints("ifconfig", "inet 10.0.1.100\n");
	onLogLine([](const std::string&) { throw Poco::WriteFileException("no room"); });
	EXPECT_THROW(isMyVirtualIPWorking(), Poco::WriteFileException);
	EXPECT_EQ(fakeoutside::openPipes(), 0);
	settings.set("AGENT.VIRTUAL_IP", "10.0.1.101");
	apply();
	EXPECT_THROW(isMyVirtualIPWorking(), Poco::WriteFileException);
	EXPECT_EQ(fakeoutside::openPipes(), 0);
}

TEST_F(VirtualIPListing, AnAddressThatBeginsAnotherOneCountsAsPresent)
{
	settings.set("AGENT.VIRTUAL_IP", "10.0.1.1");
	apply();
	EXPECT_TRUE(isListedIn("        inet 10.0.1.10  netmask 255.255.255.0\n"));
}

TEST_F(VirtualIPListing, AnAddressThatEndsTheFirst127BytesIsFound)
{
	EXPECT_TRUE(isListedIn(std::string(117, 'x') + "10.0.1.100" + "\n"));
}

TEST_F(VirtualIPListing, AnAddressSplitAfter127BytesIsNotFound)
{
	EXPECT_FALSE(isListedIn(std::string(118, 'x') + "10.0.1.100" + "\n"));
	events::clear();
	EXPECT_FALSE(isListedIn(std::string(126, 'x') + "10.0.1.100" + "\n"));
}

TEST_F(VirtualIPListing, AListingThatCannotBeStartedIsNotWorking)
{
	fakeoutside::commandFails("ifconfig");
	EXPECT_FALSE(isMyVirtualIPWorking());
	EXPECT_THAT(events::all(), ElementsAre("command ifconfig", "log E Utill:652 popen error"));
}

} // namespace
