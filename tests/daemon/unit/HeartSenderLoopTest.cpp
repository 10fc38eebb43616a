// The sender's passes: one connection per heartbeat, the pauses, the retries, when the settings
// and the shared values are read, and which failures cost a heartbeat and which the thread.

#include <cerrno>

#include "Configuraion.h"
#include "Loops.h"

using namespace beats;

namespace
{

class SenderLoop : public SenderTest
{
protected:
	/// Changes a setting as if another part of the daemon did.
	static void change(const std::string& key, std::string value)
	{
		Configuraion::getInstance(velarix::kSettingsPath)->setString(key, value);
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
		       peer::Socket connection = partner->accept();
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
	settings.set("AGENT.PARTNER_IP", "not an address");
	constexpr char kNotFound[] = "log E CHeartSender:79 Sender Host not found: not an address(CODE: 0)[noName]";
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, kNotFound, kRetry, kNotFound, kRetry));
}

TEST_F(SenderLoop, APortOf70000IsPort4464)
{
	settings.set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "70000");
	peer::Listener other(4464);
	EXPECT_THAT(untilWait(1), ElementsAre(kStarted, kSent, kInterval));
	EXPECT_EQ(other.message(), kBeat);
	EXPECT_EQ(WorkerAccess::port(*sender), 70000);
}

TEST_F(SenderLoop, AddressPortAndIntervalAreReadOnceAndTheTimeOutAtEveryPass)
{
	socketcalls::record("poll");
	atWait(1,
	       []
	       {
		       change("AGENT.PARTNER_IP", "127.0.0.9");
		       change("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "7009");
		       change("AGENT.HEART_BEAT_INTERVAL", "9");
		       change("AGENT.MAX_HEART_BEAT_RECEIING_TIME", "5");
	       });
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, "poll 1000", kSent, kInterval, "poll 5000", kSent, kInterval));
	partner->message();
	EXPECT_EQ(partner->message(), kBeat);
}

TEST_F(SenderLoop, TheSharedValuesAreThoseOfTheMomentAfterTheConnect)
{
	events::at("after poll",
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
	mode = MODE_UNSET;
	sender->run();
	EXPECT_THAT(events::all(), ElementsAre(kStarted, "log E CHeartSender:40 mode is 0"));
	EXPECT_FALSE(partner->isAsked());
}

std::string failure(const std::string& text)
{
	return "log E CHeartSender:128 " + text + "[noName]";
}

using SenderErrors = SenderTest;

TEST_F(SenderErrors, AHeartbeatThatCannotBeWrittenIsNotLoggedAsSent)
{
	events::at("send", events::throws(socketcalls::Fault{EPIPE}));
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, failure("I/O error: Broken pipe"), kInterval,
	                                      failure("I/O error: Broken pipe"), kInterval));
	EXPECT_EQ(partner->message(), "");
}

TEST_F(SenderErrors, APartnerThatResetsCostsOneHeartbeat)
{
	// A write after the reset raises a signal that only threads of the library block.
	events::atNth(1, "send", [this] { partner->accept().reset(); });
	events::endAt(2, "sleep ");
	runToItsEnd(*sender);
	EXPECT_THAT(events::all(), ElementsAre(kStarted, failure("Connection reset by peer"), kInterval, kSent, kInterval));
	EXPECT_EQ(partner->message(), kBeat);
}

TEST_F(SenderErrors, AConnectionThatCannotBeShutDownIsNotLoggedAsSent)
{
	events::atNth(1, "shutdown", events::throws(socketcalls::Fault{ENOTCONN}));
	EXPECT_THAT(untilWait(2),
	            ElementsAre(kStarted, failure("Net Exception: Socket is not connected"), kInterval, kSent, kInterval));
}

TEST_F(SenderErrors, AnExceptionOfAnotherTypeEndsTheThreadSilently)
{
	for (const char* call : {"connect", "send"})
	{
		events::clear();
		events::atNth(1, call, events::throws(std::runtime_error("not of the library")));
		runToItsEnd(*sender);
		EXPECT_THAT(events::all(), ElementsAre(kStarted)) << call;
	}
}

} // namespace
