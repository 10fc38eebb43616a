/// A test on a node of the running system whose files are in the test's directory
/// and whose machine is made up: agent 4711, the program "server", 198.51.100.10.
#pragma once

#include "CtlTest.h"
#include "NodeLog.h"

class StateTest : public CtlTest
{
protected:
	StateTest();

	/// Master for 190 seconds, with address and program, and a slave as partner;
	/// its last line is 0.3 seconds old.
	void soundMaster();
	/// Slave since its start 200 seconds ago; the partner is master.
	void soundSlave();

	NodeLog emptyLog() const { return NodeLog(now); }
	void writeLog(const NodeLog& log) const { write(kLog, log.text()); }
	/// @return sound settings whose log is in the directory
	std::vector<std::string> settingsOf(int node) const;

	static void addProcess(pid_t pid, const std::string& name, char state = 'S', int threads = 1);

	static constexpr pid_t kAgent = 4711;
	static constexpr char kLog[] = "/usr/velarix/log/velarix.log";
	static constexpr char kSettings[] = "/usr/velarix/bin/ini/config.ini";

private:
	LocalZone m_zone{"UTC0"};

	void makeNode();
};
