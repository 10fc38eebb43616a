#include "keeper/ServiceSupervisor.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <utility>

#include <linux/capability.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include "keeper/Network.h"
#include "keeper/Process.h"

namespace velarix::keeper
{

namespace
{

/// How long an address stays that both processes of ha-address have left, killed. A master's agent has missed
/// them by then, and hands over.
constexpr Millis kLeftAddress = 10'000;

} // namespace

ServiceSupervisor::ServiceSupervisor(const AddressSettings& address, const ServiceSettings& settings)
    : m_addressSettings(address), m_settings(settings),
      m_journal(settings.program), m_machine{.checkFailures = settings.checkFailures,
                                             .restarts = settings.restarts,
                                             .within = settings.restartsWithin * 1000LL,
                                             .stopTimeout = settings.stopTimeout * 1000LL,
                                             .since = now()}
{
}

int ServiceSupervisor::run()
{
	if (!endOrphans(m_settings))
	{
		m_journal.event("failed", "something of a former service is left and does not end");
		return EX_UNAVAILABLE;
	}
	// What a service needs it gets from the kernel when it starts as root.
	keepCapabilities({CAP_KILL, CAP_NET_ADMIN, CAP_SETUID, CAP_SETGID});
	m_loop.watchSignals([this](int signal) { signal == SIGCHLD ? reap() : feed(ServiceEvent::stop); });
	m_loop.watch(m_address.changes(), [this] { lookAtAddress(); });
	m_journal.event("started", "waits for the address");
	publish();
	lookAtAddress();
	while (m_machine.state != ServiceState::ended)
	{
		m_loop.wait(std::min({m_machine.timerAt, m_checkAt, m_checkTimeout, m_leftAt}));
		m_loop.dispatch();
		onTime(now());
	}
	m_machine.failed ? publish() : removeState(m_settings.program);
	return m_machine.failed ? EX_UNAVAILABLE : EX_OK;
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
	if (moment >= m_leftAt)
	{
		try
		{
			removeLeftAddress();
		}
		catch (const std::exception& exc)
		{
			m_journal.event("failed", exc.what());
			m_leftAt = now() + kLeftAddress;
		}
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
	const bool held = valueOf(m_address.look(), "held") == "yes";
	m_watchedDeath = m_address.death();
	if (m_watchedDeath >= 0)
	{
		m_loop.watch(m_watchedDeath, [this] { lookAtAddress(); });
	}
	m_leftAt = m_watchedDeath < 0 ? std::min(m_leftAt, now() + kLeftAddress) : kNever;
	if (held != m_machine.held)
	{
		feed(held ? ServiceEvent::held : ServiceEvent::lost);
	}
}

/// A standby's agent leaves an address alone whose program it does not see, and the master waits for it.
void ServiceSupervisor::removeLeftAddress()
{
	m_leftAt = kNever;
	// One that ends by itself has said so. What an administrator raises is not ours.
	const std::string last = valueOf(readState(kAddressProgram), "state");
	if (last != "announcing" && last != "holding" && last != "rechecking")
	{
		return;
	}
	if (!hasEnded(kAddressProgram) || removeAddress(m_addressSettings) != 0)
	{
		m_leftAt = now() + kLeftAddress;
		return;
	}
	removeState(kAddressProgram);
	Journal(kAddressProgram)
	    .event("lowered",
	           m_addressSettings.text + " on " + m_addressSettings.interface + ", left behind by a killed program");
}

void ServiceSupervisor::reap()
{
	int status = 0;
	for (pid_t child = 0; (child = ::waitpid(-1, &status, WNOHANG)) > 0;)
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
	feedWhenGone();
}

void ServiceSupervisor::onMainEnd(int status)
{
	m_main = 0;
	m_reason = "ended with " + howEnded(status);
	if (remains().empty())
	{
		return;
	}
	if (status == 0 && m_machine.state == ServiceState::running)
	{
		// From now on it lives as long as any of it does.
		m_journal.event("running", "in the background");
		return;
	}
	feed(ServiceEvent::died);
}

void ServiceSupervisor::feedWhenGone()
{
	if (!hasUnit() && m_main == 0 && !m_machine.gone && remains().empty())
	{
		feed(ServiceEvent::gone);
	}
}

std::vector<pid_t> ServiceSupervisor::remains() const
{
	std::vector<pid_t> found = descendants();
	std::erase_if(found, [this](pid_t pid)
	              { return pid == m_check || pid == m_jobPid || (m_check > 0 && ::getpgid(pid) == m_check); });
	return found;
}

Millis ServiceSupervisor::firstCheck() const
{
	return m_settings.check.empty() ? kNever : now() + m_settings.checkInterval * 1000LL;
}

void ServiceSupervisor::startCheck()
{
	m_checkAt = kNever;
	m_checkStarted = now();
	std::string error;
	const pid_t child = start(m_settings, m_settings.check, RunAs::service, error);
	if (child < 0)
	{
		m_checkAt = firstCheck();
		feed(ServiceEvent::checkFailed, "check: " + error);
		return;
	}
	m_check = child;
	const int timeout = m_settings.checkTimeout;
	m_checkTimeout = m_checkStarted + (timeout > 0 ? timeout * 1000LL : m_settings.checkInterval * 500LL);
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
	const Millis interval = m_settings.checkInterval * 1000LL;
	// A service that may be ill is looked at twice as often: a hang is found within the
	// time that interval and failures make.
	m_checkAt = m_checkStarted + (status == 0 ? interval : interval / 2);
	m_checked = wallClock(now());
	if (status == 0)
	{
		m_checkResult = "ok";
		feed(ServiceEvent::checkOk);
		return;
	}
	m_checkResult = "failed " + std::to_string(m_machine.failures + 1);
	feed(ServiceEvent::checkFailed, "check ended with " + howEnded(status));
}

void ServiceSupervisor::feed(ServiceEvent event, const std::string& reason)
{
	m_reason = reason;
	feed(event);
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
		m_checkAt = kNever;
		m_check > 0 ? ::kill(-m_check, SIGKILL) : 0;
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
	if (hasUnit())
	{
		startJob(Job::start, {"start"});
		return;
	}
	std::string error;
	const pid_t child = start(m_settings, m_settings.command, RunAs::service, error);
	if (child < 0)
	{
		feed(ServiceEvent::gone, error);
		return;
	}
	m_main = child;
	m_checkAt = firstCheck();
}

void ServiceSupervisor::terminate()
{
	if (hasUnit())
	{
		forgetMain();
		startJob(Job::stop, {"stop"});
		return;
	}
	const std::vector<pid_t> left = remains();
	signalAll(left, SIGTERM);
	// One that was stopped would not hear it.
	signalAll(left, SIGCONT);
	feedWhenGone();
}

void ServiceSupervisor::kill()
{
	if (hasUnit())
	{
		std::string error;
		start(m_settings, {"systemctl", "kill", "-s", "KILL", m_settings.unit}, RunAs::self, error);
		m_jobPid == 0 ? startJob(Job::stop, {"stop"}) : void();
		return;
	}
	signalAll(remains(), SIGKILL);
	feedWhenGone();
}

void ServiceSupervisor::report(const ServiceMachine& before, ServiceEvent cause)
{
	const bool wasRunning = before.state == ServiceState::running;
	const auto entered = [&](ServiceState state) { return m_machine.state == state && before.state != state; };
	m_journal.eventIf(cause == ServiceEvent::checkFailed && wasRunning, "check-failed",
	                  m_reason + " (" + std::to_string(m_machine.failures) + " of " +
	                      std::to_string(m_machine.checkFailures) + ")");
	m_journal.eventIf(m_machine.failed && wasRunning, "failed",
	                  m_reason + "; died more often than " + std::to_string(m_settings.restarts) + " in " +
	                      std::to_string(m_settings.restartsWithin) + " s: this node gives it up");
	m_journal.eventIf(entered(ServiceState::running), m_machine.restarted > before.restarted ? "restarted" : "running",
	                  hasUnit() ? m_settings.unit : m_settings.command.front());
	m_journal.eventIf(entered(ServiceState::restarting), "died", m_reason + "; is started again here");
	m_journal.eventIf(entered(ServiceState::stopping), "stopping", "the address is not on this node any more");
	m_journal.eventIf(entered(ServiceState::ending), "stopping", "asked to end");
	m_journal.eventIf(entered(ServiceState::waiting), "stopped", "waits for the address");
	m_journal.eventIf(entered(ServiceState::ended), "stopped", "ended");
}

void ServiceSupervisor::publish()
{
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

} // namespace velarix::keeper
