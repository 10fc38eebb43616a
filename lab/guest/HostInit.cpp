/// velarix-lab-init: process 1 of a lab's host.
///
/// It is started by the lab in new process, network, host name and IPC
/// namespaces, makes the host's own view of the files, says "ready" and from
/// then on only reaps orphans. It ends when the lab's end of the control socket
/// is closed, by whatever means the lab ended, and the kernel then ends every
/// other process of the host and removes its interfaces and mounts.
///
///   velarix-lab-init CONTROL-FD HOST-NAME root|host|node FIRST-PROCESS ROOT-MOUNTS-FD DISK...
///
/// root: holds the disks of the nodes below /mnt of its own mount namespace, a
///       tmpfs each, and the bridges in its network namespace.
/// host: everything read-only but /run and /tmp.
/// node: as host, and /usr is writable: an overlay whose changes go to the
///       directory DISK in the root host's /mnt, so that they outlive the node.
/// FIRST-PROCESS: processes of the host are numbered from the next one on.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

int g_control = -1;

void tell(const std::string& text)
{
	const ssize_t count = ::write(g_control, text.data(), text.size());
	if (count < 0)
	{
		_exit(1);
	}
}

void need(bool success, const std::string& what)
{
	if (!success)
	{
		tell("error: " + what + ": " + std::strerror(errno) + "\n");
		_exit(1);
	}
}

void mountOrEnd(const char* source, const char* target, const char* type, const char* options = nullptr)
{
	need(::mount(source, target, type, 0, options) == 0, std::string("cannot mount ") + type + " on " + target);
}

void ownMountNamespace()
{
	need(::unshare(CLONE_NEWNS) == 0, "cannot make a mount namespace");
	need(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "cannot detach the mounts");
}

void mountRack(char* const* disks)
{
	ownMountNamespace();
	mountOrEnd("lab-disks", "/mnt", "tmpfs", "mode=0755");
	for (; *disks != nullptr; ++disks)
	{
		const std::string path = std::string("/mnt/") + *disks;
		need(::mkdir(path.c_str(), 0755) == 0, "cannot make " + path);
		mountOrEnd("lab-disk", path.c_str(), "tmpfs", "mode=0755");
	}
}

void setReadOnly(const char* path, bool readOnly, unsigned flags)
{
	mount_attr attributes{};
	(readOnly ? attributes.attr_set : attributes.attr_clr) = MOUNT_ATTR_RDONLY;
	need(::mount_setattr(AT_FDCWD, path, flags, &attributes, sizeof attributes) == 0,
	     std::string("cannot change the mount ") + path);
}

/// The host sees the machine's files but changes none of them.
void mountHost(bool overlayOnUsr)
{
	setReadOnly("/", true, AT_RECURSIVE);
	if (overlayOnUsr)
	{
		setReadOnly("/usr", false, 0);
	}
	mountOrEnd("lab-proc", "/proc", "proc");
	mountOrEnd("lab-sys", "/sys", "sysfs");
	for (const char* directory : {"/run", "/tmp", "/mnt"})
	{
		mountOrEnd("lab-tmp", directory, "tmpfs", "mode=1777");
	}
}

void mountNode(int rackMountNamespace, const std::string& disk)
{
	need(::setns(rackMountNamespace, CLONE_NEWNS) == 0, "cannot enter the root host");
	::close(rackMountNamespace);
	ownMountNamespace();
	const std::string base = "/mnt/" + disk;
	const std::string options = "lowerdir=/usr,upperdir=" + base + "/upper,workdir=" + base + "/scratch";
	mountOrEnd("lab-usr", "/usr", "overlay", options.c_str());
	mountHost(true);
}

void beginProcessNumbersAt(const std::string& number)
{
	const int file = ::open("/proc/sys/kernel/ns_last_pid", O_WRONLY | O_CLOEXEC);
	need(file >= 0 && ::write(file, number.data(), number.size()) > 0, "cannot set the first process number");
	::close(file);
}

void silenceStreams()
{
	const int null = ::open("/dev/null", O_RDWR);
	for (int stream = 0; stream < 3; ++stream)
	{
		::dup2(null, stream);
	}
	if (null > 2)
	{
		::close(null);
	}
}

[[noreturn]] void reapUntilTheLabEnds()
{
	sigset_t childEnded;
	sigemptyset(&childEnded);
	sigaddset(&childEnded, SIGCHLD);
	sigprocmask(SIG_BLOCK, &childEnded, nullptr);
	const int signals = ::signalfd(-1, &childEnded, SFD_CLOEXEC);
	need(signals >= 0, "cannot watch for ended processes");
	tell("ready\n");
	for (;;)
	{
		while (::waitpid(-1, nullptr, WNOHANG) > 0)
		{
		}
		pollfd watched[2] = {{g_control, POLLIN, 0}, {signals, POLLIN, 0}};
		::poll(watched, 2, -1);
		if (watched[0].revents != 0)
		{
			_exit(0);
		}
		signalfd_siginfo ended{};
		if (watched[1].revents != 0 && ::read(signals, &ended, sizeof ended) < 0)
		{
			_exit(1);
		}
	}
}

} // namespace

int main(int argc, char** argv)
{
	if (argc < 7)
	{
		std::fputs("velarix-lab-init is started by velarix-lab only\n", stderr);
		return 2;
	}
	g_control = std::atoi(argv[1]);
	const std::string name = argv[2];
	const std::string kind = argv[3];
	::fcntl(g_control, F_SETFD, FD_CLOEXEC);
	::setsid();
	silenceStreams();
	need(::chdir("/") == 0, "cannot change to /");
	need(::sethostname(name.c_str(), name.size()) == 0, "cannot set the host name");
	if (kind == "root")
	{
		mountRack(argv + 6);
		reapUntilTheLabEnds();
	}
	if (kind == "node")
	{
		mountNode(std::atoi(argv[5]), argv[6]);
	}
	else
	{
		ownMountNamespace();
		mountHost(false);
	}
	beginProcessNumbersAt(argv[4]);
	reapUntilTheLabEnds();
}
