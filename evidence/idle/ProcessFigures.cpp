#include "evidence/idle/ProcessFigures.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include <unistd.h>

#include "lab/core/Basics.h"
#include "lab/core/Files.h"
#include "lab/core/ProcessTable.h"

namespace velarix::evidence::idle
{

namespace
{

/// Fields of /proc/PID/stat after the name, which may hold blanks.
constexpr std::size_t userTime = 11;
constexpr std::size_t kernelTime = 12;
constexpr std::size_t childrenUserTime = 13;
constexpr std::size_t childrenKernelTime = 14;

bool beginsMapping(const std::string& line)
{
	const std::size_t dash = line.find('-');
	return dash != std::string::npos && dash > 0 && line.find_first_not_of("0123456789abcdef") == dash;
}

std::string nameOfMapping(const std::string& line)
{
	std::istringstream words(line);
	std::string word;
	for (int column = 0; column < 5; ++column)
	{
		words >> word;
	}
	std::string name;
	std::getline(words >> std::ws, name);
	if (name.empty() || name.starts_with("[anon"))
	{
		return "[memory]";
	}
	return name.substr(name.find_last_of('/') + 1);
}

/// "Rss:   12 kB": adds 12 to the part when the line has that title.
void addIf(const std::string& line, const char* title, std::int64_t& part)
{
	if (line.starts_with(title))
	{
		part += std::stoll(line.substr(std::string(title).size()));
	}
}

/// The number after a title in the text of a status file.
std::uint64_t numberAfter(const std::string& text, const std::string& title)
{
	const std::size_t at = text.find(title);
	if (at == std::string::npos)
	{
		throw LabError("the kernel does not tell \"" + title + "\"");
	}
	return std::stoull(text.substr(at + title.size()));
}

/// The names of the files that count for sharing, out of the text of a maps file.
std::set<std::string> filesIn(const std::string& maps, const std::string& program)
{
	std::set<std::string> files;
	std::istringstream text(maps);
	for (std::string line; std::getline(text, line);)
	{
		const std::string name = beginsMapping(line) ? nameOfMapping(line) : std::string();
		if (name == program || name.starts_with("libPoco"))
		{
			files.insert(name);
		}
	}
	return files;
}

/// Empty of a process that is gone, or that nobody may look at.
std::string mapsOf(pid_t pid)
{
	return procText(pid, "maps");
}

} // namespace

std::vector<std::string> sharersOf(const std::vector<pid_t>& guards)
{
	std::error_code unreadable;
	const std::string program =
	    std::filesystem::read_symlink("/proc/" + std::to_string(guards.at(0)) + "/exe", unreadable).filename();
	const std::set<std::string> own = filesIn(mapsOf(guards.at(0)), program);
	const auto isGuard = [&](pid_t pid) { return std::find(guards.begin(), guards.end(), pid) != guards.end(); };
	std::vector<std::string> sharers;
	for (const Process& process : inspect::host::processes().value_or(std::vector<Process>()))
	{
		const std::set<std::string> files = filesIn(mapsOf(process.pid), program);
		const bool shares =
		    std::any_of(files.begin(), files.end(), [&](const auto& file) { return own.contains(file); });
		if (shares && !isGuard(process.pid) && !isGuard(process.parent))
		{
			sharers.push_back(process.name + " (" + std::to_string(process.pid) + ")");
		}
	}
	return sharers;
}

ProcessTotals& ProcessTotals::operator+=(const ProcessTotals& other)
{
	ownSeconds += other.ownSeconds;
	childrenSeconds += other.childrenSeconds;
	wakeUps += other.wakeUps;
	switches += other.switches;
	threads += other.threads;
	processes += other.processes;
	return *this;
}

MemoryFigures& MemoryFigures::operator+=(const MemoryFigures& other)
{
	resident += other.resident;
	proportional += other.proportional;
	ownPages += other.ownPages;
	return *this;
}

void addStat(const std::string& line, double ticks, ProcessTotals& totals)
{
	const std::size_t nameEnd = line.rfind(')');
	std::vector<std::string> fields;
	std::istringstream words(nameEnd == std::string::npos ? std::string() : line.substr(nameEnd + 1));
	for (std::string word; words >> word;)
	{
		fields.push_back(word);
	}
	if (fields.size() <= childrenKernelTime)
	{
		throw LabError("this does not tell a process's times: " + line);
	}
	totals.ownSeconds += (std::stod(fields[userTime]) + std::stod(fields[kernelTime])) / ticks;
	totals.childrenSeconds += (std::stod(fields[childrenUserTime]) + std::stod(fields[childrenKernelTime])) / ticks;
	++totals.processes;
}

void addThread(const std::string& status, ProcessTotals& totals)
{
	totals.wakeUps += numberAfter(status, "\nvoluntary_ctxt_switches:");
	totals.switches += numberAfter(status, "\nnonvoluntary_ctxt_switches:");
	++totals.threads;
}

MemoryByMapping memoryIn(const std::string& smaps)
{
	MemoryByMapping memory;
	MemoryFigures* mapping = nullptr;
	std::istringstream text(smaps);
	for (std::string line; std::getline(text, line);)
	{
		if (beginsMapping(line))
		{
			mapping = &memory[nameOfMapping(line)];
		}
		else if (mapping != nullptr)
		{
			addIf(line, "Rss:", mapping->resident);
			addIf(line, "Pss:", mapping->proportional);
			addIf(line, "Private_Clean:", mapping->ownPages);
			addIf(line, "Private_Dirty:", mapping->ownPages);
		}
	}
	if (memory.empty())
	{
		throw LabError("this does not tell a process's memory: " + smaps.substr(0, 80));
	}
	return memory;
}

MemoryFigures sumOf(const MemoryByMapping& memory)
{
	MemoryFigures sum;
	for (const auto& [name, figures] : memory)
	{
		sum += figures;
	}
	return sum;
}

CardTotals cardIn(const std::string& text, const std::string& card)
{
	std::istringstream lines(text);
	for (std::string line; std::getline(lines, line);)
	{
		const std::size_t begin = line.find_first_not_of(' ');
		const std::size_t colon = line.find(':');
		if (colon == std::string::npos || line.substr(begin, colon - begin) != card)
		{
			continue;
		}
		std::istringstream words(line.substr(colon + 1));
		std::vector<std::uint64_t> counts;
		for (std::uint64_t count = 0; words >> count;)
		{
			counts.push_back(count);
		}
		if (counts.size() >= 10)
		{
			return {counts[1], counts[0], counts[9], counts[8]};
		}
	}
	throw LabError("the kernel tells nothing of the card " + card);
}

std::int64_t lastProcessIn(const std::string& loadAverages)
{
	std::istringstream words(loadAverages);
	std::string word;
	std::int64_t last = -1;
	words >> word >> word >> word >> word >> last;
	if (last < 0)
	{
		throw LabError("this does not tell the last process: " + loadAverages);
	}
	return last;
}

ProcessTotals totalsOf(pid_t pid)
{
	const std::filesystem::path directory = "/proc/" + std::to_string(pid);
	ProcessTotals totals;
	addStat(contentOf(directory / "stat"), static_cast<double>(::sysconf(_SC_CLK_TCK)), totals);
	std::error_code gone;
	for (const auto& thread : std::filesystem::directory_iterator(directory / "task", gone))
	{
		addThread(contentOf(thread.path() / "status"), totals);
	}
	if (totals.threads == 0)
	{
		throw LabError("process " + std::to_string(pid) + " is gone");
	}
	return totals;
}

MemoryByMapping memoryOf(pid_t pid)
{
	return memoryIn(contentOf("/proc/" + std::to_string(pid) + "/smaps"));
}

} // namespace velarix::evidence::idle
