/// The receiver's whole loop, run pass by pass on real loopback sockets, and the
/// literal event lists that its passes are made of. Needs FakeOutside and
/// SocketCalls.
#pragma once

#include <limits>
#include <utility>

#include "Peer.h"
#include "ReceiverTest.h"

/// Fixture around `receiver->run()`. Everything answers pings, both interfaces have
/// carrier, and a poll waits only when the partner has called.
class ReceiverLoop : public ReceiverTest
{
protected:
	static constexpr std::uint16_t kPort = 7001; ///< "AGENT.HEART_BEAT_RECEIVE_PORT"

	void SetUp() override;
	void TearDown() override;

	/// Makes the node master with its program running.
	void beMaster();

	/// Runs the loop from its start until pass `n` has ended.
	/// @return the events of these passes
	events::List passes(int n);
	/// Runs the loop from its start.
	/// @return the events of pass `n` alone
	events::List pass(int n);

	/// When pass `n` begins, before anything else of it. The test fails when the
	/// action is never run.
	void atPass(int n, std::function<void()> action);
	/// When the loop has begun to listen for the n-th time: the partner can
	/// connect, and the poll that follows finds it. The test fails when the action is
	/// never run.
	void atListen(int n, std::function<void()> action);

	/// Connects, sends the bytes and closes.
	void partnerSends(const std::string& bytes);
	/// Connects; the connection stays open for the rest of the test.
	peer::Socket& partnerConnects();
	/// @return whether a partner that connects finds the receiver
	bool partnerFindsReceiver();

	/// The action throws the exception the first time that it is recorded.
	template <typename Exception> static void throwAt(const std::string& action, const Exception& exception)
	{
		fakeoutside::onAction(
		    [action, exception, thrown = std::make_shared<bool>(false)](const std::string& event)
		    {
			    if (event == action && !std::exchange(*thrown, true))
			    {
				    throw exception;
			    }
		    });
	}

	std::vector<std::unique_ptr<peer::Socket>> connections;

private:
	void onLine(const std::string& event);

	std::map<int, std::function<void()>> m_atPass;
	std::map<int, std::function<void()>> m_atListen;
	std::vector<std::size_t> m_firstEvents;
	std::size_t m_listens = 0;
	bool m_partnerCalls = false; ///< the next poll has something to wait for
	int m_lastPass = std::numeric_limits<int>::max();
};

namespace steps
{

inline constexpr char kNewServer[] = "log D CHeartReciver:124 new server";
inline constexpr char kPoll[] = "log D CHeartReciver:150 poll";
inline constexpr char kCardOK[] = "log D CHeartReciver:185 COMUNICATION LAN CARD OK";
inline constexpr char kCounted1[] = "log D CHeartReciver:189 Reciver : nReceiveFailCount[1]";
inline constexpr char kCounted2[] = "log D CHeartReciver:189 Reciver : nReceiveFailCount[2]";
inline constexpr char kThird[] = "log D CHeartReciver:192 Reciver : no received message";

/// Matches the events that the steps are made of, in order.
inline auto are(std::initializer_list<Step> expected)
{
	return testing::ElementsAreArray(join(expected));
}

/// A slave's checks at the beginning of a pass, the partner answering pings.
events::List slaveJudged();
/// The same with the partner silent and the virtual IP answering.
events::List slaveJudgedWithPartnerSilent();
/// A master's checks at the beginning of a pass, all of them passed.
events::List masterJudged();
/// The communication interface looked at, with what its carrier file holds.
events::List carrierLookedAt(const std::string& carrier);
/// The virtual IP asked, which answers.
events::List serviceAnswers();
/// The partner asked, which answers or not.
events::List partnerAnswers();
events::List partnerIsSilent();
/// The time-out of a poll.
events::List silence();
/// A time-out that is counted with this line, the communication interface having carrier.
events::List counted(const char* line);
/// The third one, up to the second look at the interface.
events::List thirdSilence();
/// One heartbeat of a master that asks nothing, heard by a slave, and the pause.
events::List heartbeatOfMaster();
/// The listening socket dropped at the end of a pass.
events::List dropped();

} // namespace steps

/// A master's heartbeat without an ask.
inline constexpr char kMasterBeat[] = "/process/1/1/20240131235959/0/";
