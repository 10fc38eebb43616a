#include "StateTest.h"

#include "SoundSettings.h"

using namespace std::chrono_literals;
using velarix::inspect::host::FileFacts;
using velarix::inspect::host::FileKind;

StateTest::StateTest()
{
	// Files of the directory, but the running system: its kernel may be asked.
	paths = velarix::inspect::Paths(root());
	paths.root = "/";
}

void StateTest::makeNode()
{
	freshHost();
	write("/usr/velarix/pid/VelarixHA.pid", std::to_string(kAgent));
	write("/usr/velarix/bin/ini/processList.sh", "cd /opt/service/bin/\n/opt/service/bin/server &\n");
	fakeHost().files["/opt/service/bin/server"] = FileFacts{FileKind::regular, 0755, 0, 0};
	addProcess(1, "systemd");
	addProcess(kAgent, "VelarixHA", 'S', 4);
	fakeHost().starts[kAgent] = now - 200s;
	fakeHost().answering = {"192.0.2.254", "192.0.2.2"};
}

void StateTest::soundMaster()
{
	makeNode();
	write(kSettings, joined(settingsOf(1)));
	addProcess(5000, "server");
	fakeHost().addresses.push_back({"eth0", "eth0:ha", "198.51.100.10", 24, true});
	fakeHost().answering.insert("198.51.100.10");
	writeLog(emptyLog().start(198s).slaveFor(198s, 191s).takeService(190s).masterFor(183300ms, 300ms));
}

void StateTest::soundSlave()
{
	makeNode();
	write(kSettings, joined(settingsOf(2)));
	fakeHost().answering = {"192.0.2.254", "192.0.2.1", "198.51.100.10"};
	writeLog(emptyLog().start(198s).slaveFor(197300ms, 300ms));
}

std::vector<std::string> StateTest::settingsOf(int node) const
{
	std::vector<std::string> lines = soundLines(node);
	setKey(lines, "PATH", below(kLog).string());
	return lines;
}

void StateTest::addProcess(pid_t pid, const std::string& name, char state, int threads)
{
	fakeHost().processes.push_back({pid, "Name:\t" + name, name, state, threads});
	std::ranges::sort(fakeHost().processes, {}, &velarix::inspect::host::Process::pid);
}
