/// The one agent of the daemon: owner of the state that the workers share.
///
/// Construction brings the node to a clean state (run script rewritten, virtual
/// IP dropped, managed programs killed); startThread records the start time and
/// starts the checker, the receiver and the sender, in this order, so that the
/// node listens before it sends. From then on the workers decide everything.
///
/// The role, the running flag and the list of handles are plain values that the
/// worker threads read and write through their addresses; the receiver alone
/// writes the role, the checker the flag (besides it only processStart and the
/// workers' startProcess, which no loop calls). The list stays null: the run-script
/// launcher yields no handles.
#pragma once

#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/Thread.h>

#include "CHeartReciver.h"
#include "CHeartSender.h"
#include "ProcessChecker.h"
#include "velarix/velarix.h"

class CAgent
{
public:
	/// Makes the node clean, whatever role follows. A role other than 1 and 2 is
	/// logged and kept. Ends the daemon when the run script cannot be written.
	explicit CAgent(MODE mode);

	/// Logs; neither stops the threads nor the virtual IP nor the programs. It is
	/// not reached in normal operation.
	virtual ~CAgent();

	CAgent(const CAgent&) = delete;
	CAgent& operator=(const CAgent&) = delete;

	/// Records the start time and starts the three workers. A Poco::Exception is
	/// logged; workers already started go on and the later ones are not made.
	void startThread();

	/// Writes the current time into the run-info record; a Poco::Exception is logged.
	void saveStartedTime();

	/// Starts the managed programs without the virtual IP. Ends the daemon on a
	/// Poco::Exception. Not called by the daemon.
	/// @return true
	bool processStart();

	/// Not called by the daemon.
	/// @return the shared running flag
	bool isRunning();

	/// Kills the managed programs if any runs. Ends the daemon when that fails.
	/// Not called by the daemon.
	/// @return true
	bool kill();

	void masterInit();
	void slaveInit();

	/// Rewrites the run script from the configured programs (RunScript.cpp). Ends
	/// the daemon when it cannot be written.
	void makeProcessRunShellScript();

	/// @return `path` up to and with its last "/", arguments included in the
	///         search; empty without a "/"
	std::string getProcessLocation(std::string& path);

private:
	friend class AgentAccess;

	std::vector<Poco::ProcessHandle*>* m_pProcessHandles;
	MODE m_mode;
	bool m_bProcessRunning;
	std::string m_processLocation;
	OBSERVATION_MODE m_observationMode;
	Poco::AutoPtr<ProcessChecker> m_pChecker;
	Poco::AutoPtr<CHeartSender> m_pSender;
	Poco::AutoPtr<CHeartReciver> m_pReciver;
	Poco::Thread m_checkerThread;
	Poco::Thread m_senderThread;
	Poco::Thread m_reciverThread;
	Poco::Thread m_spareThread; ///< never started
};
