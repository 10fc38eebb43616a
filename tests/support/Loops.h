/// The loops of sender and receiver, run pass by pass on real loopback sockets, and the
/// literal events that the passes are made of. Needs FakeOutside and SocketCalls.
#pragma once

#include <utility>

#include <Poco/Thread.h>

#include "Peer.h"
#include "SocketCalls.h"
#include "Workers.h"

/// Runs a worker on a thread of the library, as the agent does, until the thread ends.
inline void runToItsEnd(Poco::Runnable& worker)
{
	Poco::Thread thread;
	thread.start(worker);
	ASSERT_TRUE(waitFor([&] { return !thread.isRunning(); }, std::chrono::seconds(20), "end of the thread"));
	thread.join();
}

/// Fixture around `sender->run()`: a slave without programs and without an ask,
/// the partner listening.
class SenderTest : public WorkerTest
{
protected:
	static constexpr std::uint16_t kPort = 7002; ///< "AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT"

	SenderTest()
	{
		settings.set("AGENT.PARTNER_IP", "127.0.0.1");
		partner = std::make_unique<peer::Listener>(kPort);
		sender = make<CHeartSender>();
	}

	/// Runs the thread's body from its start to its n-th wait.
	/// @return the events up to there
	events::List untilWait(int n)
	{
		events::endAt(n, "sleep ");
		EXPECT_THROW(sender->run(), events::EndOfScript);
		return events::all();
	}
	/// In the n-th wait of the thread's body.
	static void atWait(int n, std::function<void()> action) { events::atNth(n, "sleep ", std::move(action)); }

	Poco::AutoPtr<CHeartSender> sender;
	std::unique_ptr<peer::Listener> partner;
};

namespace beats
{

inline constexpr char kStarted[] = "log I CHeartSender:37 Sender thread run started[noName]";
/// What the fixture's node says.
inline constexpr char kBeat[] = "/process/0/2/20240131235959/0/";
inline constexpr char kSent[] = "log D CHeartSender:124 beat sent[noName]:/process/0/2/20240131235959/0/";
inline constexpr char kInterval[] = "sleep 3000";
inline constexpr char kRefused[] = "log E CHeartSender:79 Sender Connection refused(CODE: 111)[noName]";
inline constexpr char kRetry[] = "sleep 2000";

} // namespace beats

/// Fixture around `receiver->run()`. Everything answers pings, both interfaces have
/// carrier, and a poll waits only when the partner has called.
class ReceiverLoop : public ReceiverTest
{
protected:
	static constexpr std::uint16_t kPort = 7001; ///< "AGENT.HEART_BEAT_RECEIVE_PORT"

	ReceiverLoop()
	{
		fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", {"1\n"});
		fakeoutside::commandPrints("cat /sys/class/net/eth1/carrier", {"1\n"});
		events::at("poll",
		           [this]
		           {
			           if (!std::exchange(m_partnerCalls, false))
			           {
				           throw socketcalls::AtOnce{};
			           }
		           });
	}

	/// Makes the node master with its program running.
	void beMaster()
	{
		mode = MODE_MASTER;
		programRuns(true);
	}

	/// Runs the loop from its start until pass `n` has ended.
	/// @return the events from pass `first` on, as looked at by loopEvents
	events::List passes(int n, int first = 1)
	{
		events::endAt(n + 1, kPassBegins);
		events::atNth(first, kPassBegins, [this] { m_before = events::all().size() - 1; });
		EXPECT_THROW(receiver->run(), events::EndOfScript);
		// The line with which the next pass began has ended the run.
		const events::List all = events::all();
		return loopEvents({all.begin() + static_cast<std::ptrdiff_t>(m_before), all.end() - 1});
	}
	/// @return the events of pass `n` alone
	events::List pass(int n) { return passes(n, n); }

	/// When pass `n` begins, before anything else of it.
	static void atPass(int n, std::function<void()> action) { events::atNth(n, kPassBegins, std::move(action)); }
	/// When the loop has begun to listen for the n-th time.
	static void atListen(int n, std::function<void()> action) { events::atNth(n, "after listen", std::move(action)); }

