#include "lab/core/ProcessTable.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "lab/core/Basics.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

std::optional<pid_t> numberIn(const std::string& text)
{
	pid_t number = 0;
	const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
	return failure == std::errc() && end == text.data() + text.size() ? std::optional<pid_t>(number) : std::nullopt;
}

/// The process namespace, as a number; 0 when there is no such process.
ino_t processNamespaceOf(pid_t pid)
{
	struct stat found
	{
	};
	const std::string path = "/proc/" + std::to_string(pid) + "/ns/pid";
	return ::stat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

std::string lastWord(const std::string& line)
{
	return line.substr(line.find_last_of(" \t") + 1);
}

} // namespace

ProcessEntry processEntryOf(pid_t pid)
{
	ProcessEntry entry;
	entry.pid = pid;
	std::ifstream status("/proc/" + std::to_string(pid) + "/status");
	for (std::string line; std::getline(status, line);)
	{
		if (line.starts_with("Name:\t"))
		{
			entry.name = line.substr(6);
		}
		else if (line.starts_with("State:\t"))
		{
			entry.state = line[7];
		}
		else if (line.starts_with("PPid:\t"))
		{
			entry.parent = numberIn(lastWord(line)).value_or(-1);
		}
		else if (line.starts_with("NSpid:"))
		{
			entry.pidInHost = numberIn(lastWord(line)).value_or(-1);
		}
	}
	return entry;
}

std::vector<ProcessEntry> processesOf(pid_t hostInit)
{
	std::vector<ProcessEntry> found;
	const ino_t wanted = processNamespaceOf(hostInit);
	std::error_code ignored;
	for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored))
	{
		const std::optional<pid_t> pid = numberIn(entry.path().filename().string());
		if (wanted != 0 && pid && processNamespaceOf(*pid) == wanted)
		{
			found.push_back(processEntryOf(*pid));
		}
	}
	std::sort(found.begin(), found.end(),
	          [](const ProcessEntry& left, const ProcessEntry& right) { return left.pid < right.pid; });
	return found;
}

std::vector<ProcessEntry> processesNamed(pid_t hostInit, const std::string& name)
{
	std::vector<ProcessEntry> found = processesOf(hostInit);
	std::erase_if(found, [&](const ProcessEntry& entry) { return entry.name != name || entry.state == 'Z'; });
	return found;
}

bool signalInHost(pid_t hostInit, pid_t pid, int signal)
{
	const UniqueFd pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
	const ino_t wanted = processNamespaceOf(hostInit);
	if (!pidFd || wanted == 0 || processNamespaceOf(pid) != wanted)
	{
		return false;
	}
	return ::syscall(SYS_pidfd_send_signal, pidFd.get(), signal, nullptr, 0) == 0;
}

std::string procText(pid_t pid, const char* name)
{
	std::ifstream stream("/proc/" + std::to_string(pid) + "/" + name);
	std::ostringstream text;
	text << stream.rdbuf();
	return text.str();
}

std::optional<long> numberBehind(const std::string& text, const std::string& key)
{
	std::istringstream stream(text);
	for (std::string line; std::getline(stream, line);)
	{
		if (line.starts_with(key + ":"))
		{
			std::istringstream words(line.substr(key.size() + 1));
			long number = 0;
			return words >> number ? std::optional<long>(number) : std::nullopt;
		}
	}
	return std::nullopt;
}

std::vector<std::string> descriptorsOf(pid_t pid)
{
	std::vector<std::pair<pid_t, std::string>> found;
	std::error_code failure;
	for (const fs::directory_entry& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", failure))
	{
		const std::optional<pid_t> number = numberIn(entry.path().filename().string());
		const fs::path target = fs::read_symlink(entry.path(), failure);
		if (number && !failure)
		{
			found.emplace_back(*number, target.string());
		}
	}
	std::sort(found.begin(), found.end());
	std::vector<std::string> texts;
	texts.reserve(found.size());
	for (const auto& [number, target] : found)
	{
		texts.push_back(std::to_string(number) + " " + target);
	}
	return texts;
}

} // namespace velarix::lab
