// The sender's passes: one connection per heartbeat, the pauses, the retries, and
// when the settings and the shared values are read.

#include <net/if.h>

#include "Configuraion.h"
#include "SenderTest.h"
#include "SocketCalls.h"

using namespace beats;

namespace
{

class SenderLoop : public SenderTest
{
protected:
	/// Changes a setting as if another part of the daemon did.
	static void change(const std::string& key, int value)
	{
		Configuraion::getInstance(velarix::kSettingsPath)->setInt(key, value);
	}
	static void change(const std::string& key, std::string value)
	{
		Configuraion::getInstance(velarix::kSettingsPath)->setString(key, value);
	}

	/// A partner's address from which nothing ever comes back, not even an error.
	void useAddressOfNobody()
	{
		sandbox::addInterface("nowhere", true);
		sandbox::shell("ip addr add 10.9.0.1/24 dev nowhere");
		sandbox::shell("ip neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev nowhere");
		useSetting("AGENT.PARTNER_IP", "10.9.0.2");
		socketcalls::pollWithoutWaiting();
	}

	void TearDown() override
	{
		SenderTest::TearDown();
		if (::if_nametoindex("nowhere") != 0)
		{
			sandbox::shell("ip link del nowhere");
		}
	}

	void useSetting(const std::string& key, const std::string& value)
	{
		settings.set(key, value);
		apply();
	}
};

TEST_F(SenderLoop, TheMessageGoesOutAtOnceAndTheSendingSideIsShutDown)
{
	for (const char* call : {"connect", "send", "shutdown"})
	{
		socketcalls::record(call);
	}
	EXPECT_THAT(untilWait(1),
	            ElementsAre(kStarted, "connect 127.0.0.1:7002", "send 30", "shutdown 1", kSent, kInterval));
}

TEST_F(SenderLoop, TheConnectionIsClosedBeforeThePause)
{
	atWait(1,
	       [this]
	       {
		       const peer::Socket connection = partner->accept();
		       EXPECT_EQ(connection.receiveAll(), kBeat);
		       EXPECT_FALSE(connection.isReset(std::chrono::milliseconds(0)));
		       connection.send("who listens?");
		       EXPECT_TRUE(connection.isReset());
	       });
	untilWait(1);
	EXPECT_FALSE(partner->isAsked());
}

TEST_F(SenderLoop, AnIntervalOfZeroSendsBackToBack)
{
	useSetting("AGENT.HEART_BEAT_INTERVAL", "0");
	EXPECT_THAT(untilWait(3), ElementsAre(kStarted, kSent, "sleep 0", kSent, "sleep 0", kSent, "sleep 0"));
}

TEST_F(SenderLoop, ARefusedConnectIsRetriedAfterTwoSecondsAndTheIntervalPlaysNoPart)
{
	partner.reset();
	atWait(3, [this] { partner = std::make_unique<peer::Listener>(kPort); });
	EXPECT_THAT(untilWait(4),
	            ElementsAre(kStarted, kRefused, kRetry, kRefused, kRetry, kRefused, kRetry, kSent, kInterval));
	EXPECT_EQ(partner->message(), kBeat);
}

TEST_F(SenderLoop, AConnectThatTimesOutIsRetried)
{
	useAddressOfNobody();
	useSetting("AGENT.MAX_HEART_BEAT_RECEIING_TIME", "5");
	socketcalls::record("poll");
	constexpr char kTimedOut[] =
	    "log E CHeartSender:79 Sender Timeout: connect timed out: 10.9.0.2:7002(CODE: 0)[noName]";
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, "poll 5000", kTimedOut, kRetry, "poll 5000", kTimedOut, kRetry));
}

TEST_F(SenderLoop, AnAddressThatCannotBeResolvedIsRetried)
{
	useSetting("AGENT.PARTNER_IP", "not an address");
	constexpr char kNotFound[] = "log E CHeartSender:79 Sender Host not found: not an address(CODE: 0)[noName]";
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, kNotFound, kRetry, kNotFound, kRetry));
}