	/// Connects, sends the bytes and closes.
	void partnerSends(const std::string& bytes)
	{
		peer::connectTo(kPort).send(bytes);
		m_partnerCalls = true;
	}
	/// Connects; the connection stays open for the rest of the test.
	peer::Socket& partnerConnects()
	{
		connections.push_back(peer::connectTo(kPort));
		m_partnerCalls = true;
		return connections.back();
	}
	/// @return whether a partner that connects finds the receiver
	bool partnerFindsReceiver() { return m_partnerCalls = peer::somebodyListensOn(kPort); }

	/// The loop's own events: the checks with which a pass begins (NetworkStatusTableTest) become
	/// "judged VERDICT", and the echoes of commands and probes are left out.
	static events::List loopEvents(const events::List& all)
	{
		static const std::string verdict = "log D CHeartReciver:96 networkResult: ";
		events::List result;
		std::size_t passBegan = 0;
		for (const std::string& event : all)
		{
			if (event == kPassBegins)
			{
				passBegan = result.size();
			}
			if (event.starts_with(verdict))
			{
				result.resize(passBegan);
				result.push_back("judged " + event.substr(verdict.size()));
			}
			else if (!event.starts_with("log D Utill:7") && !event.starts_with("log I Utill:573 ") &&
			         !event.starts_with("log D CHeartReciver:561 ") && !event.starts_with("log D CHeartReciver:564 "))
			{
				result.push_back(event);
			}
		}
		return result;
	}

	/// Matches what the loop's events are made of, in order.
	static auto are(std::initializer_list<events::List> expected)
	{
		return ElementsAreArray(loopEvents(events::join(expected)));
	}

	std::vector<peer::Socket> connections;

	static constexpr char kPassBegins[] = "log D CHeartReciver:94 Reciver while start";

private:
	std::size_t m_before = 0;
	bool m_partnerCalls = false; ///< the next poll has something to wait for
};

namespace steps
{

inline const List kJudged{"judged 1"};
inline const List kNewServer{"log D CHeartReciver:124 new server"};
inline const List kPoll{"log D CHeartReciver:150 poll"};
/// The communication interface looked at.
inline const List kCarrier{"command cat /sys/class/net/eth1/carrier"};
inline const List kCarrierOK = join({kCarrier, {"log D CHeartReciver:185 COMUNICATION LAN CARD OK"}});
inline const List kCarrierError = join({kCarrier, {"log D CHeartReciver:182 COMUNICATION LAN CARD ERROR"}});
/// The time-out of a poll.
inline const List kSilence{"log E CHeartReciver:146 Reciver Connect Timed Out", "sleep 1000"};
/// The listening socket dropped at the end of a pass.
inline const List kDropped{"log D CHeartReciver:84 delete server", "log D CHeartReciver:87 Reciver while end",
                           "log D CHeartReciver:88 "};
/// A time-out that is counted, the communication interface having carrier.
inline const List kCounted1 =
    join({kSilence, kCarrierOK, {"log D CHeartReciver:189 Reciver : nReceiveFailCount[1]"}, kDropped});
inline const List kCounted2 =
    join({kSilence, kCarrierOK, {"log D CHeartReciver:189 Reciver : nReceiveFailCount[2]"}, kDropped});
/// The third one, up to the second look at the interface.
inline const List kThird =
    join({kSilence, kCarrierOK, {"log D CHeartReciver:192 Reciver : no received message"}, kCarrier});
/// The partner still answers pings.
inline const List kPartnerIsThere{"ping 10.0.0.2 x10", "log E CHeartReciver:201 Reciver : Partner IP and Service IP "
                                                       "are working, but I did not get any message from partner"};

/// A master's heartbeat without an ask.
inline constexpr char kMasterBeat[] = "/process/1/1/20240131235959/0/";
/// A slave with nothing asked hears such a one, and pauses.
inline List heard(const std::string& message)
{
	return join({{"log D CHeartReciver:164 received message: " + message},
	             kAccepted,
	             {"log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
	              "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]", "sleep 500"}});
}

} // namespace steps
