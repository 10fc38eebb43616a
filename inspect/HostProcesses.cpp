#include "inspect/HostProcesses.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
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

std::string_view behindTab(std::string_view line)
{
	const std::size_t tab = line.find('\t');
	return tab == std::string_view::npos ? std::string_view() : line.substr(tab + 1);
}

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

/// Takes one line of the status file.
void takeStatus(Process& process, const std::string& line)
{
	const std::string_view value = behindTab(line);
	if (line.starts_with("State:") && !value.empty())
	{
		process.state = value.front();
	}
	else if (line.starts_with("Uid:"))
	{
		// Real, effective, saved, of the file system.
		const std::string_view effective = behindTab(value);
		process.user = numberIn<uid_t>(effective.substr(0, effective.find('\t'))).value_or(process.user);
	}
	else if (line.starts_with("PPid:"))
	{
		process.parent = numberIn<pid_t>(value).value_or(-1);
	}
	else if (line.starts_with("NSpid:"))
	{
		process.inContainer = value.find('\t') != std::string_view::npos;
		process.pidInside = numberIn<pid_t>(line.substr(line.rfind('\t') + 1)).value_or(-1);
	}
	else if (line.starts_with("Threads:"))
	{
		process.threads = numberIn<int>(value).value_or(0);
	}
}

} // namespace

std::optional<Process> process(pid_t pid)
{
	std::ifstream file(directoryOf(pid) / "status");
	Process result;
	result.pid = pid;
	if (!std::getline(file, result.statusLine))
	{
		return std::nullopt;
	}
	result.name = behindTab(result.statusLine);
	result.statusLine.resize(std::min(result.statusLine.size(), kStatusLineKept));
	for (std::string line; std::getline(file, line) && !line.starts_with("SigQ:");)
	{
		takeStatus(result, line);
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