TEST_F(SenderLoop, APortOf70000IsPort4464)
{
	useSetting("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "70000");
	const peer::Listener other(4464);
	EXPECT_THAT(untilWait(1), ElementsAre(kStarted, kSent, kInterval));
	EXPECT_EQ(other.message(), kBeat);
	EXPECT_EQ(WorkerAccess::port(*sender), 70000);
}

TEST_F(SenderLoop, AddressPortAndIntervalAreReadOnce)
{
	atWait(1,
	       []
	       {
		       change("AGENT.PARTNER_IP", "127.0.0.9");
		       change("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", 7009);
		       change("AGENT.HEART_BEAT_INTERVAL", 9);
	       });
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, kSent, kInterval, kSent, kInterval));
	partner->message();
	EXPECT_EQ(partner->message(), kBeat);
}

TEST_F(SenderLoop, AChangedTimeOutCountsFromTheNextPass)
{
	socketcalls::record("poll");
	atWait(1, [] { change("AGENT.MAX_HEART_BEAT_RECEIING_TIME", 5); });
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, "poll 1000", kSent, kInterval, "poll 5000", kSent, kInterval));
}

TEST_F(SenderLoop, TheSharedValuesAreThoseOfTheMomentAfterTheConnect)
{
	socketcalls::after("poll",
	                   [this]
	                   {
		                   velarix::storeShared(running, true);
		                   velarix::storeShared(mode, MODE_MASTER);
		                   velarix::storeShared(g_specialAsking, std::int32_t{1});
		                   sandbox::writeFile(velarix::kRunInfoPath, "[TRACE]\nLAST_RUN_TIME = 20250101000000\n");
	                   });
	EXPECT_THAT(
	    untilWait(1),
	    ElementsAre(kStarted, "log D CHeartSender:124 beat sent[noName]:/process/1/1/20250101000000/1/", kInterval));
	EXPECT_EQ(partner->message(), "/process/1/1/20250101000000/1/");
}

TEST_F(SenderLoop, EachHeartbeatTellsTheValuesAnew)
{
	atWait(1, [this] { velarix::storeShared(mode, MODE_MASTER); });
	atWait(2, [] { velarix::storeShared(g_specialAsking, std::int32_t{1}); });
	atWait(3,
	       [this]
	       {
		       velarix::storeShared(running, true);
		       velarix::storeShared(mode, MODE_UNSET);
	       });
	untilWait(4);
	EXPECT_EQ(partner->message(), "/process/0/2/20240131235959/0/");
	EXPECT_EQ(partner->message(), "/process/0/1/20240131235959/0/");
	EXPECT_EQ(partner->message(), "/process/0/1/20240131235959/1/");
	EXPECT_EQ(partner->message(), "/process/1/2/20240131235959/1/");
}

TEST_F(SenderLoop, TheLabelIsInEveryLine)
{
	location = "master2";
	makeSender();
	location = "changed";
	partner.reset();
	atWait(1, [this] { partner = std::make_unique<peer::Listener>(kPort); });
	EXPECT_THAT(untilWait(2),
	            ElementsAre("log I CHeartSender:37 Sender thread run started[master2]",
	                        "log E CHeartSender:79 Sender Connection refused(CODE: 111)[master2]", kRetry,
	                        "log D CHeartSender:124 beat sent[master2]:/process/0/2/20240102000000/0/", kInterval));
}

TEST_F(SenderLoop, ARoleOfZeroEndsTheThreadBeforeAnySettingIsRead)
{
	settings.remove("AGENT.PARTNER_IP");
	settings.remove("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT");
	settings.remove("AGENT.HEART_BEAT_INTERVAL");
	apply();
	mode = MODE_UNSET;
	sender->run();
	EXPECT_THAT(events::all(), ElementsAre(kStarted, "log E CHeartSender:40 mode is 0"));
	EXPECT_FALSE(partner->isAsked());
	EXPECT_EQ(WorkerAccess::port(*sender), 0);
	EXPECT_EQ(WorkerAccess::partnerIP(*sender), "");
}

TEST_F(SenderLoop, TheRoleIsNotLookedAtAgainForTheEndOfTheThread)
{
	atWait(1, [this] { velarix::storeShared(mode, MODE_UNSET); });
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, kSent, kInterval, kSent, kInterval));
}

} // namespace
