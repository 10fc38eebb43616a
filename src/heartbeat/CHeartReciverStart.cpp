// Each source file has its own copy of the shared locks: every user of the receiver's
// stays in this file.

#include <Poco/Exception.h>

#include "CHeartReciver.h"
#include "QuorinINI.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kSource[] = "CHeartReciver";
constexpr char kStartProcess[] = "bool CHeartReciver::startProcess()";

} // namespace

void CHeartReciver::failOver()
{
	{
		const Poco::Mutex::ScopedLock lock(g_modeMutex);
		velarix::storeShared(*m_pMode, MODE_MASTER);
		startProcess();
	}
	velarixLog->error(kSource, 598, "SLAVE->MASTER[%s]", m_processLocation.c_str());
}

// A second start would put every program on the node twice; ending the daemon
// is the lesser harm. Pinned by ReceiverStart.ASecondStartEndsTheDaemon.
bool CHeartReciver::startProcess()
{
	g_handlerMutex.lock();
	g_pIDMutex.lock();
	try
	{
		if (!velarix::loadShared(*m_pProcessRunning))
		{
			velarixLog->debug(kSource, 601, "%s", "try to process run");
			Utill::voidProcessRun(false);
			velarix::storeShared(*m_pProcessRunning, true);
			saveStartedTime();
			g_handlerMutex.unlock();
			g_pIDMutex.unlock();
			return true;
		}
		velarixLog->error(kSource, 604, "%s", "tried to start process. but it's already running");
	}
	catch (const Poco::NotFoundException& exc)
	{
		velarixLog->error(kSource, 606, "%s: NotFoundException", exc.displayText().c_str());
	}
	catch (const Poco::NoPermissionException& exc)
	{
		velarixLog->error(kSource, 608, "%s: NoPermissionException", exc.displayText().c_str());
	}
	catch (const Poco::SystemException& exc)
	{
		velarixLog->error(kSource, 610, "%s: SystemException", exc.displayText().c_str());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 612, "%s", exc.displayText().c_str());
	}
	catch (...)
	{
		velarixLog->error(kSource, 614, "%s", "UNKNOWN ERROR");
	}
	g_handlerMutex.unlock();
	g_pIDMutex.unlock();
	velarix::fatal("1== 0", kSource, 618, kStartProcess);
}

void CHeartReciver::saveStartedTime()
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
		else if (m_processLocation == "slave")
		{
			key = "TRACE.SLAVE_LAST_RUN_TIME";
		}
		record.changeINI(key, time);
		velarixLog->debug(kSource, 627, "run info file changed:%s(%s)[%s]", key.c_str(), time.c_str(),
		                  m_processLocation.c_str());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 631, "%s", exc.displayText().c_str());
	}
}

std::string CHeartReciver::getCurrentTime()
{
	return ::getCurrentTime();
}

bool CHeartReciver::isStartedProcessFaster(std::string& partnerTime)
{
	const Poco::Mutex::ScopedLock lock(g_runTimeRecodeMutex);
	initialization record;
	record.loadFile(velarix::kRunInfoPath);
	std::string ownTime = record.getString("TRACE.LAST_RUN_TIME");
	return string2double(partnerTime) - string2double(ownTime) > 0;
}
