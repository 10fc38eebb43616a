#include "CAgent.h"

#include <Poco/Exception.h>

#include "QuorinINI.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kSource[] = "CAgent";

} // namespace

CAgent::CAgent(MODE mode)
    : m_pProcessHandles(nullptr), m_mode(mode), m_bProcessRunning(false), m_processLocation("noName"),
      m_observationMode(Utill::getObservationMode())
{
	makeProcessRunShellScript();
	velarixLog->debug(kSource, 25, "%s", "stop virtual ip, process");
	Utill::stopVirtualIP();
	Utill::processKill();
	switch (m_mode)
	{
	case MODE_MASTER:
		masterInit();
		velarixLog->info(kSource, 33, "%s", "Master CAgent()");
		break;
	case MODE_SLAVE:
		slaveInit();
		velarixLog->info(kSource, 38, "%s", "Slave CAgent()");
		break;
	default:
		velarixLog->error(kSource, 42, "wrong mode setting: %s", Utill::intToString(m_mode).c_str());
		break;
	}
}

CAgent::~CAgent()
{
	velarixLog->info(kSource, 49, "~CAgent()[%d]", velarix::loadShared(m_mode));
}

void CAgent::masterInit()
{
}

void CAgent::slaveInit()
{
}

bool CAgent::processStart()
{
	{
		const Poco::Mutex::ScopedLock lock(g_handlerMutex);
		try
		{
			velarixLog->debug(kSource, 71, "%s", "try to process run");
			Utill::voidProcessRun(true);
			velarix::storeShared(m_bProcessRunning, true);
			saveStartedTime();
			return true;
		}
		catch (const Poco::NotFoundException& exc)
		{
			velarixLog->error(kSource, 84, "%s: NotFoundException", exc.displayText().c_str());
		}
		catch (const Poco::NoPermissionException& exc)
		{
			velarixLog->error(kSource, 88, "%s: NoPermissionException", exc.displayText().c_str());
		}
		catch (const Poco::SystemException& exc)
		{
			velarixLog->error(kSource, 92, "%s: SystemException", exc.displayText().c_str());
		}
		catch (const Poco::Exception& exc)
		{
			velarixLog->error(kSource, 96, "%s", exc.displayText().c_str());
		}
	}
	velarix::fatal("1 == 0", kSource, 100, "bool CAgent::processStart()");
}

bool CAgent::isRunning()
{
	return velarix::loadShared(m_bProcessRunning);
}

bool CAgent::kill()
{
	if (!Utill::isProcessRunning(m_observationMode))
	{
		return true;
	}
	bool isKill = false;
	try
	{
		isKill = Utill::processKill();
		// At error level also on success: a kill of the service must stand out.
		velarixLog->error(kSource, 123, "process killed[%s]", m_processLocation.c_str());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 127, "%s", exc.displayText().c_str());
	}
	if (!isKill)
	{
		velarix::fatal("isKill == true", kSource, 131, "bool CAgent::kill()");
	}
	return true;
}

void CAgent::startThread()
{
	saveStartedTime();
	try
	{
		m_pChecker = new ProcessChecker(&m_pProcessHandles, &m_bProcessRunning, &m_mode, m_processLocation);
		m_checkerThread.start(*m_pChecker);
		m_pReciver = new CHeartReciver(&m_pProcessHandles, &m_bProcessRunning, &m_mode, m_processLocation);
		m_reciverThread.start(*m_pReciver);
		m_pSender = new CHeartSender(&m_pProcessHandles, &m_bProcessRunning, &m_mode, m_processLocation);
		m_senderThread.start(*m_pSender);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 160, "%s", exc.displayText().c_str());
	}
}

void CAgent::saveStartedTime()
{
	const Poco::Mutex::ScopedLock lock(g_runTimeRecodeMutex);
	try
	{
		const std::string time = getCurrentTime();
		const std::string key = "TRACE.LAST_RUN_TIME";
		initialization record;
		record.loadFile(velarix::kRunInfoPath);
		record.changeINI(key, time);
		velarixLog->debug(kSource, 179, "run time wrote:%s(%s)[%s]", key.c_str(), time.c_str(),
		                  m_processLocation.c_str());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 183, "%s", exc.displayText().c_str());
	}
}
