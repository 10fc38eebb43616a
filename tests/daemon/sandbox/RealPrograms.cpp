#include "RealPrograms.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Events.h"
#include "Sandbox.h"
#include "VelarixLog.h"
#include "WaitFor.h"

namespace
{

constexpr char kDirectory[] = "/usr/velarix/programs/";
constexpr char kSleepers[] = "/usr/velarix/programs/sleepers/";

void require(bool ok, const std::string& what)
{
	if (!ok)
	{
		throw std::runtime_error(what);
	}
}

std::string installBareSleeper(const std::string& name)
{
	std::filesystem::create_directories(kSleepers);
	const std::string path = kSleepers + name;
	if (!std::filesystem::exists(path))
	{
		std::filesystem::copy_file("/bin/sleep", path);
	}
	return path;
}

} // namespace

namespace programs
{

std::string installSleeper(const std::string& name)
{
	return installScript(name, "exec " + installBareSleeper(name) + " 1000\n");
}

std::string installScript(const std::string& name, const std::string& text)
{
	std::filesystem::create_directories(kDirectory);
	const std::string path = kDirectory + name;
	sandbox::writeFile(path, "#!/bin/sh\n" + text);
	std::filesystem::permissions(path, std::filesystem::perms(0755));
	return path;
}

std::vector<pid_t> running(const std::string& name)
{
	std::vector<pid_t> result;
	for (const auto& entry : std::filesystem::directory_iterator("/proc"))
	{
		const std::string directory = entry.path().filename();
		if (directory.find_first_not_of("0123456789") == std::string::npos &&
		    sandbox::readFile(entry.path() / "comm") == name + "\n")
		{
			result.push_back(std::atoi(directory.c_str()));
		}
	}
	return result;
}

Sleeper::Sleeper(const std::string& name)
{
	std::string path = installBareSleeper(name);
	std::string time = "1000";
	char* arguments[] = {path.data(), time.data(), nullptr};
	require(::posix_spawn(&m_pid, path.c_str(), nullptr, nullptr, arguments, environ) == 0, path);
	// The kernel lets the spawner go on before it has renamed the process.
	const std::string comm = "/proc/" + std::to_string(m_pid) + "/comm";
	require(waitFor([&] { return sandbox::readFile(comm) == name.substr(0, 15) + "\n"; }, std::chrono::seconds(10),
	                "name of the sleeper"),
	        comm);
}

Sleeper::~Sleeper()
{
	::kill(m_pid, SIGKILL);
	::waitpid(m_pid, nullptr, 0);
}

void Sleeper::makeZombie()
{
	::kill(m_pid, SIGKILL);
	siginfo_t end{};
	require(::waitid(P_PID, static_cast<id_t>(m_pid), &end, WEXITED | WNOWAIT) == 0, "waitid");
}

} // namespace programs
