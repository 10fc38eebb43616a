// The agent with its three workers on real threads, against a partner on the
// loopback. Waits are cut to a fiftieth; the outside (commands, pings) is scripted.

#include <atomic>
#include <thread>

#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>

#include "CAgent.h"
#include "Daemon.h"
#include "FakeOutside.h"
#include "Sandbox.h"
#include "WaitFor.h"
#include "WorkerAccess.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

using testing::Contains;
using testing::ElementsAre;
using namespace std::chrono_literals;

namespace
{

/// The other node: listens where the sender sends, speaks where the receiver listens.
class Partner
{
public:
	/// @return the next heartbeat, read to the sender's close; empty after five seconds
	std::string hear()
	{
		if (!m_server.poll(Poco::Timespan(5, 0), Poco::Net::Socket::SELECT_READ))
		{
			return "";
		}
		Poco::Net::StreamSocket connection = m_server.acceptConnection();
		connection.setReceiveTimeout(Poco::Timespan(5, 0));
		std::string text;
		char piece[64];
		for (int n = connection.receiveBytes(piece, sizeof piece); n > 0;
		     n = connection.receiveBytes(piece, sizeof piece))
		{
			text.append(piece, static_cast<std::size_t>(n));
		}
		return text;
	}

	/// Sends one heartbeat; the node listens anew for each of them.
	static void say(const std::string& message)
	{
		const auto trySending = [&]
		{
			try
			{
				Poco::Net::StreamSocket socket(Poco::Net::SocketAddress("127.0.0.1", 7001));
				socket.sendBytes(message.data(), static_cast<int>(message.size()));
				return true;
			}
			catch (const Poco::Exception&)
			{
				return false;
			}
		};
		ASSERT_TRUE(waitFor(trySending, 10s, "listening receiver"));
	}

private:
	Poco::Net::ServerSocket m_server{Poco::Net::SocketAddress("127.0.0.1", 7002)};
};

class AgentWorkers : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		fakeoutside::reset();
		fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", "1\n");
		fakeoutside::commandPrints("cat /sys/class/net/eth1/carrier", "1\n");
		fakeoutside::commandPrints("ifconfig", "eth0:ha: flags\n  inet 10.0.1.100  netmask\n");
		settings.set("AGENT.PARTNER_IP", "127.0.0.1").set("AGENT.HEART_BEAT_INTERVAL", "1");
		apply();
		events::onSleep(
		    [this](long milliseconds)
		    {
			    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds) / 50);
			    if (stopping)
			    {
				    throw events::EndOfScript{};
			    }
		    });
	}

	void TearDown() override
	{
		stopWorkers();
		agent.reset();
		fakeoutside::reset();
		DaemonTest::TearDown();
	}

	/// The running program of these tests is this very one.
	void letTheProgramRun()
	{
		settings.programs({"/opt/app/bin/agent_workers"});
		apply();
	}

	void start()
	{
		agent = std::make_unique<CAgent>(2);
		agent->startThread();
	}

	/// The workers have no end: their next wait throws them out of their loops.
	void stopWorkers()
	{
		stopping = true;
		if (agent == nullptr)
		{
			return;
		}
		for (Poco::Thread* thread : {&AgentAccess::checkerThread(*agent), &AgentAccess::reciverThread(*agent),
		                             &AgentAccess::senderThread(*agent)})
		{
			EXPECT_TRUE(thread->tryJoin(10000));
		}
	}

	static std::string recordedTime()
	{
		return sandbox::readFile(velarix::kRunInfoPath).substr(std::string("[TRACE]\nLAST_RUN_TIME = ").size(), 14);
	}

	static void expectEvent(const std::string& event)
	{
		EXPECT_TRUE(waitFor([&] { return testing::Matches(Contains(event))(events::all()); }, 10s, event));
	}

	/// Reads heartbeats until `wanted` comes; fails after a hundred others.
	void expectHeartbeat(const std::string& wanted)
	{
		std::string last;
		for (int i = 0; i < 100; ++i)
		{
			last = partner.hear();
			if (last == wanted)
			{
				return;
			}
		}
		FAIL() << "no heartbeat " << wanted << "; last: " << last;
	}

	Partner partner;
	std::unique_ptr<CAgent> agent;
	std::atomic<bool> stopping{false};
};

