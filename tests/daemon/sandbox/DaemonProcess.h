/// The real daemon, started as an operator starts it, from its installed place.
#pragma once

#include <sys/types.h>

#include "Daemon.h"
#include "ToolThreads.h"

/// One start of the daemon. The started process is killed with the object.
class DaemonProcess
{
public:
	/// @param name distinguishes the console files of several starts
	explicit DaemonProcess(std::string name = "first");
	~DaemonProcess();

	DaemonProcess(const DaemonProcess&) = delete;
	DaemonProcess& operator=(const DaemonProcess&) = delete;

	/// Runs the program and waits until it returns to the shell.
	/// @param beforeExec runs in the new process before the program
	/// @return the exit status, 128 + n when signal n ended it
	int start(const std::function<void()>& beforeExec = {});

	/// @return the daemon's process id; 0 when there is none (any more)
	pid_t pid() const { return m_pid; }
	/// @return its number of threads, without those of the build's tools
	int threads() const;
	/// @return the file /proc/PID/`name`
	std::string proc(const std::string& name) const;

	/// What it wrote to standard output and standard error so far.
	std::string output() const;
	std::string errors() const;

	/// Waits for the daemon's end.
	/// @return its exit status, 128 + n when signal n ended it, -1 when it runs on
	int waitForEnd(std::chrono::milliseconds limit);

private:
	std::string m_name;
	pid_t m_pid = 0;
};

/// Fixture: the program installed below /usr/velarix, settings in which the node
/// is well (partner, gateway and service address answer on the loopback), a
/// run-info record and no log yet.
class DaemonSandbox : public testing::Test
{
protected:
	void SetUp() override;

	void apply() const { settings.write(); }

	/// Starts the daemon and waits until its three workers run.
	/// @param beforeExec runs in the new process before the program
	static void startAndWaitForWorkers(DaemonProcess& daemon, const std::function<void()>& beforeExec = {});

	Settings settings;
};

/// The time that the run-info record holds under the generic key.
std::string recordedStart();
