/// One host of a lab: a process 1 in process, network, mount, host name and IPC
/// namespaces of its own. Everything that runs on the host ends with it.
///
/// Nothing is made in the machine's own network namespace and nothing is pinned
/// to a file: process 1 ends when the lab's end of its control socket is closed,
/// so the kernel removes a host however the lab ends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sched.h>

#include "lab/core/Basics.h"
#include "lab/core/Command.h"

namespace velarix::lab
{

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
	std::filesystem::path initProgram; ///< velarix-lab-init
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

/// Runs `work` on a thread of its own inside the host's network namespace: the
/// sockets it opens stay there. Files and processes are the machine's.
/// @throws LabError when the namespace cannot be entered; then nothing is run
void inNetworkOf(const Host& host, const std::function<void()>& work);

} // namespace velarix::lab