TEST_F(AgentWorkers, AllThreeComeUpUnderTheLabelNoName)
{
	start();
	expectEvent("log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0");
	expectEvent("log D CHeartReciver:94 Reciver while start");
	expectEvent("log I CHeartSender:37 Sender thread run started[noName]");
	expectEvent("log D CHeartSender:124 beat sent[noName]:/process/0/2/" + recordedTime() + "/0/");
}

TEST_F(AgentWorkers, TheFirstHeartbeatCarriesTheStartTimeThatWasRecorded)
{
	start();
	EXPECT_EQ(partner.hear(), "/process/0/2/" + recordedTime() + "/0/");
	EXPECT_NE(recordedTime(), "20240131235959");
}

TEST_F(AgentWorkers, WhatTheCheckerFindsReachesThePartner)
{
	letTheProgramRun();
	start();
	expectHeartbeat("/process/1/2/" + recordedTime() + "/0/");
	EXPECT_TRUE(agent->isRunning());
}

TEST_F(AgentWorkers, AHeartbeatOfTheMasterReachesTheDecision)
{
	start();
	Partner::say("/process/1/1/20240101000000/0/");
	expectEvent("log D CHeartReciver:164 received message: /process/1/1/20240101000000/0/");
	expectEvent("log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK");
}

TEST_F(AgentWorkers, AnAskOfThePartnerMakesThisNodeMasterAndItsHeartbeatsSaySo)
{
	letTheProgramRun();
	start();
	Partner::say("/process/0/2/20240101000000/1/");
	expectHeartbeat("/process/1/1/" + recordedTime() + "/0/");
	EXPECT_EQ(velarix::loadShared(AgentAccess::mode(*agent)), MODE_MASTER);
	expectEvent("log D ProcessChecker:103 ProcessRuning[noName][MODE:M]: 1");
	EXPECT_THAT(events::only({"system"}), ElementsAre("system chmod 755 /usr/velarix/bin/ini/processList.sh",
	                                                  "system /usr/velarix/bin/ini/processList.sh"));
}

TEST_F(AgentWorkers, AMasterWithoutItsProgramAsksThePartnerInItsHeartbeats)
{
	start();
	velarix::storeShared(AgentAccess::mode(*agent), MODE_MASTER);
	expectHeartbeat("/process/0/2/" + recordedTime() + "/1/");
	// The first stop is the construction's.
	EXPECT_THAT(events::only({"log D CHeartReciver:106", "command vip-", "log I Utill:573 command(vip-", "system"}),
	            ElementsAre("command vip-stop",
	                        "log I Utill:573 command(vip-stop) : ", "log D CHeartReciver:106 stop virtual IP",
	                        "command vip-stop", "log I Utill:573 command(vip-stop) : "));
	EXPECT_EQ(velarix::loadShared(AgentAccess::mode(*agent)), MODE_SLAVE);
}

TEST_F(AgentWorkers, TheSpareThreadNeverRuns)
{
	start();
	expectEvent("log D CHeartSender:124 beat sent[noName]:/process/0/2/" + recordedTime() + "/0/");
	EXPECT_TRUE(AgentAccess::checkerThread(*agent).isRunning());
	EXPECT_TRUE(AgentAccess::reciverThread(*agent).isRunning());
	EXPECT_TRUE(AgentAccess::senderThread(*agent).isRunning());
	EXPECT_FALSE(AgentAccess::spareThread(*agent).isRunning());
}

TEST_F(AgentWorkers, AThreadThatRunsAlreadyEndsTheStartButNotTheCheckers)
{
	agent = std::make_unique<CAgent>(2);
	AgentAccess::reciverThread(*agent).startFunc(
	    [&]
	    {
		    while (!stopping)
		    {
			    std::this_thread::yield();
		    }
	    });
	agent->startThread();
	EXPECT_THAT(events::only({"log E"}), ElementsAre("log E CAgent:160 System exception: thread already running"));
	EXPECT_TRUE(AgentAccess::sender(*agent).isNull());
	expectEvent("log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0");
}

} // namespace
