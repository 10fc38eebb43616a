#include "ServiceSupervisor.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

namespace velarix::keeper
{

namespace
{

std::string howEnded(int status)
{
	return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
	                           : "status " + std::to_string(WEXITSTATUS(status));
}

Launch launchOf(const ServiceSettings& settings, const Identity& identity, const std::vector<std::string>& command)
{
	Launch launch;
	launch.command = command;
	launch.environment = settings.environment;
	launch.environment.push_back(std::string(kServiceVariable) + "=" + settings.program);
	launch.identity = identity;
	launch.directory = settings.directory.empty() ? "/" : settings.directory;
	return launch;
}

} // namespace

ServiceSupervisor::ServiceSupervisor(const ServiceSettings& settings)
    : m_settings(settings), m_journal(settings.program)
{
	m_machine.checkFailures = settings.checkFailures;
	m_machine.restarts = settings.restarts;
	m_machine.within = settings.restartsWithin * 1000LL;
	m_machine.stopTimeout = settings.stopTimeout * 1000LL;
	m_machine.since = now();
}

int ServiceSupervisor::run()
{
	if (!resolve(m_settings, m_identity))
	{
		m_journal.event("failed", "no user " + m_settings.user + " or group " + m_settings.group);
		return EX_NOUSER;
	}
	if (!valueOf(readState(m_settings.program), "started").empty() && !endRemains(m_settings.program, &m_settings))
	{
		m_journal.event("failed", "something of a former service is left and does not end");
		return EX_UNAVAILABLE;
	}
	const Descriptor signals = takeSignals();
	// What a service needs it gets from the kernel when it starts as root.
	keepCapabilities({CAP_KILL, CAP_SETUID, CAP_SETGID});
	m_loop.watch(signals.get(), [&] { readSignalsOf(signals.get()); });
	m_loop.watch(m_address.changes(), [this] { lookAtAddress(); });
	m_journal.event("started", "waits for the address");
	publish();
	lookAtAddress();
	while (m_machine.state != ServiceState::ended)
	{
		m_loop.wait(deadline());
		m_loop.dispatch();
		onTime(now());
	}
	m_machine.failed ? publish() : removeState(m_settings.program);
	return m_machine.failed ? EX_UNAVAILABLE : EX_OK;
}

Millis ServiceSupervisor::deadline() const
{
	return std::min({m_machine.timerAt, m_checkAt, m_checkTimeout});
}

void ServiceSupervisor::onTime(Millis moment)
{
	if (moment >= m_checkTimeout)
	{
		m_checkTimeout = kNever;
		::kill(-m_check, SIGKILL);
	}
	if (moment >= m_checkAt)
	{
		startCheck();
	}
	if (moment >= m_machine.timerAt)
	{
		feed(ServiceEvent::timer);
	}
}

void ServiceSupervisor::lookAtAddress()
{
	if (m_watchedDeath >= 0)
	{
		m_loop.forget(m_watchedDeath);
	}
	const bool held = m_address.look();
	m_watchedDeath = m_address.death();
	if (m_watchedDeath >= 0)
	{
		m_loop.watch(m_watchedDeath, [this] { lookAtAddress(); });
	}
	if (held != m_machine.held)
	{
		feed(held ? ServiceEvent::held : ServiceEvent::lost);
	}
}

void ServiceSupervisor::readSignalsOf(int descriptor)
{
	for (const int signal : readSignals(descriptor))
	{
		signal == SIGCHLD ? reap() : feed(ServiceEvent::stop);
	}
}

void ServiceSupervisor::reap()
{
	int status = 0;
	for (pid_t child = 0; (child = ::waitpid(-1, &status, WNOHANG)) > 0;)
	{
		onChild(child, status);
	}
	tellWhenGone();
}

void ServiceSupervisor::onChild(pid_t child, int status)
{
	if (child == m_main)
	{
		onMainEnd(status);
	}
	else if (child == m_check)
	{
		onCheckEnd(status);
	}
	else if (child == m_jobPid)
	{
		onJobEnd(status);
	}
}

void ServiceSupervisor::onMainEnd(int status)
{
	m_main = 0;
	m_reason = "ended with " + howEnded(status);
	const bool others = !remains().empty();
	if (others && WIFEXITED(status) && WEXITSTATUS(status) == 0 && m_machine.state == ServiceState::running)
	{
		// It went to the background. From now on it lives as long as any of it does.
		m_journal.event("running", "in the background");
		return;
	}
	if (others)
	{
		feed(ServiceEvent::died);
	}
}

void ServiceSupervisor::onCheckEnd(int status)
{
	// What it forked and left is not the service's.
	::kill(-m_check, SIGKILL);
	m_check = 0;
	m_checkTimeout = kNever;
	if (m_machine.state != ServiceState::running)
	{
		return;
	}
	const bool well = WIFEXITED(status) && WEXITSTATUS(status) == 0;
	const Millis interval = m_settings.checkInterval * 1000LL;
	// A service that may be ill is looked at twice as often: a hang is found within the
	// time that interval and failures make.
	m_checkAt = m_checkStarted + (well ? interval : interval / 2);
	m_checked = wallClock(now());
	m_checkResult = well ? "ok" : "failed " + std::to_string(m_machine.failures + 1);
	if (!well)
	{
		m_reason = "check ended with " + howEnded(status);
	}
	feed(well ? ServiceEvent::checkOk : ServiceEvent::checkFailed);
}

void ServiceSupervisor::startCheck()
{
	m_checkAt = kNever;
	m_checkStarted = now();
	std::string error;
	const pid_t child = start(launchOf(m_settings, m_identity, m_settings.check), error);
	if (child < 0)
	{
		m_reason = "check: " + error;
		m_checkAt = m_checkStarted + m_settings.checkInterval * 1000LL;
		feed(ServiceEvent::checkFailed);
		return;
	}
	m_check = child;
	const int timeout = m_settings.checkTimeout;
	m_checkTimeout = m_checkStarted + (timeout > 0 ? timeout * 1000LL : m_settings.checkInterval * 500LL);
}

void ServiceSupervisor::endCheck()
{
	m_checkAt = kNever;
	if (m_check > 0)
	{
		::kill(-m_check, SIGKILL);
	}
}

std::vector<pid_t> ServiceSupervisor::remains() const
{
	std::vector<pid_t> found = descendantsOf(::getpid());
	std::erase_if(found, [this](pid_t pid)
	              { return pid == m_check || pid == m_jobPid || (m_check > 0 && ::getpgid(pid) == m_check); });
	return found;
}

void ServiceSupervisor::tellWhenGone()
{
	if (m_settings.unit.empty() && m_main == 0 && !m_machine.gone && remains().empty())
	{
		feed(ServiceEvent::gone);
	}
}

void ServiceSupervisor::feed(ServiceEvent event)
{
	const ServiceMachine before = m_machine;
	ServiceStep step = next(m_machine, event, now());
	m_machine = std::move(step.machine);
	report(before, event);
	perform(step.actions);
	// Each write wakes every supervisor of this node: a check that is well again is no news.
	if (before.state != m_machine.state || before.failures != m_machine.failures || m_checkResult != m_publishedResult)
	{
		publish();
	}
}

void ServiceSupervisor::perform(const ServiceActions& actions)
{
	if (m_machine.state != ServiceState::running)
	{
		endCheck();
	}
	if (actions.terminate)
	{
		terminate();
	}
	if (actions.kill)
	{
		kill();
	}
	if (actions.start)
	{
		startService();
	}
}

void ServiceSupervisor::startService()
{
	if (!m_settings.unit.empty())
	{
		startJob(Job::unitStart, {"systemctl", "start", m_settings.unit});
		return;
	}
	std::string error;
	const pid_t child = start(launchOf(m_settings, m_identity, m_settings.command), error);
	if (child < 0)
	{
		m_reason = error;
		feed(ServiceEvent::gone);
		return;
	}
	m_main = child;
	m_checkAt = m_settings.check.empty() ? kNever : now() + m_settings.checkInterval * 1000LL;
}

void ServiceSupervisor::terminate()
{
	if (!m_settings.unit.empty())
	{
		if (m_unitMain)
		{
			m_loop.forget(m_unitMain.get());
			m_unitMain.reset();
		}
		startJob(Job::unitStop, {"systemctl", "stop", m_settings.unit});
		return;
	}
	const std::vector<pid_t> left = remains();
	signalAll(left, SIGTERM);
	// One that was stopped would not hear it.
	signalAll(left, SIGCONT);
	tellWhenGone();
}

void ServiceSupervisor::kill()
{
	if (m_settings.unit.empty())
	{
		signalAll(remains(), SIGKILL);
		tellWhenGone();
		return;
	}
	std::string error;
	start(launchOf(m_settings, {}, {"systemctl", "kill", "-s", "KILL", m_settings.unit}), error);
	if (m_job == Job::none)
	{
		startJob(Job::unitStop, {"systemctl", "stop", m_settings.unit});
	}
}

void ServiceSupervisor::startJob(Job job, const std::vector<std::string>& command)
{
	if (m_jobPid > 0)
	{
		::kill(-m_jobPid, SIGKILL);
	}
	std::array<int, 2> answer{-1, -1};
	Launch launch = launchOf(m_settings, {}, command);
	if (job == Job::unitQuestion && ::pipe2(answer.data(), O_CLOEXEC) == 0)
	{
		launch.output = answer[1];
	}
	const Descriptor writing(answer[1]);
	m_answer = Descriptor(answer[0]);
	std::string error;
	m_job = job;
	m_jobPid = start(launch, error);
	if (m_jobPid < 0)
	{
		m_job = Job::none;
		m_jobPid = 0;
		m_reason = error;
		feed(job == Job::unitStop ? ServiceEvent::gone : ServiceEvent::died);
	}
}

void ServiceSupervisor::onJobEnd(int status)
{
	const Job job = m_job;
	const bool well = WIFEXITED(status) && WEXITSTATUS(status) == 0;
	m_job = Job::none;
	m_jobPid = 0;
	if (job == Job::unitStop)
	{
		if (well)
		{
			feed(ServiceEvent::gone);
		}
	}
	else if (m_machine.state != ServiceState::running)
	{
		return;
	}
	else if (!well)
	{
		m_reason = "systemctl ended with " + howEnded(status);
		feed(ServiceEvent::died);
	}
	else if (job == Job::unitStart)
	{
		startJob(Job::unitQuestion, {"systemctl", "show", "-p", "MainPID", "--value", m_settings.unit});
	}
	else
	{
		onUnitMain();
	}
}

void ServiceSupervisor::onUnitMain()
{
	std::array<char, 32> text{};
	const ssize_t length = ::read(m_answer.get(), text.data(), text.size());
	pid_t pid = 0;
	std::from_chars(text.data(), text.data() + std::max<ssize_t>(length, 0), pid);
	m_checkAt = m_settings.check.empty() ? kNever : now() + m_settings.checkInterval * 1000LL;
	if (pid <= 0)
	{
		m_journal.event("running", m_settings.unit + " has no main process: only its check can find its end");
		return;
	}
	m_unitMain = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
	if (!m_unitMain)
	{
		m_reason = "its main process has ended";
		feed(ServiceEvent::died);
		return;
	}
	m_loop.watch(m_unitMain.get(),
	             [this]
	             {
		             m_loop.forget(m_unitMain.get());
		             m_unitMain.reset();
		             m_reason = "its main process has ended";
		             feed(ServiceEvent::died);
	             });
}

void ServiceSupervisor::report(const ServiceMachine& before, ServiceEvent event)
{
	if (event == ServiceEvent::checkFailed && before.state == ServiceState::running)
	{
		m_journal.event("check-failed", m_reason + " (" + std::to_string(m_machine.failures) + " of " +
		                                    std::to_string(m_machine.checkFailures) + ")");
	}
	if (before.state == m_machine.state)
	{
		return;
	}
	const std::string restarts =
	    std::to_string(m_settings.restarts) + " in " + std::to_string(m_settings.restartsWithin) + " s";
	switch (m_machine.state)
	{
	case ServiceState::running:
		m_journal.event(m_machine.restarted > before.restarted ? "restarted" : "running",
		                m_settings.unit.empty() ? m_settings.command.front() : m_settings.unit);
		break;
	case ServiceState::restarting:
		m_journal.event("died", m_reason + "; is started again here");
		break;
	case ServiceState::failing:
		m_journal.event("failed", m_reason + "; died more often than " + restarts + ": this node gives it up");
		break;
	case ServiceState::stopping:
		m_journal.event("stopping", "the address is not on this node any more");
		break;
	case ServiceState::ending:
		m_journal.event("stopping", "asked to end");
		break;
	case ServiceState::waiting:
		m_journal.event("stopped", "waits for the address");
		break;
	case ServiceState::ended:
		if (m_machine.failed && before.state == ServiceState::running)
		{
			m_journal.event("failed", m_reason + "; died more often than " + restarts + ": this node gives it up");
		}
		m_journal.event("stopped", "ended");
		break;
	}
}

void ServiceSupervisor::publish()
{
	if (m_machine.state == ServiceState::ended && !m_machine.failed)
	{
		return;
	}
	m_publishedResult = m_checkResult;
	Fields fields{{"state", m_machine.failed ? "failed" : nameOf(m_machine.state)},
	              {"since", std::to_string(wallClock(m_machine.since))},
	              {"restarts", std::to_string(m_machine.restarted)},
	              {"check", m_checkResult},
	              {"checked", std::to_string(m_checked)},
	              {"reason", m_reason},
	              {"main", std::to_string(m_main)},
	              {"pid", std::to_string(::getpid())}};
	if (!m_machine.gone)
	{
		fields.emplace_back("started", "yes");
	}
	writeState(m_settings.program, fields);
}

bool endRemains(const std::string& program, const ServiceSettings* settings)
{
	const int patience = settings != nullptr ? settings->stopTimeout * 1000 : 20'000;
	bool gone = endAll(remainsOf, program, patience);
	if (settings != nullptr && !settings->unit.empty())
	{
		std::string error;
		int status = -1;
		const pid_t child = start(launchOf(*settings, {}, {"systemctl", "stop", settings->unit}), error);
		gone =
		    child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0 && gone;
	}
	if (gone)
	{
		removeState(program);
	}
	return gone;
}

} // namespace velarix::keeper
