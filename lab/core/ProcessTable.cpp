#include "lab/core/ProcessTable.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "inspect/Number.h"
#include "lab/core/Basics.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

/// The process namespace, as a number; 0 when there is no such process.
ino_t processNamespaceOf(pid_t pid)
{
	struct stat found
	{
	};
	const std::string path = "/proc/" + std::to_string(pid) + "/ns/pid";
	return ::stat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

} // namespace

std::vector<Process> processesOf(pid_t hostInit)
{
	std::vector<Process> found;
	const ino_t wanted = processNamespaceOf(hostInit);
	for (const pid_t pid : inspect::host::processIds().value_or(std::vector<pid_t>()))
	{
		const bool here = wanted != 0 && processNamespaceOf(pid) == wanted;
		if (std::optional<Process> process = here ? inspect::host::process(pid) : std::nullopt)
		{
			found.push_back(*std::move(process));
		}
	}
	return found;
}

std::vector<Process> processesNamed(pid_t hostInit, const std::string& name)
{
	std::vector<Process> found = processesOf(hostInit);
	std::erase_if(found, [&](const Process& entry) { return entry.name != name || entry.state == 'Z'; });
	return found;
}

bool signalInHost(pid_t hostInit, pid_t pid, int signal)
{
	const Descriptor pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
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

std::map<int, std::string> descriptorsOf(pid_t pid)
{
	std::map<int, std::string> found;
	std::error_code failure;
	for (const fs::directory_entry& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", failure))
	{
		const std::optional<int> number = inspect::numberIn<int>(entry.path().filename().string());
		const fs::path target = fs::read_symlink(entry.path(), failure);
		if (number && !failure)
		{
			found[*number] = target.string();
		}
	}
	return found;
}

} // namespace velarix::lab
