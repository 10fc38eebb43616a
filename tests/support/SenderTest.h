/// One sender and the partner that it talks to, on loopback. Needs FakeOutside
/// and SocketCalls.
#pragma once

#include "Peer.h"
#include "WorkerTest.h"

/// Fixture around `sender->run()`: a slave without programs and without an ask,
/// the partner listening.
class SenderTest : public WorkerTest
{
protected:
	static constexpr std::uint16_t kPort = 7002; ///< "AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT"

	SenderTest();
	void SetUp() override;

	void makeSender();

	/// Runs the thread's body from its start to its n-th wait.
	/// @return the events up to there
	events::List untilWait(int n);
	/// In the n-th wait of the thread's body.
	void atWait(int n, std::function<void()> action);
	/// As untilWait, on a thread as the agent runs it.
	events::List untilWaitOnAThread(int n);

	std::unique_ptr<CHeartSender> sender;
	std::unique_ptr<peer::Listener> partner;

private:
	void endAtWait(int n);

	std::map<int, std::function<void()>> m_atWait;
	int m_waits = 0;
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
