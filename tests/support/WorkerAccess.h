/// The tests' one way to the private state of the workers and the agent.
#pragma once

#include "CAgent.h"
#include "CHeartReciver.h"
#include "CHeartSender.h"
#include "ProcessChecker.h"

class WorkerAccess
{
public:
	static std::int32_t& myStatus(CHeartReciver& worker) { return worker.m_myStatus; }
	static std::int32_t& specialAskCount(CHeartReciver& worker) { return worker.m_specialAskCount; }
	static std::time_t& lastReceivedTime(CHeartReciver& worker) { return worker.m_lastReceivedTime; }
	static int& ignoreTime(CHeartReciver& worker) { return worker.m_ignoreTime; }
	static bool& connectionDone(CHeartReciver& worker) { return worker.m_connectionDone; }
	static int& refCount(CHeartReciver& worker) { return worker.m_refCount; }

	/// The part of an iteration before listening.
	static bool judgeOwnNode(CHeartReciver& worker) { return worker.judgeOwnNode(); }

	static int& port(CHeartSender& worker) { return worker.m_nPort; }
	static std::string& partnerIP(CHeartSender& worker) { return worker.m_partnerIP; }
	static int& refCount(CHeartSender& worker) { return worker.m_refCount; }

	static bool*& runningFlag(ProcessChecker& worker) { return worker.m_bProcessRunning; }
	static const std::string& startTime(ProcessChecker& worker) { return worker.m_startTime; }
	static const std::vector<std::string>& processList(ProcessChecker& worker) { return worker.m_processList; }
	static OBSERVATION_MODE observationMode(ProcessChecker& worker) { return worker.m_observationMode; }
	static int& refCount(ProcessChecker& worker) { return worker.m_refCount; }

	// What the agent handed to any of the three workers.
	template <typename Worker> static MODE* sharedMode(Worker& worker) { return worker.m_pMode; }
	template <typename Worker> static auto sharedHandles(Worker& worker) { return worker.m_ppProcessHandles; }
	template <typename Worker> static const std::string& location(Worker& worker) { return worker.m_processLocation; }
	static bool* sharedFlag(CHeartReciver& worker) { return worker.m_pProcessRunning; }
	static bool* sharedFlag(CHeartSender& worker) { return worker.m_pProcessRunning; }
	static bool* sharedFlag(ProcessChecker& worker) { return worker.m_bProcessRunning; }
};

class AgentAccess
{
public:
	static MODE& mode(CAgent& agent) { return agent.m_mode; }
	static bool& running(CAgent& agent) { return agent.m_bProcessRunning; }
	static std::string& processLocation(CAgent& agent) { return agent.m_processLocation; }
	static std::vector<Poco::ProcessHandle*>*& handles(CAgent& agent) { return agent.m_pProcessHandles; }
	static OBSERVATION_MODE observationMode(CAgent& agent) { return agent.m_observationMode; }
	static Poco::AutoPtr<ProcessChecker>& checker(CAgent& agent) { return agent.m_pChecker; }
	static Poco::AutoPtr<CHeartSender>& sender(CAgent& agent) { return agent.m_pSender; }
	static Poco::AutoPtr<CHeartReciver>& reciver(CAgent& agent) { return agent.m_pReciver; }
};
