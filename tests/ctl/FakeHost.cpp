#include "FakeHost.h"

#include <algorithm>
#include <cerrno>
#include <type_traits>

#include <sys/stat.h>

using namespace velarix::inspect::host;

FakeHost& fakeHost()
{
	static FakeHost host;
	return host;
}

namespace
{

void act(const std::string& what)
{
	fakeHost().acts.push_back(what);
	fakeHost().actTimes.push_back(fakeHost().elapsed);
	fakeHost().onAct ? fakeHost().onAct(what) : void();
}

template <typename Key, typename Value>
std::optional<Value> valueOf(const std::map<Key, Value>& all, const std::type_identity_t<Key>& key)
{
	const auto found = all.find(key);
	return found == all.end() ? std::nullopt : std::optional(found->second);
}

} // namespace

void freshHost()
{
	fakeHost() = FakeHost{};
	fakeHost().interfaces = {{"eth0", {true, true}}, {"eth1", {true, true}}};
	fakeHost().links = {{"lo", "loopback", "", "00:00:00:00:00:00", "00:00:00:00:00:00", {}},
	                    {"eth0", "ether", "", "52:54:00:00:00:01", "52:54:00:00:00:01", {}},
	                    {"eth1", "ether", "", "52:54:00:00:00:02", "52:54:00:00:00:02", {}}};
	fakeHost().addresses = {{"lo", "lo", "127.0.0.1", 8, true},
	                        {"eth0", "eth0", "198.51.100.1", 24, true},
	                        {"eth1", "eth1", "192.0.2.1", 24, true}};
}

namespace velarix::inspect::host
{

FileFacts fileFacts(const std::filesystem::path& path)
{
	if (const auto reported = valueOf(fakeHost().files, path.string()))
	{
		return *reported;
	}
	FileFacts facts;
	struct stat status = {};
	if (::stat(path.c_str(), &status) != 0)
	{
		facts.kind = errno == EACCES ? FileKind::notKnown : FileKind::missing;
		return facts;
	}
	const auto kind = S_ISDIR(status.st_mode) ? FileKind::directory : FileKind::other;
	facts.kind = S_ISREG(status.st_mode) ? FileKind::regular : kind;
	facts.mode = status.st_mode & 07777U;
	return facts;
}

uid_t user()
{
	return fakeHost().user;
}

std::string name()
{
	return "node-a";
}

std::optional<std::string> whyNoPing()
{
	return fakeHost().whyNoPing;
}

bool ignoresPings()
{
	return fakeHost().ignoresPings;
}

Interface interface(const std::string& name)
{
	return fakeHost().interfaces[name];
}

bool hasMarker(const std::string& /*address*/)
{
	return true;
}

std::vector<Link> links()
{
	return fakeHost().links;
}

std::vector<Address> addresses()
{
	return fakeHost().addresses;
}

std::optional<std::string> interfaceTo(const std::string& address)
{
	const std::string interface = valueOf(fakeHost().routes, address).value_or("eth1");
	return interface.empty() ? std::nullopt : std::optional(interface);
}

std::optional<std::string> holderOf(const std::string& address, const std::string& /*interface*/)
{
	return valueOf(fakeHost().holders, address);
}

std::optional<TunnelSession> tunnelSession()
{
	return fakeHost().tunnel;
}

std::string tunnelRules()
{
	return fakeHost().tunnelRules;
}

std::string rulesRefusal(const std::filesystem::path& /*file*/)
{
	return fakeHost().rulesRefusal;
}

std::string newTunnelKey()
{
	return fakeHost().newTunnelKey;
}

std::string publicKeyOf(const std::string& privateKey)
{
	return privateKey.empty() ? "" : "P" + privateKey;
}

std::optional<std::vector<Process>> processes()
{
	return fakeHost().processes;
}

std::optional<Process> process(pid_t pid)
{
	const auto found = std::ranges::find(fakeHost().processes, pid, &Process::pid);
	return found == fakeHost().processes.end() ? std::nullopt : std::optional<Process>(*found);
}

bool isPortTaken(const std::string& /*address*/, int port)
{
	return fakeHost().takenPorts.contains(port);
}

std::optional<bool> isOutgoingPort(int port)
{
	return fakeHost().outgoingPorts.contains(port);
}

std::optional<std::uintmax_t> freeSpace(const std::filesystem::path& /*directory*/)
{
	return fakeHost().freeSpace;
}

std::optional<std::uintmax_t> freeFiles(const std::filesystem::path& /*directory*/)
{
	return fakeHost().freeFiles;
}

Trial tryCommands(const TrialPlan& plan)
{
	fakeHost().trials.push_back(plan);
	return fakeHost().trial;
}

bool isThere(pid_t pid)
{
	return process(pid).has_value() || fakeHost().hidden.contains(pid);
}

std::optional<std::chrono::system_clock::time_point> startOf(pid_t pid)
{
	return valueOf(fakeHost().starts, pid);
}

std::string standardOutput(pid_t pid)
{
	return fakeHost().outputs[pid];
}

std::optional<std::chrono::system_clock::time_point> changedAt(const std::filesystem::path& path)
{
	return valueOf(fakeHost().changed, path.string());
}

std::optional<bool> answersPing(const std::string& address, int /*count*/)
{
	return whyNoPing() ? std::nullopt : std::optional<bool>(fakeHost().answering.contains(address));
}

CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds /*limit*/)
{
	if (fakeHost().commandEnd == CommandEnd::ended || fakeHost().commandEnd == CommandEnd::tooLong)
	{
		act(command);
	}
	return fakeHost().commandEnd;
}

bool signalProcess(pid_t pid, const std::string& name, int signal)
{
	const bool isIt = process(pid).value_or(Process{}).name == name;
	isIt ? act(std::to_string(signal) + " " + std::to_string(pid)) : void();
	return isIt;
}

void pause(std::chrono::milliseconds time)
{
	fakeHost().elapsed += time;
	fakeHost().onPause ? fakeHost().onPause(time) : void();
}

std::size_t windowLines()
{
	return fakeHost().windowLines;
}

std::chrono::milliseconds elapsed()
{
	return fakeHost().elapsed;
}

} // namespace velarix::inspect::host
