#include "CHeartSender.h"

#include <ios>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/SocketStream.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Thread.h>
#include <Poco/Timespan.h>

#include "Configuraion.h"
#include "HeartbeatMessage.h"
#include "Outside.h"
#include "QuorinINI.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kSource[] = "CHeartSender";

/// Sends the text as the connection's only one, and closes the connection. A stream
/// swallows errors unless asked otherwise, and a heartbeat that did not go out must
/// not be logged as sent.
/// @throws Poco::Exception when the text could not be sent
void sendAndClose(Poco::Net::StreamSocket& socket, const std::string& text)
{
	Poco::Net::SocketStream stream(socket);
	stream.exceptions(std::ios::badbit | std::ios::failbit);
	try
	{
		stream << text;
		stream.flush();
	}
	catch (const std::ios_base::failure& exc)
	{
		throw Poco::Net::NetException("heartbeat", exc.what());
	}
	socket.shutdownSend();
	socket.close();
}

} // namespace

CHeartSender::CHeartSender(std::vector<Poco::ProcessHandle*>** ppProcessHandles, bool* pProcessRunning, MODE* pMode,
                           std::string& processLocation)
    : m_pProcessRunning(pProcessRunning), m_ppProcessHandles(ppProcessHandles), m_pMode(pMode),
      m_processLocation(processLocation)
{
}

CHeartSender::~CHeartSender() = default;

void CHeartSender::run()
{
	velarixLog->info(kSource, 37, "Sender thread run started[%s]", m_processLocation.c_str());
	if (velarix::loadShared(*m_pMode) == MODE_UNSET)
	{
		velarixLog->error(kSource, 40, "%s", "mode is 0");
		return;
	}
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	m_partnerIP = pConf->getString("AGENT.PARTNER_IP");
	m_nPort = pConf->getInt("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT");
	const int interval = pConf->getInt("AGENT.HEART_BEAT_INTERVAL");
	std::unique_ptr<Poco::Net::StreamSocket> socket;
	for (;;)
	{
		try
		{
			const Poco::Timespan timeout(pConf->getInt("AGENT.MAX_HEART_BEAT_RECEIING_TIME"), 0);
			if (m_nPort == 0)
			{
				velarix::fatal("m_nPort != 0", kSource, 57, "virtual void CHeartSender::run()");
			}
			socket.reset();
			socket = connect(timeout);
			sendMessage(*socket);
		}
		catch (const Poco::Exception& exc)
		{
			velarixLog->error(kSource, 128, "%s[%s]", exc.displayText().c_str(), m_processLocation.c_str());
		}
		Poco::Thread::sleep(1000L * interval);
	}
}

/// Tries until it succeeds, with a pause of two seconds after each failure.
std::unique_ptr<Poco::Net::StreamSocket> CHeartSender::connect(const Poco::Timespan& timeout)
{
	for (;;)
	{
		try
		{
			auto socket = std::make_unique<Poco::Net::StreamSocket>();
			socket->connect(Poco::Net::SocketAddress(m_partnerIP, static_cast<Poco::UInt16>(m_nPort)), timeout);
			return socket;
		}
		catch (const Poco::Exception& exc)
		{
			velarixLog->error(kSource, 79, "Sender %s(CODE: %d)[%s]", exc.displayText().c_str(), exc.code(),
			                  m_processLocation.c_str());
		}
		Poco::Thread::sleep(2000);
	}
}

std::string CHeartSender::composeMessage()
{
	HeartbeatMessage message;
	message.prefix = kHeartbeatPrefix;
	message.processRunning = boolToString(velarix::loadShared(*m_pProcessRunning));
	message.role = velarix::loadShared(*m_pMode) == MODE_MASTER ? kHeartbeatMaster : kHeartbeatSlave;
	message.startedTime = getProcessStartedTime();
	message.specialAsk = velarix::loadShared(g_specialAsking) == 1 ? kHeartbeatAsking : kHeartbeatNotAsking;
	return composeHeartbeat(message);
}

