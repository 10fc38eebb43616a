#include "StateTest.h"

#include <cstdlib>

#include <Poco/String.h>

#include "SoundSettings.h"

using namespace std::chrono_literals;
using velarix::inspect::host::FileFacts;
using velarix::inspect::host::FileKind;

StateTest::StateTest() : m_path(std::getenv("PATH"))
{
	// Files of the directory, but the running system: its kernel may be asked.
	paths = velarix::inspect::Paths(root());
	paths.root = "/";
}

StateTest::~StateTest()
{
	::setenv("PATH", m_path.c_str(), 1);
}

void StateTest::ssh(std::string script) const
{
	Poco::replaceInPlace(script, std::string("DIR"), root().string());
	::setenv("PATH", (below("/bin").string() + ":" + m_path).c_str(), 1);
	executable("/bin/ssh", "#!/bin/sh\n" + script);
}

void StateTest::makeNode()
{
	freshHost();
	write(kPid, std::to_string(kAgent));
	write(kRunScript, std::string("cd /opt/service/bin/\n") + kProgram + " &\n");
	fakeHost().files[kProgram] = FileFacts{FileKind::regular, 0755, 0, 0};
	addProcess(1, "systemd");
	addProcess(kAgent, "VelarixHA", 'S', 4);
	fakeHost().starts[kAgent] = now - 200s;
	fakeHost().answering = {"192.0.2.254", "192.0.2.2"};
}

void StateTest::soundMaster()
{
	makeNode();
	writeSettings(1);
	addProcess(kServer, "server");
	fakeHost().addresses.push_back({"eth0", "eth0:ha", "198.51.100.10", 24, true});
	fakeHost().answering.insert("198.51.100.10");
	writeLog(emptyLog().start(198s).slaveFor(198s, 191s).takeService(190s).masterFor(183300ms, 300ms));
}

void StateTest::soundSlave()
{
	makeNode();
	writeSettings(2);
	fakeHost().answering = {"192.0.2.254", "192.0.2.1", "198.51.100.10"};
	writeLog(emptyLog().start(198s).slaveFor(197300ms, 300ms));
}

void StateTest::writeSettings(int node, const std::vector<std::pair<std::string, std::string>>& changes) const
{
	std::vector<std::string> lines = soundLines(node);
	setKey(lines, "PATH", below(kLog).string());
	for (const auto& [key, value] : changes)
	{
		setKey(lines, key, value);
	}
	write(kSettings, joined(lines));
}

void StateTest::addProcess(pid_t pid, const std::string& name, char state, int threads)
{
	fakeHost().processes.push_back({pid, "Name:\t" + name, name, state, threads});
	std::ranges::sort(fakeHost().processes, {}, &velarix::inspect::host::Process::pid);
}

void StateTest::endProcess(pid_t pid)
{
	std::erase_if(fakeHost().processes, [pid](const auto& process) { return process.pid == pid; });
}

void StateTest::dropAddress()
{
	std::erase_if(fakeHost().addresses, [](const auto& address) { return address.address == "198.51.100.10"; });
}
