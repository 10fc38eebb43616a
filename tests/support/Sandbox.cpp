#include "Sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace
{

std::string g_whyUnavailable;

void require(bool ok, const char* what)
{
	if (!ok)
	{
		throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
	}
}

void put(const char* path, const std::string& text)
{
	std::ofstream file(path);
	file << text << std::flush;
	require(file.good(), path);
}

void unshareAll()
{
	int flags = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID;
	const uid_t uid = ::geteuid();
	const gid_t gid = ::getegid();
	if (uid != 0)
	{
		flags |= CLONE_NEWUSER;
	}
	require(::unshare(flags) == 0, "unshare");
	if (uid != 0)
	{
		put("/proc/self/setgroups", "deny");
		put("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
		put("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
	}
}

void makeDirectories()
{
	for (const char* path : {"/usr/velarix", "/usr/velarix/bin", "/usr/velarix/bin/ini", "/usr/velarix/bin/log",
	                         "/usr/velarix/log", "/usr/velarix/pid"})
	{
		require(::mkdir(path, 0755) == 0 || errno == EEXIST, path);
	}
}

/// Runs as process 1 of the namespace.
void furnish()
{
	require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
	require(::mount("tmpfs", "/mnt", "tmpfs", 0, nullptr) == 0, "tmpfs on /mnt");
	require(::mkdir("/mnt/upper", 0755) == 0 && ::mkdir("/mnt/work", 0755) == 0, "overlay directories");
	require(::mount("overlay", "/usr", "overlay", 0, "lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work") == 0,
	        "overlay on /usr");
	require(::mount("proc", "/proc", "proc", 0, nullptr) == 0, "mount /proc");
	require(::mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0, "mount /sys");
	makeDirectories();
	require(std::system("ip link set lo up") == 0, "raise loopback");
}

int statusOf(int waitStatus)
{
	return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

/// Process 1 of a PID namespace ignores fatal signals and owes every orphan a
/// wait, so the tests run in a child of it.
[[noreturn]] void runAsInit(int argc, char** argv, int (*body)(int, char**))
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	const pid_t child = ::fork();
	if (child == 0)
	{
		try
		{
			furnish();
		}
		catch (const std::exception& exc)
		{
			g_whyUnavailable = exc.what();
		}
		std::exit(body(argc, argv));
	}
	int status = 0;
	for (pid_t ended = 0; ended != child;)
	{
		ended = ::waitpid(-1, &status, 0);
		if (ended == -1 && errno != EINTR)
		{
			::_exit(126);
		}
	}
	::_exit(statusOf(status));
}

} // namespace

namespace sandbox
{

int run(int argc, char** argv, int (*body)(int, char**))
{
	try
	{
		unshareAll();
	}
	catch (const std::exception& exc)
	{
		g_whyUnavailable = exc.what();
		return body(argc, argv);
	}
	const pid_t child = ::fork();
	if (child == 0)
	{
		runAsInit(argc, argv, body);
	}
	int status = 0;
	while (::waitpid(child, &status, 0) == -1 && errno == EINTR)
	{
	}
	// Past the exit handlers: a leak checker could not start its helper here, since
	// whatever this process starts belongs to the other PID namespace.
	::_exit(statusOf(status));
}

const std::string& whyUnavailable()
{
	return g_whyUnavailable;
}

void cleanDirectories()
{
	std::error_code error;
	for (const auto& entry : std::filesystem::directory_iterator("/usr/velarix", error))
	{
		std::filesystem::remove_all(entry.path(), error);
	}
	makeDirectories();
}

void addInterface(const std::string& name, bool carrier)
{
	shell("ip link add " + name + " type veth peer name " + name + "-peer && ip link set " + name + " up");
	setCarrier(name, carrier);
}

void setCarrier(const std::string& name, bool carrier)
{
	shell("ip link set " + name + "-peer " + (carrier ? "up" : "down"));
}

void coverProc()
{
	ASSERT_EQ(::mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0) << std::strerror(errno);
}

void showRealProc()
{
	ASSERT_EQ(::umount2("/proc", MNT_DETACH), 0) << std::strerror(errno);
}

void shell(const std::string& command)
{
	ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

void writeFile(const std::string& path, const std::string& content)
{
	std::ofstream file(path, std::ios::binary | std::ios::trunc);
	file << content << std::flush;
	ASSERT_TRUE(file.good()) << path;
}

std::string readFile(const std::string& path)
{
	std::ifstream file(path, std::ios::binary);
	std::ostringstream content;
	content << file.rdbuf();
	return content.str();
}

} // namespace sandbox
