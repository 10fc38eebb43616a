// The heartbeat in real time: intervals, pauses, time-outs and the time that a
// take-over needs, with real sockets, pings, interfaces and commands.

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include <Poco/Thread.h>

#include "Peer.h"
#include "Sandbox.h"
#include "WaitFor.h"
#include "WorkerTest.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

using namespace std::chrono_literals;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Each;
using testing::Ge;
using testing::Lt;

namespace
{

constexpr std::uint16_t kPort = 7001;
constexpr char kSilentPartner[] = "10.9.0.2";

class HeartbeatRealTime : public WorkerTest
{
protected:
	void SetUp() override
	{
		settings.set("AGENT.PARTNER_IP", "127.0.0.1")
		    .set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "7001")
		    .set("AGENT.HEART_BEAT_INTERVAL", "1")
		    .set("AGENT.GATEWAY_IP", "127.0.0.1")
		    .set("AGENT.VIRTUAL_IP", "127.0.0.1")
		    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", "true");
		DaemonTest::SetUp();
		events::onSleep([this](long duration) { wait(duration); });
		onLogLine([this](const std::string& event) { note(event); });
		sandbox::addInterface("eth1", true);
	}
	void TearDown() override
	{
		m_stopping = true;
		for (Poco::Thread* pThread : {&m_receiverThread, &m_senderThread})
		{
			pThread->join();
		}
		sandbox::shell("ip link del eth1");
		DaemonTest::TearDown();
	}

	/// From now on nothing answers at the partner's address.
	void silencePartner()
	{
		sandbox::shell("ip addr add 10.9.0.1/24 dev eth1");
		sandbox::shell("ip neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev eth1");
		settings.set("AGENT.PARTNER_IP", kSilentPartner);
		apply();
	}

	void startReceiver()
	{
		m_receiver = std::make_unique<CHeartReciver>(&handles, &running, &mode, location);
		m_receiverThread.start(*m_receiver);
	}
	void startListeningReceiver()
	{
		startReceiver();
		ASSERT_TRUE(waitFor([] { return peer::isListenedOn(kPort); }, 60s, "the receiver's port"));
	}
	void startSender()
	{
		m_sender = std::make_unique<CHeartSender>(&handles, &running, &mode, location);
		m_senderThread.start(*m_sender);
	}

	/// Waits until the line has been logged `n` times.
	void waitForLines(const std::string& line, std::size_t n, milliseconds limit)
	{
		ASSERT_TRUE(waitFor([&] { return times(line).size() >= n; }, limit, std::to_string(n) + " times " + line));
	}

	/// @return the time from each of the lines to the next one
	std::vector<milliseconds> gaps(const std::string& line)
	{
		const std::vector<Clock::time_point> all = times(line);
		std::vector<milliseconds> result;
		for (std::size_t i = 1; i < all.size(); ++i)
		{
			result.push_back(duration_cast<milliseconds>(all[i] - all[i - 1]));
		}
		return result;
	}

	/// @return the time from the first of one line to the first of another
	milliseconds between(const std::string& from, const std::string& to)
	{
		return duration_cast<milliseconds>(times(to).at(0) - times(from).at(0));
	}

private:
	using Clock = std::chrono::steady_clock;

	void wait(long duration)
	{
		for (const auto end = Clock::now() + milliseconds(duration); Clock::now() < end;)
		{
			if (m_stopping)
			{
				throw events::EndOfScript{};
			}
			std::this_thread::sleep_until(std::min(end, Clock::now() + 20ms));
		}
	}

	void note(const std::string& event)
	{
		const std::lock_guard lock(m_mutex);
		m_lines.emplace_back(Clock::now(), event);
	}

	std::vector<Clock::time_point> times(const std::string& line)
	{
		const std::lock_guard lock(m_mutex);
		std::vector<Clock::time_point> result;
		for (const auto& [time, event] : m_lines)
		{
			if (event == line)
			{
				result.push_back(time);
			}
		}
		return result;
	}

	std::mutex m_mutex;
	std::vector<std::pair<Clock::time_point, std::string>> m_lines;
	std::atomic<bool> m_stopping = false;
	std::unique_ptr<CHeartReciver> m_receiver;
	std::unique_ptr<CHeartSender> m_sender;
	Poco::Thread m_receiverThread;
	Poco::Thread m_senderThread;
};

/// What a loaded machine may add; the waits themselves are pinned in compressed time.
constexpr auto kSlowMachine = 15s;

constexpr char kSent[] = "log D CHeartSender:124 beat sent[noName]:/process/0/2/20240131235959/0/";
constexpr char kReceived[] = "log D CHeartReciver:164 received message: /process/0/2/20240131235959/0/";

TEST_F(HeartbeatRealTime, AHeartbeatGoesOutEverySecondAndEachIsReceived)
{
	settings.set("AGENT.MAX_HEART_BEAT_RECEIING_TIME", "60"); // also a slow machine's heartbeats are in time
	apply();
	startListeningReceiver();
	startSender();
	waitForLines(kReceived, 4, 60s);
	EXPECT_THAT(gaps(kSent), Each(AllOf(Ge(1000ms), Lt(1000ms + kSlowMachine))));
	EXPECT_THAT(gaps(kReceived), Each(Lt(1000ms + kSlowMachine)));
	EXPECT_THAT(events::only({"log E"}), testing::IsEmpty());
	EXPECT_EQ(velarix::loadShared(mode), MODE_SLAVE);
}

TEST_F(HeartbeatRealTime, MessagesOnOneConnectionAreHalfASecondApart)
{
	startListeningReceiver();
	const peer::Socket partner = peer::connectTo(kPort);
	partner.send("/process/0/1/first/0/");
	waitForLines("log D CHeartReciver:164 received message: /process/0/1/first/0/", 1, 60s);
	partner.send("/process/0/1/second/0/");
	partner.shutdownSend();
	waitForLines("log D CHeartReciver:84 delete server", 1, 60s);
	EXPECT_THAT(between("log D CHeartReciver:164 received message: /process/0/1/first/0/",
	                    "log D CHeartReciver:164 received message: /process/0/1/second/0/"),
	            AllOf(Ge(500ms), Lt(500ms + kSlowMachine)));
	EXPECT_THAT(between("log D CHeartReciver:164 received message: /process/0/1/second/0/",
	                    "log D CHeartReciver:84 delete server"),
	            AllOf(Ge(500ms), Lt(500ms + kSlowMachine)));
}

TEST_F(HeartbeatRealTime, ASilentPartnerIsReplacedAfterThreeTimeOuts)
{
	silencePartner();
	sandbox::writeFile(velarix::kRunScriptPath, "#!/bin/sh\necho started > /usr/velarix/started\n");
	startReceiver();
	constexpr char kRan[] = "log D CHeartReciver:218 try to process run";
	waitForLines(kRan, 1, 60s);
	ASSERT_TRUE(waitFor([] { return sandbox::readFile("/usr/velarix/started") == "started\n"; }, 10s, "the script"));
	// Three times the receiving time and the pause, and four unanswered bursts of pings.
	EXPECT_THAT(between("log D CHeartReciver:94 Reciver while start", kRan),
	            AllOf(Ge(9900ms), Lt(9900ms + kSlowMachine)));
	EXPECT_THAT(gaps("log E CHeartReciver:146 Reciver Connect Timed Out"),
	            Each(AllOf(Ge(2900ms), Lt(3000ms + kSlowMachine))));
	// As a master it is judged by its service address next, which this one has lost again.
	waitForLines("log D CHeartReciver:505 networkStatus : MASTER network check...", 1, 60s);
}

} // namespace
