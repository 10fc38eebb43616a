/// What the kernel tells about a process: time it used, memory, threads, switches;
/// and about the packets of a host's cards. The parts that understand the kernel's
/// texts need no process.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "evidence/Lab.h"
#include "lab/campaigns/Json.h"

namespace velarix::evidence::idle
{

/// Running totals of a process, or of several added up.
struct ProcessTotals
{
	double ownSeconds = 0;      ///< of a processor, in user mode and in the kernel
	double childrenSeconds = 0; ///< the same, of the children that have ended and been waited for
	std::uint64_t wakeUps = 0;  ///< switches that a thread asked for by waiting, of all threads
	std::uint64_t switches = 0; ///< switches that it did not ask for
	int threads = 0;
	int processes = 0;

	ProcessTotals& operator+=(const ProcessTotals& other);
};

/// KiB, as the kernel counts pages.
struct MemoryFigures
{
	std::int64_t resident = 0;
	std::int64_t proportional = 0; ///< every page divided by how many processes share it
	std::int64_t ownPages = 0;     ///< pages that no other process has

	MemoryFigures& operator+=(const MemoryFigures& other);
};

/// The memory of a process by what is mapped there: the file's name without its
/// directory, "[heap]", "[stack]" or "[memory]" for what has no name.
using MemoryByMapping = std::map<std::string, MemoryFigures>;

struct CardTotals
{
	std::uint64_t receivedPackets = 0;
	std::uint64_t receivedBytes = 0;
	std::uint64_t sentPackets = 0;
	std::uint64_t sentBytes = 0;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(MemoryFigures, resident, proportional, ownPages)

/// Adds the times of a line of /proc/PID/stat.
/// @param ticks  per second
/// @throws LabError when it is no such line
void addStat(const std::string& line, double ticks, ProcessTotals& totals);

/// Adds the switches of the text of /proc/PID/task/TID/status, one thread.
/// @throws LabError when they are not in it
void addThread(const std::string& status, ProcessTotals& totals);

/// @param smaps  text of /proc/PID/smaps
/// @throws LabError when it is no such text
MemoryByMapping memoryIn(const std::string& smaps);

MemoryFigures sumOf(const MemoryByMapping& memory);

/// @param text  of /proc/PID/net/dev
/// @throws LabError when the card is not in it
CardTotals cardIn(const std::string& text, const std::string& card);

/// The number of the last process or thread that was made, as /proc/loadavg tells it in
/// the process namespace of whoever reads it.
/// @throws LabError when it is no such text
std::int64_t lastProcessIn(const std::string& loadAverages);

/// Processes besides the given ones and their children that have the program of the first
/// one in their memory, or the library that the agent's memory consists of, where that
/// one has it: they share its pages. Looked for among all that this process may look at.
/// @return "NAME (PID)" of each
std::vector<std::string> sharersOf(const std::vector<pid_t>& guards);

/// All of the process, threads and memory. @throws LabError when it is gone
ProcessTotals totalsOf(pid_t pid);
MemoryByMapping memoryOf(pid_t pid);

} // namespace velarix::evidence::idle
