/// One host of a lab: a process 1 in process, network, mount, host name and IPC
/// namespaces of its own, and its processes, seen from the machine. Everything that runs on the host
/// ends with it.
///
/// Nothing is made in the machine's own network namespace and nothing is pinned
/// to a file: process 1 ends when the lab's end of its control socket is closed,
/// so the kernel removes a host however the lab ends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/types.h>

#include "inspect/HostProcesses.h"
#include "lab/core/Basics.h"
#include "lab/core/Command.h"

namespace velarix::lab
{

using inspect::host::Process;

/// Every process in the process namespace of `hostInit`, process 1 included, in
/// the order of their pids. Empty when the host is off.
std::vector<Process> processesOf(pid_t hostInit);

/// The host's processes of that short name, zombies left out.
std::vector<Process> processesNamed(pid_t hostInit, const std::string& name);

/// Sends a signal to a process of the host.
/// @return false when it is gone, or is not the host's: then nothing is sent
bool signalInHost(pid_t hostInit, pid_t pid, int signal);

/// What the kernel tells in /proc/PID/NAME; empty when the process is gone.
std::string procText(pid_t pid, const char* name);

/// Its memory that is in use; 0 when the process is gone.
long residentKibOf(pid_t pid);

/// What each open descriptor of a process is, for example "socket:[123]", by its number.
std::map<int, std::string> descriptorsOf(pid_t pid);

enum class HostKind
{
	root, ///< holds the bridges and the disks of the nodes
	host, ///< all files read-only but /run and /tmp
	node  ///< as host, with a writable /usr on a disk of the root host
};

/// All the namespaces of a host.
inline constexpr int allNamespaces = CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWNS;

struct HostSpec
{
	std::string hostName;
	HostKind kind = HostKind::host;
	int firstProcess = 0;  ///< not for the root host: processes are numbered from the next one on
	pid_t rootHostPid = 0; ///< node: process 1 of the root host
	std::string disk;      ///< node: directory in the root host's /mnt with "upper" and "scratch"
};

/// Real servers have processes of different numbers. Ping tells its answers apart
/// by them, so two agents of one number could take each other's for their own.
/// @return where the numbers of that host begin; hosts of one seed lie 7000 apart
int firstProcessOf(HostId host, std::uint64_t seed);

class Host
{
public:
	/// Starts the host and waits until its files are in place.
	/// @throws NamespacesUnavailable when the kernel refuses a namespace or a mount
	explicit Host(const HostSpec& spec);
	/// Switches it off.
	~Host();
	Host(const Host&) = delete;
	Host& operator=(const Host&) = delete;

	/// Process 1, as the lab sees it.
	pid_t pid() const { return m_pid; }

	/// The host's files, as the lab sees them.
	std::filesystem::path root() const { return "/proc/" + std::to_string(m_pid) + "/root"; }

	/// All its namespaces, for spawn and run.
	Inside inside() const { return {m_pidFd.get(), allNamespaces}; }
	/// Its network namespace only: files and processes stay the machine's.
	Inside insideNetwork() const { return {m_pidFd.get(), CLONE_NEWNET}; }

	/// Ends every process of the host at once and waits for process 1.
	void switchOff();

private:
	pid_t m_pid = -1;
	Descriptor m_pidFd;
	Descriptor m_control;

	void start(const HostSpec& spec, int control, int rackMounts);
	void awaitReady(const std::string& hostName);
};

/// Runs a script for bash in all namespaces of the host; what fails in it ends it.
/// @return what it prints
/// @throws LabError with that when it fails
std::string shell(const Host& host, const std::string& script);

} // namespace velarix::lab
