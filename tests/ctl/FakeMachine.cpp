#include "FakeMachine.h"

#include "FakeHost.h"

using namespace velarix::inspect::host;

namespace
{

void act(const std::string& what)
{
	fakeMachine().acts.push_back(what);
	if (fakeMachine().onAct)
	{
		fakeMachine().onAct(what);
	}
}

} // namespace

FakeMachine& fakeMachine()
{
	static FakeMachine machine;
	return machine;
}

namespace velarix::inspect::host
{

bool isThere(pid_t pid)
{
	return process(pid).has_value() || fakeMachine().hidden.contains(pid);
}

std::optional<std::chrono::system_clock::time_point> startOf(pid_t pid)
{
	const auto found = fakeMachine().starts.find(pid);
	return found == fakeMachine().starts.end() ? std::nullopt : std::optional(found->second);
}

std::string standardOutput(pid_t pid)
{
	return fakeMachine().outputs[pid];
}

std::optional<std::chrono::system_clock::time_point> changedAt(const std::filesystem::path& path)
{
	const auto found = fakeMachine().changed.find(path.string());
	return found == fakeMachine().changed.end() ? std::nullopt : std::optional(found->second);
}

std::optional<bool> answersPing(const std::string& address, int /*count*/)
{
	return whyNoPing() ? std::nullopt : std::optional<bool>(fakeMachine().answering.contains(address));
}

CommandEnd runWithoutNetwork(const std::string& command, std::chrono::milliseconds /*limit*/)
{
	if (fakeMachine().commandEnd == CommandEnd::ended || fakeMachine().commandEnd == CommandEnd::tooLong)
	{
		act(command);
	}
	return fakeMachine().commandEnd;
}

bool signalProcess(pid_t pid, const std::string& name, int signal)
{
	const std::optional<Process> found = process(pid);
	if (!found || found->name != name)
	{
		return false;
	}
	act(std::to_string(signal) + " " + std::to_string(pid));
	return true;
}

void pause(std::chrono::milliseconds time)
{
	fakeMachine().elapsed += time;
	if (fakeMachine().onPause)
	{
		fakeMachine().onPause(time);
	}
}

std::chrono::milliseconds elapsed()
{
	return fakeMachine().elapsed;
}

} // namespace velarix::inspect::host
