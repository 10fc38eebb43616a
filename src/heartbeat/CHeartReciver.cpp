#include "CHeartReciver.h"

#include <array>
#include <cmath>

#include <Poco/Exception.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Thread.h>

#include "Configuraion.h"
#include "Probes.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

std::int32_t g_specialAsking = 0;

namespace
{

constexpr char kSource[] = "CHeartReciver";
constexpr int kBacklog = 64;
/// At so many silences in a row the partner is given up: the third acts.
/// (kCountedHeartbeats of CHeartReciverDecision.cpp acts at the fourth heartbeat.)
constexpr int kCountedSilences = 3;
constexpr int kMessageSize = 256;

} // namespace

CHeartReciver::CHeartReciver(std::vector<Poco::ProcessHandle*>** ppProcessHandles, bool* pProcessRunning, MODE* pMode,
                             std::string& processLocation)
    : m_pMode(pMode), m_ppProcessHandles(ppProcessHandles), m_pProcessRunning(pProcessRunning),
      m_processLocation(processLocation)
{
	init();
}

CHeartReciver::~CHeartReciver() = default;

void CHeartReciver::init()
{
	m_ignoreTime = Configuraion::getInstance(velarix::kSettingsPath)->getInt("AGENT.IGNORE_TIME");
}

void CHeartReciver::setMode(MODE mode)
{
	velarix::storeShared(*m_pMode, mode);
}

void CHeartReciver::run()
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	Loop loop;
	loop.timeout.assign(pConf->getInt("AGENT.MAX_HEART_BEAT_RECEIING_TIME"), 0);
	const std::string host = pConf->getString("AGENT.THIS_SERVER_IP");
	const auto port = static_cast<Poco::UInt16>(pConf->getInt("AGENT.HEART_BEAT_RECEIVE_PORT"));
	loop.address = Poco::Net::SocketAddress(host, port);
	m_lastReceivedTime = std::time(nullptr);
	m_myStatus = 1;
	m_specialAskCount = 0;
	for (;;)
	{
		iterate(loop);
	}
}

void CHeartReciver::iterate(Loop& loop)
{
	if (!judgeOwnNode())
	{
		return;
	}
	if (loop.server == nullptr)
	{
		listenOn(loop);
	}
	try
	{
		if (waitForPartner(loop) == Listener::keep)
		{
			return;
		}
	}
	catch (const Poco::Exception& exc)
	{
		// No pause after a failure: the socket goes below, with whoever still waits in
		// its backlog, and the next pass listens anew for the partner's next heartbeat.
		// A failure that lasts repeats as fast as the loop runs.
		velarixLog->error(kSource, 79, "Server Error: %s[CODE: %d][%s]", exc.displayText().c_str(), exc.code(),
		                  m_processLocation.c_str());
	}
	if (loop.server != nullptr)
	{
		velarixLog->debug(kSource, 84, "%s", "delete server");
		loop.server.reset();
	}
	velarixLog->debug(kSource, 87, "%s", "Reciver while end");
	velarixLog->debug(kSource, 88, "%s", "");
}

/// @return false when the iteration ends here, the listening socket untouched
bool CHeartReciver::judgeOwnNode()
{
	velarixLog->debug(kSource, 94, "%s", "Reciver while start");
	const int result = networkStatus();
	velarixLog->debug(kSource, 96, "networkResult: %d", result);
	if (result == 0 && m_myStatus == 1)
	{
		velarixLog->debug(kSource, 99, "networkStatus [%d] m_myStatus[%d]", result, m_myStatus);
		m_myStatus = 0;
		Poco::Thread::sleep(1000);
		return false;
	}
	if (processStatus() == 0)
	{
		velarixLog->debug(kSource, 106, "%s", "stop virtual IP");
		velarix::storeShared(*m_pMode, MODE_SLAVE);
		Utill::stopVirtualIP();
		askPartner();
		Poco::Thread::sleep(1000);
		return false;
	}
	return true;
}

void CHeartReciver::askPartner()
{
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	m_specialAskCount = 0;
}

