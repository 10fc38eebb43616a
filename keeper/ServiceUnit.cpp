// A service that is a systemd unit: its jobs, and the process that stands for it.
#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "keeper/Process.h"
#include "keeper/ServiceSupervisor.h"

namespace velarix::keeper
{

void ServiceSupervisor::startJob(Job job, std::vector<std::string> command)
{
	if (m_jobPid > 0)
	{
		::kill(-m_jobPid, SIGKILL);
	}
	command.insert(command.begin(), "systemctl");
	command.push_back(m_settings.unit);
	std::array<int, 2> answer{-1, -1};
	[[maybe_unused]] const int made = ::pipe2(answer.data(), O_CLOEXEC);
	m_answer = Descriptor(answer[0]);
	const Descriptor writing(answer[1]);
	std::string error;
	m_job = job;
	m_jobPid = std::max(start(m_settings, command, RunAs::self, error, answer[1]), 0);
	if (m_jobPid == 0)
	{
		feed(job == Job::stop ? ServiceEvent::gone : ServiceEvent::died, error);
	}
}

void ServiceSupervisor::onJobEnd(int status)
{
	m_jobPid = 0;
	if (m_job == Job::stop)
	{
		status == 0 ? feed(ServiceEvent::gone) : void();
	}
	else if (m_machine.state == ServiceState::running && status != 0)
	{
		feed(ServiceEvent::died, "systemctl ended with " + howEnded(status));
	}
	else if (m_machine.state == ServiceState::running)
	{
		m_job == Job::start ? startJob(Job::findMain, {"show", "-p", "MainPID", "--value"}) : watchUnit();
	}
}

void ServiceSupervisor::watchUnit()
{
	constexpr const char* kEnded = "its main process has ended";
	std::array<char, 32> text{};
	const ssize_t length = ::read(m_answer.get(), text.data(), text.size());
	pid_t pid = 0;
	std::from_chars(text.data(), text.data() + std::max<ssize_t>(length, 0), pid);
	m_checkAt = firstCheck();
	const bool hadMain = std::exchange(m_hadMain, false);
	if (pid <= 0 && hadMain)
	{
		feed(ServiceEvent::died, kEnded);
		return;
	}
	if (pid <= 0)
	{
		m_journal.event("running", m_settings.unit + " has no main process: only its check can find its end");
		return;
	}
	m_unitMain = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
	if (!m_unitMain)
	{
		feed(ServiceEvent::died, kEnded);
		return;
	}
	m_loop.watch(m_unitMain.get(), [this] { askForMain(); });
}

/// An administrator may have restarted the unit: then it has another one now.
void ServiceSupervisor::askForMain()
{
	forgetMain();
	m_hadMain = true;
	startJob(Job::findMain, {"show", "-p", "MainPID", "--value"});
}

void ServiceSupervisor::forgetMain()
{
	m_hadMain = false;
	if (m_unitMain)
	{
		m_loop.forget(m_unitMain.get());
		m_unitMain.close();
	}
}

} // namespace velarix::keeper
