#include "ReceiverLoop.h"

#include "SocketCalls.h"

namespace
{

constexpr char kPassBegins[] = "log D CHeartReciver:94 Reciver while start";

using Actions = std::map<int, std::function<void()>>;

/// Each action is run once at most: what is left in the end was never run.
void runAction(Actions& actions, std::size_t n)
{
	if (auto action = actions.extract(static_cast<int>(n)); !action.empty())
	{
		action.mapped()();
	}
}

void expectNoneLeft(const Actions& actions, const char* moment)
{
	for (const auto& [n, action] : actions)
	{
		ADD_FAILURE() << "the action of " << moment << " " << n << " was never run";
	}
}

} // namespace

void ReceiverLoop::SetUp()
{
	ReceiverTest::SetUp();
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", "1\n");
	fakeoutside::commandPrints("cat /sys/class/net/eth1/carrier", "1\n");
	socketcalls::pollWithoutWaiting([this] { return !std::exchange(m_partnerCalls, false); });
	socketcalls::after("listen", [this] { runAction(m_atListen, ++m_listens); });
	onLogLine([this](const std::string& event) { onLine(event); });
}

void ReceiverLoop::TearDown()
{
	expectNoneLeft(m_atPass, "pass");
	expectNoneLeft(m_atListen, "listening");
	ReceiverTest::TearDown();
}

void ReceiverLoop::beMaster()
{
	mode = MODE_MASTER;
	programRuns(true);
}

events::List ReceiverLoop::passes(int n)
{
	m_lastPass = n;
	EXPECT_THROW(receiver->run(), events::EndOfScript);
	const events::List all = events::all();
	// The line with which the next pass began has ended the run.
	return events::List(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(m_firstEvents.back()));
}

events::List ReceiverLoop::pass(int n)
{
	const events::List all = passes(n);
	return events::List(all.begin() + static_cast<std::ptrdiff_t>(m_firstEvents.at(static_cast<std::size_t>(n) - 1)),
	                    all.end());
}

void ReceiverLoop::atPass(int n, std::function<void()> action)
{
	m_atPass[n] = std::move(action);
}

void ReceiverLoop::atListen(int n, std::function<void()> action)
{
	m_atListen[n] = std::move(action);
}

void ReceiverLoop::partnerSends(const std::string& bytes)
{
	peer::connectTo(kPort).send(bytes);
	m_partnerCalls = true;
}

peer::Socket& ReceiverLoop::partnerConnects()
{
	connections.push_back(std::make_unique<peer::Socket>(peer::connectTo(kPort)));
	m_partnerCalls = true;
	return *connections.back();
}

bool ReceiverLoop::partnerFindsReceiver()
{
	m_partnerCalls = peer::somebodyListensOn(kPort);
	return m_partnerCalls;
}

void ReceiverLoop::onLine(const std::string& event)
{
	if (event != kPassBegins)
	{
		return;
	}
	m_firstEvents.push_back(events::all().size() - 1);
	if (m_firstEvents.size() > static_cast<std::size_t>(m_lastPass))
	{
		throw events::EndOfScript{};
	}
	runAction(m_atPass, m_firstEvents.size());
}

namespace steps
{

events::List partnerAnswers()
{
	return {"log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2", "ping 10.0.0.2 x10",
	        "log D Utill:760 partnerComunicationIPcheck : true"};
}

events::List partnerIsSilent()
{
	return {"log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2", "ping 10.0.0.2 x10",
	        "log D Utill:768 partnerComunicationIPcheck : false"};
}

events::List serviceAnswers()
{
	return {"log D Utill:797 serviceIPcheck : START", "ping 10.0.1.100 x10",
	        "log D Utill:807 serviceIP[10.0.1.100],serviceIPcheck : true"};
}

events::List slaveJudged()
{
	return join({"log D CHeartReciver:94 Reciver while start", "log D CHeartReciver:500 networkStatus : start",
	             "log D CHeartReciver:538 networkStatus : SLAVE", partnerAnswers(),
	             "log D CHeartReciver:96 networkResult: 1"});
}

events::List slaveJudgedWithPartnerSilent()
{
	return join({"log D CHeartReciver:94 Reciver while start", "log D CHeartReciver:500 networkStatus : start",
	             "log D CHeartReciver:538 networkStatus : SLAVE", partnerIsSilent(), serviceAnswers(),
	             "log D CHeartReciver:96 networkResult: 1"});
}

events::List masterJudged()
{
	return join(
	    {"log D CHeartReciver:94 Reciver while start", "log D CHeartReciver:500 networkStatus : start",
	     "log D CHeartReciver:505 networkStatus : MASTER network check...",
	     "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	     "log D Utill:783 myComunicationIPcheck : TRUE", serviceAnswers(), "command cat /sys/class/net/eth0/carrier",
	     "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n", "log D CHeartReciver:96 networkResult: 1",
	     "log D CHeartReciver:561 processStatus : start", "log D CHeartReciver:564 processStatus : OK"});
}

events::List carrierLookedAt(const std::string& carrier)
{
	return {"command cat /sys/class/net/eth1/carrier",
	        "log I Utill:573 command(cat /sys/class/net/eth1/carrier) : " + carrier + "\n\n"};
}

events::List silence()
{
	return {"log E CHeartReciver:146 Reciver Connect Timed Out", "sleep 1000"};
}

events::List counted(const char* line)
{
	return join({silence(), carrierLookedAt("1"), kCardOK, line, dropped()});
}

events::List thirdSilence()
{
	return join({silence(), carrierLookedAt("1"), kCardOK, kThird, carrierLookedAt("1")});
}

events::List heartbeatOfMaster()
{
	return {"log D CHeartReciver:164 received message: /process/1/1/20240131235959/0/",
	        "log D CHeartReciver:249 szTmp[process] szPreFix[process]",
	        "log D CHeartReciver:287 My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK",
	        "log D CHeartReciver:350 szTmp[1] szPartnerProcessRunning[0]", "sleep 500"};
}

events::List dropped()
{
	return {"log D CHeartReciver:84 delete server", "log D CHeartReciver:87 Reciver while end",
	        "log D CHeartReciver:88 "};
}

} // namespace steps
