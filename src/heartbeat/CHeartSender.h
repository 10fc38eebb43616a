/// The worker that reports to the partner, at a fixed interval, what this node does.
///
/// Each heartbeat goes out on a connection of its own; no answer is awaited. An
/// unreachable partner is tried again every two seconds without end. It runs on
/// a thread of its own for the life of the process.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Poco/Runnable.h>

#include "velarix/velarix.h"

namespace Poco
{
class ProcessHandle;
class Timespan;
namespace Net
{
class StreamSocket;
}
} // namespace Poco

class CHeartSender : public Poco::Runnable
{
public:
	/// Stores the pointers, which stay the agent's, and copies the label.
	CHeartSender(std::vector<Poco::ProcessHandle*>** ppProcessHandles, bool* pProcessRunning, MODE* pMode,
	             std::string& processLocation);
	~CHeartSender() override;

	CHeartSender(const CHeartSender&) = delete;
	CHeartSender& operator=(const CHeartSender&) = delete;

	/// The thread body. Returns at once when the role is unset; otherwise never.
	/// Ends the daemon when the partner's port is 0 or the run-info record
	/// cannot be read.
	void run() override;

	/// @return the start time of the managed programs as the run-info record
	///         holds it, 14 digits or empty. Ends the daemon when it cannot be read.
	std::string getProcessStartedTime();

	/// Writes the current time into the run-info record; a Poco::Exception is logged.
	/// Called by startProcess alone.
	void saveStartedTime();

	/// Starts the managed programs unless the shared flag says that they run.
	/// Not called by the daemon.
	/// @return true when they were started; false, logged, when they ran already
	///         or the start raised an exception
	bool startProcess();

	/// Not called by the daemon.
	/// @return true when the partner answers at least one of five pings
	bool isPartnerNetworkOK();

	/// @return the local time now as 14 digits
	std::string getCurrentTime();

	/// Not called by the daemon.
	/// @return 1
	int getDBMode();

	/// Reference count for Poco::AutoPtr: 1 at construction; the object deletes
	/// itself when it reaches 0. Not safe across threads.
	CHeartSender* duplicate();
	void release();

private:
	friend class WorkerAccess;

	std::unique_ptr<Poco::Net::StreamSocket> connect(const Poco::Timespan& timeout);
	std::string composeMessage();
	void sendMessage(Poco::Net::StreamSocket& socket);

	int m_nPort = 0; ///< the partner's; only the low 16 bits are used
	bool* m_pProcessRunning;
	std::vector<Poco::ProcessHandle*>** m_ppProcessHandles;
	std::string m_partnerIP;
	MODE* m_pMode;
	std::string m_processLocation;
	int m_refCount = 1;
};
