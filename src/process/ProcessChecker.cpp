#include "ProcessChecker.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include <Poco/Exception.h>
#include <Poco/Thread.h>

#include "Configuraion.h"
#include "ShellRunner.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kSource[] = "ProcessChecker";
constexpr char kConstructor[] =
    "ProcessChecker::ProcessChecker(std::vector<Poco::ProcessHandle*>**, bool*, MODE*, std::string&)";

} // namespace

ProcessChecker::ProcessChecker(std::vector<Poco::ProcessHandle*>** ppProcessHandles, bool* bProcessRuning, MODE* pMode,
                               std::string& processLocation)
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	m_relatedProcess = pConf->getString("AGENT.RELATED_PROCESS");
	m_killCommand = pConf->getString("ADVENCE.PROCESS_KILL_COMMAND");
	m_killCommand += " " + m_relatedProcess;
	m_startTime = getCurrentTime();
	if (bProcessRuning == nullptr)
	{
		velarix::fatal("bProcessRuning != __null", kSource, 33, kConstructor);
	}
	m_pMode = pMode;
	m_ppProcessHandles = ppProcessHandles;
	m_bProcessRunning = bProcessRuning;
	m_processLocation = processLocation;
	m_nCheckingCycle = getCheckingCycle();
	m_observationMode = Utill::getObservationMode();
	getProcessList();
	if (m_bProcessRunning == nullptr)
	{
		velarix::fatal("m_bProcessRunning != __null", kSource, 43, kConstructor);
	}
}

ProcessChecker::~ProcessChecker() = default;

int ProcessChecker::getCheckingCycle()
{
	const int seconds = Configuraion::getInstance(velarix::kSettingsPath)->getInt("PROCESS_CHECK.PROCESS_CHECK_CYCLE");
	// An int holds 24 days of milliseconds. A longer cycle must not overflow into a negative
	// pause: the node would check without any.
	return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{seconds} * 1000, std::numeric_limits<int>::min(),
	                                                 std::numeric_limits<int>::max()));
}

void ProcessChecker::getProcessList()
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	const int number = pConf->getInt("PROCESS_CHECK.PROCESS_NUM");
	for (int i = 1; i <= number; ++i)
	{
		m_processList.push_back(pConf->getString("PROCESS_CHECK.PROCESS_PATH" + Utill::intToString(i)));
	}
	velarixLog->debug(kSource, 69, "process list loaded[%s]", m_processLocation.c_str());
}

void ProcessChecker::killRelatedProcess()
{
	if (!m_relatedProcess.empty())
	{
		shellCommand(m_killCommand);
	}
}

void ProcessChecker::run()
{
	for (;;)
	{
		checkOnce();
		Poco::Thread::sleep(m_nCheckingCycle);
	}
}

void ProcessChecker::checkOnce()
{
	g_handlerMutex.lock();
	g_pIDMutex.lock();
	if (m_bProcessRunning == nullptr)
	{
		velarix::fatal("m_bProcessRunning != __null", kSource, 96, "virtual void ProcessChecker::run()");
	}
	try
	{
		velarix::storeShared(*m_bProcessRunning, Utill::isProcessRunning(m_observationMode));
		velarixLog->notice(kSource, 103, "ProcessRuning[%s][MODE:%s]: %d", m_processLocation.c_str(),
		                   velarix::loadShared(*m_pMode) == MODE_MASTER ? "M" : "S",
		                   velarix::loadShared(*m_bProcessRunning) ? 1 : 0);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 107, "%s", exc.displayText().c_str());
	}
	catch (...)
	{
		velarixLog->error(kSource, 111, "%s", "UNKNOWN ERROR");
	}
	g_handlerMutex.unlock();
	g_pIDMutex.unlock();
}

ProcessChecker* ProcessChecker::duplicate()
{
	++m_refCount;
	return this;
}

void ProcessChecker::release()
{
	if (--m_refCount == 0)
	{
		delete this;
	}
}