void CHeartSender::sendMessage(Poco::Net::StreamSocket& socket)
{
	const std::string message = composeMessage();
	sendAndClose(socket, message);
	velarixLog->debug(kSource, 124, "beat sent[%s]:%s", m_processLocation.c_str(), message.c_str());
}

bool CHeartSender::isPartnerNetworkOK()
{
	try
	{
		return outside::ping(m_partnerIP, 5) > 0;
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 150, "%s[CODE:%d]", exc.displayText().c_str(), exc.code());
		return false;
	}
}

// The reader and the two writers of the record choose the key by rules that
// differ: "master1" and "master2" are known here alone ("master2" being the slave
// key), "slaveAlone" to this class's writer alone. Records on operators' disks were
// written by these rules, so they stay apart. Pinned by RunInfoKeys.
std::string CHeartSender::getProcessStartedTime()
{
	const Poco::Mutex::ScopedLock lock(g_runTimeRecodeMutex);
	try
	{
		initialization record;
		record.loadFile(velarix::kRunInfoPath);
		std::string key = "TRACE.LAST_RUN_TIME";
		if (m_processLocation == "master" || m_processLocation == "master1")
		{
			key = "TRACE.MASTER_LAST_RUN_TIME";
		}
		else if (m_processLocation == "slave" || m_processLocation == "master2")
		{
			key = "TRACE.SLAVE_LAST_RUN_TIME";
		}
		return record.getString(key);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 176, "%s[%s]", exc.displayText().c_str(), m_processLocation.c_str());
		velarix::fatal("(1==0) && \"read ini error\"", kSource, 177,
		               "std::string CHeartSender::getProcessStartedTime()");
	}
}

bool CHeartSender::startProcess()
{
	const Poco::Mutex::ScopedLock handlerLock(g_handlerMutex);
	const Poco::Mutex::ScopedLock pidLock(g_pIDMutex);
	try
	{
		if (!velarix::loadShared(*m_pProcessRunning))
		{
			velarixLog->debug(kSource, 194, "%s", "try to process run");
			Utill::voidProcessRun(false);
			velarix::storeShared(*m_pProcessRunning, true);
			saveStartedTime();
			return true;
		}
		velarixLog->error(kSource, 205, "%s", "tried to start process. but it's already running");
	}
	catch (const Poco::NotFoundException& exc)
	{
		velarixLog->error(kSource, 210, "%s: NotFoundException", exc.displayText().c_str());
	}
	catch (const Poco::NoPermissionException& exc)
	{
		velarixLog->error(kSource, 214, "%s: NoPermissionException", exc.displayText().c_str());
	}
	catch (const Poco::SystemException& exc)
	{
		velarixLog->error(kSource, 218, "%s: SystemException", exc.displayText().c_str());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 222, "%s", exc.displayText().c_str());
	}
	catch (...)
	{
		velarixLog->error(kSource, 226, "%s", "UNKNOWN ERROR");
	}
	return false;
}

void CHeartSender::saveStartedTime()
{
	const Poco::Mutex::ScopedLock lock(g_runTimeRecodeMutex);
	try
	{
		const std::string time = getCurrentTime();
		initialization record;
		record.loadFile(velarix::kRunInfoPath);
		std::string key = "TRACE.LAST_RUN_TIME";
		if (m_processLocation == "master")
		{
			key = "TRACE.MASTER_LAST_RUN_TIME";
		}
		else if (m_processLocation == "slave" || m_processLocation == "slaveAlone")
		{
			key = "TRACE.SLAVE_LAST_RUN_TIME";
		}
		record.changeINI(key, time);
		velarixLog->debug(kSource, 249, "run info file changed:%s(%s)[%s]", key.c_str(), time.c_str(),
		                  m_processLocation.c_str());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 253, "%s", exc.displayText().c_str());
	}
}

std::string CHeartSender::getCurrentTime()
{
	return ::getCurrentTime();
}

int CHeartSender::getDBMode()
{
	return 1;
}

CHeartSender* CHeartSender::duplicate()
{
	++m_refCount;
	return this;
}

void CHeartSender::release()
{
	if (--m_refCount == 0)
	{
		delete this;
	}
}