void CHeartReciver::listenOn(Loop& loop)
{
	velarixLog->debug(kSource, 124, "%s", "new server");
	try
	{
		// Reuse of the address alone: with the library's reuse of the port two
		// agents on one address would share the heartbeats without a word.
		loop.server = std::make_unique<Poco::Net::ServerSocket>();
		loop.server->bind(loop.address, true, false);
		loop.server->listen(kBacklog);
		loop.server->setKeepAlive(false);
		loop.server->setReceiveTimeout(loop.timeout);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 137, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 138, "virtual void CHeartReciver::run()");
	}
}

CHeartReciver::Listener CHeartReciver::waitForPartner(Loop& loop)
{
	if (!loop.server->poll(loop.timeout, Poco::Net::Socket::SELECT_READ))
	{
		velarixLog->error(kSource, 146, "%s", "Reciver Connect Timed Out");
		Poco::Thread::sleep(1000);
		return judgeSilence(loop);
	}
	velarixLog->debug(kSource, 150, "%s", "poll");
	loop.nReceiveFailCount = 0;
	serveConnection(loop);
	return Listener::drop;
}

void CHeartReciver::serveConnection(Loop& loop)
{
	std::array<char, kMessageSize> buffer{};
	Poco::Net::StreamSocket connection = loop.server->acceptConnection();
	// A client that came before the listening socket had its time-out inherited
	// none, and sending nothing would hold this thread for ever.
	connection.setReceiveTimeout(loop.timeout);
	int received = connection.receiveBytes(buffer.data(), kMessageSize);
	while (received > 0)
	{
		const std::string message(buffer.data(), static_cast<std::size_t>(received));
		velarixLog->debug(kSource, 164, "received message: %s", message.c_str());
		ParsingReceivedMessage(message);
		m_lastReceivedTime = std::time(nullptr);
		received = connection.receiveBytes(buffer.data(), kMessageSize);
		Poco::Thread::sleep(500);
	}
	m_connectionDone = true;
	connection.close();
}

CHeartReciver::Listener CHeartReciver::judgeSilence(Loop& loop)
{
	if (velarix::loadShared(*m_pMode) == MODE_MASTER)
	{
		return Listener::keep;
	}
	if (ComunicationLanCardCheck() == 0)
	{
		velarixLog->debug(kSource, 182, "%s", "COMUNICATION LAN CARD ERROR");
		return Listener::keep;
	}
	velarixLog->debug(kSource, 185, "%s", "COMUNICATION LAN CARD OK");
	++loop.nReceiveFailCount;
	if (loop.nReceiveFailCount < kCountedSilences)
	{
		velarixLog->debug(kSource, 189, "Reciver : nReceiveFailCount[%d]", loop.nReceiveFailCount);
		return Listener::drop;
	}
	velarixLog->debug(kSource, 192, "%s", "Reciver : no received message");
	loop.nReceiveFailCount = 0;
	if (ComunicationLanCardCheck() == 0)
	{
		velarixLog->debug(kSource, 196, "%s", "Reciver : my comunicationLanCard problem");
		return Listener::keep;
	}
	if (partnerComunicationIPcheck())
	{
		velarixLog->error(
		    kSource, 201, "%s",
		    "Reciver : Partner IP and Service IP are working, but I did not get any message from partner");
		return Listener::keep;
	}
	takeOverFromSilentPartner();
	return Listener::drop;
}

void CHeartReciver::takeOverFromSilentPartner()
{
	const OBSERVATION_MODE mode = Utill::getObservationMode();
	velarix::storeShared(*m_pMode, MODE_MASTER);
	if (Utill::isProcessRunning(mode))
	{
		velarixLog->debug(kSource, 215, "%s", "Reciver : kill");
		Utill::processKill();
	}
	velarixLog->debug(kSource, 218, "%s", "try to process run");
	Utill::voidProcessRun(false);
}

bool CHeartReciver::isKeepingUpMessage()
{
	Poco::Thread::sleep(500);
	return m_ignoreTime >= std::trunc(std::difftime(std::time(nullptr), m_lastReceivedTime));
}

CHeartReciver* CHeartReciver::duplicate()
{
	++m_refCount;
	return this;
}

void CHeartReciver::release()
{
	if (--m_refCount == 0)
	{
		delete this;
	}
}
