#include "inspect/HostProcesses.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include <unistd.h>

#include "inspect/Number.h"

namespace velarix::inspect::host
{

namespace
{

namespace fs = std::filesystem;

/// The agent reads no more of the line.
constexpr std::size_t kStatusLineKept = 127;

fs::path directoryOf(pid_t pid)
{
	return fs::path("/proc") / std::to_string(pid);
}

/// @return clock ticks since the machine's start, the 22nd field of the line
std::optional<long long> startTicks(pid_t pid)
{
	std::ifstream file(directoryOf(pid) / "stat");
	std::string line;
	std::getline(file, line, '\0');
	// The name stands in parentheses and may hold anything; two fields lie
	// before the end of it.
	const std::size_t nameEnd = line.rfind(')');
	if (nameEnd == std::string::npos)
	{
		return std::nullopt;
	}
	std::istringstream fields(line.substr(nameEnd + 1));
	std::string field;
	for (int number = 3; number <= 22; ++number)
	{
		fields >> field;
	}
	return numberIn<long long>(field);
}

/// @return where a link of /proc leads; empty when it may not be read
std::string linkText(const fs::path& link)
{
	std::error_code error;
	const fs::path target = fs::read_symlink(link, error);
	return error ? std::string() : target.string();
}

} // namespace

std::optional<Process> process(pid_t pid)
{
	std::ifstream file(directoryOf(pid) / "status");
	Process result;
	std::string line;
	result.pid = pid;
	if (!std::getline(file, result.statusLine))
	{
		return std::nullopt;
	}
	result.name = result.statusLine.substr(result.statusLine.find('\t') + 1);
	result.statusLine.resize(std::min(result.statusLine.size(), kStatusLineKept));
	// What is left of a line is a word that nobody knows.
	for (std::string word; file >> word && word != "SigQ:";)
	{
		if (word == "State:")
		{
			file >> result.state;
		}
		else if (word == "PPid:")
		{
			file >> result.parent;
		}
		else if (word == "Uid:")
		{
			file >> word >> result.user; // the effective one is the second
		}
		else if (word == "Threads:")
		{
			file >> result.threads;
		}
		else if (std::getline(file, line) && word == "NSpid:")
		{
			const std::size_t last = line.rfind('\t');
			result.inContainer = last != 0;
			result.pidInside = numberIn<pid_t>(line.substr(last + 1)).value_or(-1);
		}
	}
	result.executable = linkText(directoryOf(pid) / "exe");
	return result;
}

std::string standardOutput(pid_t pid)
{
	return linkText(directoryOf(pid) / "fd/1");
}

std::optional<std::vector<pid_t>> processIds(const std::string& directory)
{
	std::error_code error;
	fs::directory_iterator entries(directory, error);
	if (error)
	{
		return std::nullopt;
	}
	std::vector<pid_t> ids;
	for (const fs::directory_iterator end; entries != end && !error; entries.increment(error))
	{
		if (const std::optional<pid_t> pid = numberIn<pid_t>(entries->path().filename().string()))
		{
			ids.push_back(*pid);
		}
	}
	std::ranges::sort(ids);
	return ids;
}

std::optional<std::vector<Process>> processes()
{
	const std::optional<std::vector<pid_t>> ids = processIds();
	if (!ids)
	{
		return std::nullopt;
	}
	std::vector<Process> result;
	for (const pid_t pid : *ids)
	{
		if (std::optional<Process> found = process(pid))
		{
			result.push_back(*std::move(found));
		}
	}
	return result;
}

bool isThere(pid_t pid)
{
	return ::kill(pid, 0) == 0 || errno == EPERM;
}

std::optional<std::chrono::system_clock::time_point> startOf(pid_t pid)
{
	const std::optional<long long> ticks = startTicks(pid);
	const long perSecond = ::sysconf(_SC_CLK_TCK);
	if (!ticks || perSecond <= 0)
	{
		return std::nullopt;
	}
	timespec up{};
	::clock_gettime(CLOCK_BOOTTIME, &up);
	// The same at each call: in whole seconds the clocks' small differences are not seen.
	const auto boot = std::chrono::round<std::chrono::seconds>(
	    std::chrono::system_clock::now() - std::chrono::seconds(up.tv_sec) - std::chrono::nanoseconds(up.tv_nsec));
	return boot + std::chrono::milliseconds(*ticks * 1000 / perSecond);
}

} // namespace velarix::inspect::host
