/// A test on a node of the running system whose files are in the test's directory
/// and whose machine is made up: agent 4711, the program "server", 198.51.100.10.
#pragma once

#include "CtlTest.h"
#include "NodeLog.h"

class StateTest : public CtlTest
{
protected:
	StateTest();
	~StateTest() override;

	/// What ssh does from now on; DIR is the test's directory.
	void ssh(std::string script) const;

	/// Master for 190 seconds, with address and program, and a slave as partner;
	/// its last line is 0.3 seconds old.
	void soundMaster();
	/// Slave since its start 200 seconds ago; the partner is master.
	void soundSlave();

	NodeLog emptyLog() const { return NodeLog(now); }
	void writeLog(const NodeLog& log) const { write(kLog, log.text()); }
	/// Writes settings whose log is in the directory.
	/// @param changes keys and their values, over those of the sound file
	void writeSettings(int node, const std::vector<std::pair<std::string, std::string>>& changes = {}) const;

	void addProcess(pid_t pid, const std::string& name, char state = 'S', int threads = 1);
	void endProcess(pid_t pid);
	/// Takes the virtual address from the interface.
	void dropAddress();

	static constexpr pid_t kAgent = 4711;
	static constexpr pid_t kServer = 5000;
	static constexpr char kLog[] = "/usr/velarix/log/velarix.log";
	static constexpr char kPid[] = "/usr/velarix/pid/VelarixHA.pid";
	static constexpr char kSettings[] = "/usr/velarix/bin/ini/config.ini";
	static constexpr char kRunScript[] = "/usr/velarix/bin/ini/processList.sh";
	static constexpr char kProgram[] = "/opt/service/bin/server";

private:
	LocalZone m_zone{"UTC0"};
	const std::string m_path;

	void makeNode();
};
