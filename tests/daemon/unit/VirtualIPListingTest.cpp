// The search for the virtual IP in the interface listing.

#include "VirtualIP.h"

#include "Daemon.h"

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
	fakeoutside::commandPrints("ifconfig", "inet 10.0.1.100\n");
	onLogLine([](const std::string&) { throw Poco::WriteFileException("no room"); });
	EXPECT_THROW(isMyVirtualIPWorking(), Poco::WriteFileException);
	EXPECT_EQ(fakeoutside::openPipes(), 0);
	settings.set("AGENT.VIRTUAL_IP", "10.0.1.101");
	apply();
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
