/// The static operations on the service: launching, discovery and kill of the
/// managed programs, virtual IP control and small utilities. The class has no
/// state; its functions live in several source files by topic and log under the
/// one label `Utill`.
#pragma once

#include <string>
#include <vector>

#include <Poco/Process.h>

#include "velarix/velarix.h"

class Utill
{
public:
	Utill() = default;
	virtual ~Utill() = default;

	// --- Launching (process/Launching.cpp) ---

	/// Starts the managed programs through the run script: virtual IP up (unless
	/// `skipVirtualIP`), the configured wait in seconds, "chmod 755 " and the
	/// script. Blocks for all of that, for ever if the address does not come up.
	/// Ends the daemon (assertion "1==0") when the script cannot be run.
	static void voidProcessRun(bool skipVirtualIP);

	/// Starts each command directly, without arguments: the whole text is the
	/// program path. Ends the daemon (assertion "1 == 0") on a Poco::Exception.
	/// Not called by the daemon.
	/// @return one handle per command, in order; the caller owns vector and handles
	static std::vector<Poco::ProcessHandle*>* processRun(std::vector<std::string>& commands);
	/// The same for the configured programs, with the failover banner. Not called by the daemon.
	static std::vector<Poco::ProcessHandle*>* processRun();

	/// Starts the command that the settings hold under `key` and forgets it.
	/// Not called by the daemon.
	static void shellFileRun(std::string key);

	/// A place for starting a database; does nothing. Not called by the daemon.
	static void DBRun(MODE* pMode);

	// --- Discovery and kill (process/Discovery.cpp, process/Kill.cpp) ---

	/// @return the configured program paths, "PROCESS_CHECK.PROCESS_PATH1" first,
	///         asked of the settings anew at every call
	static std::vector<std::string> getProcessList();

	/// Counts, over all processes of /proc and all configured programs, the
	/// status lines that contain the program's name.
	/// @return true when the count is at least the number of configured programs
	static bool isProcessRunning(OBSERVATION_MODE mode);
	/// Must not be called, and is not: ends the daemon (assertion "1 == 0").
	static bool isProcessRunning(std::vector<Poco::ProcessHandle*>** ppHandles);

	/// @return OBSERVATION_MODE_1 when the setting is 1, else OBSERVATION_MODE_2
	static OBSERVATION_MODE getObservationMode();

	/// Runs the configured kill command once for each program name.
	/// @return true, whatever the commands did
	static bool processKill();
	/// Kills and awaits each handle, the last one first; null is allowed. The
	/// caller keeps vector and handles. Not called by the daemon.
	/// @return true, also when a handle could not be killed
	static bool processKill(std::vector<Poco::ProcessHandle*>* pHandles);

	/// Looks for the configured keyword in the process table's lines of each
	/// program. The argument is not consulted. Not called by the daemon.
	/// @return false as soon as one output holds the keyword
	static bool advenceRunCheck(int unused);

	// --- Virtual IP (net/VirtualIP.cpp) ---

	/// Raises the virtual IP and returns only once it is seen on this server or
	/// answers pings. The argument is not used.
	/// @return true
	static bool startVirtualIP(MODE* pMode);
	/// @return true when the stop command could be started, whatever it did
	static bool stopVirtualIP();
	/// Pings the virtual IP without a time limit.
	/// @return true once it answers, false when the ping raises an error
	static bool waitngForVirtualIPSet();
	/// Places for a change of the interface's address; they do nothing. Not called by the daemon.
	static void changeMacAddress();
	static void rollBackMacAddress();

	// --- Utilities (net/Utilities.cpp) ---

	/// @return the decimal text
	static std::string intToString(int value);
};

/// @return the last "/"-separated component of `path` (the whole of it without
///         a "/"), or an empty text after an error of the tokenizer
std::string getProcessName(std::string& path);
