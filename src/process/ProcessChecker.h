/// The worker that keeps the shared process-running flag up to date.
///
/// Once a cycle it counts the managed processes, stores the answer in the
/// agent's flag and logs it with the node's role. It starts and kills nothing.
/// It runs on a thread of its own for the life of the process.
#pragma once

#include <string>
#include <vector>

#include <Poco/Runnable.h>

#include "velarix/velarix.h"

namespace Poco
{
class ProcessHandle;
}

class ProcessChecker : public Poco::Runnable
{
public:
	/// Reads its settings once. The three pointers stay the agent's; a null
	/// running flag ends the daemon.
	ProcessChecker(std::vector<Poco::ProcessHandle*>** ppProcessHandles, bool* bProcessRuning, MODE* pMode,
	               std::string& processLocation);
	~ProcessChecker() override;

	ProcessChecker(const ProcessChecker&) = delete;
	ProcessChecker& operator=(const ProcessChecker&) = delete;

	/// The thread body; never returns. An exception of one cycle is logged and
	/// the next cycle follows.
	void run() override;

	/// @return "PROCESS_CHECK.PROCESS_CHECK_CYCLE" in milliseconds, kept within
	///         the range of an int
	int getCheckingCycle();

	/// Appends the configured program paths to the list.
	void getProcessList();

	/// Runs the kill command on "AGENT.RELATED_PROCESS", if there is one.
	/// Not called by the daemon.
	void killRelatedProcess();

	/// Reference count for Poco::AutoPtr: 1 at construction; the object deletes
	/// itself when it reaches 0. Not safe across threads.
	ProcessChecker* duplicate();
	void release();

private:
	friend class WorkerAccess;

	void checkOnce();

	// The agent's, shared with the other workers.
	MODE* m_pMode = nullptr;
	bool* m_bProcessRunning = nullptr;
	std::vector<Poco::ProcessHandle*>** m_ppProcessHandles = nullptr;

	// Constant after construction.
	std::string m_processLocation;
	std::string m_relatedProcess;
	std::string m_killCommand;
	std::vector<std::string> m_processList; ///< kept; each check asks the settings anew
	std::string m_startTime;                ///< time of construction, 14 digits; nothing reads it
	int m_nCheckingCycle = 0;               ///< milliseconds
	OBSERVATION_MODE m_observationMode = OBSERVATION_MODE_2;

	int m_refCount = 1;
};
