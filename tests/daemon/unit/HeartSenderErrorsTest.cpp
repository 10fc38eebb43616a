// Failures on the sender's thread: which of them cost one heartbeat and which the
// thread.

#include <cerrno>

#include "SenderTest.h"
#include "SocketCalls.h"

using namespace beats;

namespace
{

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

class SenderErrors : public SenderTest
{
};

TEST_F(SenderErrors, AHeartbeatThatCannotBeWrittenIsNotLoggedAsSent)
{
	socketcalls::failAlways("send", EPIPE);
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
	socketcalls::failNext("shutdown", ENOTCONN);
	EXPECT_THAT(untilWait(2),
	            ElementsAre(kStarted, failure("Net Exception: Socket is not connected"), kInterval, kSent, kInterval));
}

TEST_F(SenderErrors, AMessageTakenByteByByteArrivesWhole)
{
	socketcalls::sendByteByByte();
	EXPECT_THAT(untilWait(1), ElementsAre(kStarted, kSent, kInterval));
	EXPECT_EQ(partner->message(), kBeat);
}

TEST_F(SenderErrors, AnErrorWhileConnectingIsARetryNotALostHeartbeat)
{
	socketcalls::failNext("poll", EBADF);
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted,
	                                      "log E CHeartSender:79 Sender I/O error: Bad socket descriptor(CODE: 9)"
	                                      "[noName]",
	                                      kRetry, kSent, kInterval));
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

TEST_F(SenderErrors, AnExceptionOfTheLibraryWhileSendingCostsOneHeartbeat)
{
	throwAt("send", Poco::SystemException("memory", 12));
	EXPECT_THAT(untilWait(2), ElementsAre(kStarted, failure("System exception: memory"), kInterval, kSent, kInterval));
}

TEST_F(SenderErrors, AnExceptionInThePauseEndsTheThread)
{
	atWait(1, [] { throw Poco::SystemException("pause", 4); });
	EXPECT_THAT(untilWaitOnAThread(5), ElementsAre(kStarted, kSent, kInterval));
}

} // namespace
