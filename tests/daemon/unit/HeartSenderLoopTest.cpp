// The sender's passes: one connection per heartbeat, the pauses, the retries, when the settings
// and the shared values are read, and which failures cost a heartbeat and which the thread.

#include <cerrno>

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

TEST_F(SenderLoop, ARefusedConnectIsRetriedAfterTwoSecondsAndTheIntervalPlaysNoPart)
{
	partner.reset();
	atWait(3, [this] { partner = std::make_unique<peer::Listener>(kPort); });
	EXPECT_THAT(untilWait(4),
	            ElementsAre(kStarted, kRefused, kRetry, kRefused, kRetry, kRefused, kRetry, kSent, kInterval));
	EXPECT_EQ(partner->message(), kBeat);
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

std::string failure(const std::string& text)
{
	return "log E CHeartSender:128 " + text + "[noName]";
}

/// The first call `call` throws `exception`.
template <typename Exception> void throwAt(const std::string& call, const Exception& exception)
{
	socketcalls::before(call,
	                    [exception, thrown = std::make_shared<bool>(false)]
	                    {
		                    if (!std::exchange(*thrown, true))
		                    {
			                    throw exception;
		                    }
	                    });
}

using SenderErrors = SenderTest;

TEST_F(SenderErrors, AHeartbeatThatCannotBeWrittenIsNotLoggedAsSent)
{
	socketcalls::fail("send", EPIPE, false);
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, failure("I/O error: Broken pipe"), kInterval,
	                                      failure("I/O error: Broken pipe"), kInterval));
	EXPECT_EQ(partner->message(), "");
}

TEST_F(SenderErrors, APartnerThatResetsCostsOneHeartbeat)
{
	// A write after the reset raises a signal that only threads of the library block.
	socketcalls::before("send",
	                    [this, reset = std::make_shared<bool>(false)]
	                    {
		                    if (!std::exchange(*reset, true))
		                    {
			                    partner->accept().reset();
		                    }
	                    });
	EXPECT_THAT(untilWaitOnAThread(2),
	            ElementsAre(kStarted, failure("Connection reset by peer"), kInterval, kSent, kInterval));
	EXPECT_EQ(partner->message(), kBeat);
}

TEST_F(SenderErrors, AConnectionThatCannotBeShutDownIsNotLoggedAsSent)
{
	socketcalls::fail("shutdown", ENOTCONN);
	EXPECT_THAT(untilWait(2),
	            ElementsAre(kStarted, failure("Net Exception: Socket is not connected"), kInterval, kSent, kInterval));
}

TEST_F(SenderErrors, AnExceptionOfAnotherTypeEndsTheThreadSilently)
{
	for (const char* call : {"connect", "send"})
	{
		events::clear();
		throwAt(call, std::runtime_error("not of the library"));
		EXPECT_THAT(untilWaitOnAThread(5), ElementsAre(kStarted)) << call;
	}
}

} // namespace
