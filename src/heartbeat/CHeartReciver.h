/// The worker that listens for the partner, judges this node and decides who is
/// master.
///
/// Each iteration of its loop first judges the node's own network and, on a
/// master, its managed programs; then it listens for one heartbeat connection.
/// Every message goes to the decision table; a time-out is counted on a standby.
///
/// Own status: OK (1) at the start, NOT OK (0) after a failed network check,
/// back to OK only by the decision table. It selects the half of the table.
/// Listening socket: none, listening, none again after every served connection,
/// counted time-out, take-over and error. It is kept when the own checks end the
/// iteration, over a master's time-out, an interface without carrier and a partner that
/// sends nothing but still answers pings.
///
/// The role is the agent's, written here alone once the threads run; the sender
/// and the checker read it. Everything else belongs to the receiver's thread.
#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Runnable.h>
#include <Poco/Timespan.h>

#include "velarix/velarix.h"

namespace Poco
{
class ProcessHandle;
}

class CHeartReciver : public Poco::Runnable
{
public:
	/// Stores the pointers, which stay the agent's, copies the label and calls init.
	CHeartReciver(std::vector<Poco::ProcessHandle*>** ppProcessHandles, bool* pProcessRunning, MODE* pMode,
	              std::string& processLocation);
	~CHeartReciver() override;

	CHeartReciver(const CHeartReciver&) = delete;
	CHeartReciver& operator=(const CHeartReciver&) = delete;

	/// Reads "AGENT.IGNORE_TIME".
	void init();

	/// The thread body; never returns. Ends the daemon when the listening socket
	/// cannot be made; an exception of the own checks ends the thread.
	void run() override;

	/// Writes the shared role. Not called by the daemon.
	void setMode(MODE mode);

	/// Splits, checks and judges one received text (CHeartReciverDecision.cpp).
	/// A text that is no heartbeat changes nothing.
	/// @throws Poco::Exception of the configuration, process or address control
	void ParsingReceivedMessage(const std::string& message);

	/// Puts the node back into its configured role, "AGENT.MODE".
	void resetProcess();

	/// The node's network as its role needs it; may change the role and start or
	/// kill the managed programs (CHeartReciverStatus.cpp).
	/// @return 1 OK, 0 not OK
	int networkStatus();

	/// @return 1 on any node that is not master; on a master 1 while the managed
	///         programs run, else 0
	int processStatus();

	/// @return 1 when eth0 (service) or eth1 (communication) has carrier, else 0
	int serviceLanCardCheck();
	int ComunicationLanCardCheck();

	/// Not called by the daemon.
	/// @return true when the gateway answers at least one of ten pings
	bool isMyNetworkOK();

	/// Waits half a second. Not called by the daemon.
	/// @return true when the last heartbeat is no older than "AGENT.IGNORE_TIME" seconds
	bool isKeepingUpMessage();

	/// Makes this node master and starts the programs (CHeartReciverStart.cpp). Not called by the daemon.
	void failOver();

	/// Starts the managed programs and records the time. Ends the daemon
	/// (assertion "1== 0") when the shared flag says that they run already or
	/// when the start raises an exception. Called by failOver alone.
	/// @return true
	bool startProcess();

	/// Writes the current time into the run-info record; a Poco::Exception is logged.
	/// Called by startProcess alone.
	void saveStartedTime();

	/// @return the local time now as 14 digits
	std::string getCurrentTime();

	/// Not called by the daemon.
	/// @param partnerTime the partner's start time, 14 digits
	/// @return true when this node's programs started earlier; false when equal
	bool isStartedProcessFaster(std::string& partnerTime);

	/// Reference count for Poco::AutoPtr: 1 at construction; the object deletes
	/// itself when it reaches 0. Not safe across threads.
	CHeartReciver* duplicate();
	void release();

private:
	friend class WorkerAccess;

	/// What becomes of the listening socket after a pass.
	enum class Listener
	{
		keep,
		drop
	};

	/// The loop's own state, alive as long as the thread.
	struct Loop
	{
		Poco::Timespan timeout;
		Poco::Net::SocketAddress address;
		std::unique_ptr<Poco::Net::ServerSocket> server;
		int nReceiveFailCount = 0;
	};

	void iterate(Loop& loop);
	bool judgeOwnNode();
	int networkStatusOfSlave();
	void listenOn(Loop& loop);
	Listener waitForPartner(Loop& loop);
	void serveConnection(Loop& loop);
	Listener judgeSilence(Loop& loop);
	void takeOverFromSilentPartner();

	void decideWhileOK(MODE partnerMode, const std::string& specialAsk);
	void decideWhileNotOK(MODE partnerMode, const std::string& specialAsk);
	void answerCheckOK(const std::string& specialAsk);
	void answerCheckNotOK(const std::string& specialAsk);
	void askCheckOK(const std::string& specialAsk);
	void askCheckNotOK(const std::string& specialAsk);
	void becomeMasterOnAsk();
	void askPartner();

	// The three pointers lead to the agent's values, shared with the other
	// workers; the settings and the label are constant after construction; the
	// rest is this thread's own.
	MODE* m_pMode;
	int m_ignoreTime = 0;                                   ///< seconds
	std::vector<Poco::ProcessHandle*>** m_ppProcessHandles; ///< kept, not used
	bool* m_pProcessRunning;
	std::string m_processLocation;
	std::time_t m_lastReceivedTime = 0;
	bool m_connectionDone = true; ///< set when a connection ends; nothing reads it
	int m_refCount = 1;
	std::int32_t m_myStatus = 1;        ///< 1 OK, 0 NOT OK
	std::int32_t m_specialAskCount = 0; ///< heartbeats counted while an ask is pending
};
