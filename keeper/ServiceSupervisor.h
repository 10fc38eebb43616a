/// ha-NAME: runs one service while the address is on this node (ServiceMachine.h), either
/// a command and everything it forks, or a systemd unit.
#pragma once

#include <string>
#include <vector>

#include "keeper/Runtime.h"
#include "keeper/ServiceMachine.h"
#include "keeper/Settings.h"

namespace velarix::keeper
{

class ServiceSupervisor
{
public:
	ServiceSupervisor(const AddressSettings& address, const ServiceSettings& settings);
	/// Works until SIGTERM, or until the service died too often. @return the exit status
	int run();

private:
	/// What systemctl is asked to do; one at a time.
	enum class Job : std::uint8_t
	{
		start,
		findMain,
		stop
	};

	void lookAtAddress();
	void removeLeftAddress();
	void reap();
	void onMainEnd(int status);
	void onCheckEnd(int status);
	void onJobEnd(int status);
	void watchUnit();
	void askForMain();
	void forgetMain();

	void feed(ServiceEvent event);
	void feed(ServiceEvent event, const std::string& reason);
	void feedWhenGone();
	void perform(const ServiceActions& actions);
	void startService();
	void terminate();
	void kill();
	void startCheck();
	void startJob(Job job, std::vector<std::string> command);
	std::vector<pid_t> remains() const;

	void onTime(Millis moment);
	void report(const ServiceMachine& before, ServiceEvent cause);
	void publish();

	bool hasUnit() const { return !m_settings.unit.empty(); }
	/// When the first check is due behind a start.
	Millis firstCheck() const;

	AddressSettings m_addressSettings;
	ServiceSettings m_settings;
	Journal m_journal;
	Loop m_loop;
	AddressWatch m_address;
	int m_watchedDeath = -1;  ///< of ha-address
	Millis m_leftAt = kNever; ///< when an address without ha-address is removed
	ServiceMachine m_machine;
	std::string m_reason; ///< of the last death

	pid_t m_main = 0;
	Descriptor m_unitMain;  ///< a pidfd of the unit's main process
	bool m_hadMain = false; ///< it has ended; without another one the unit has died
	Job m_job = Job::stop;
	pid_t m_jobPid = 0;
	Descriptor m_answer; ///< what systemctl prints

	pid_t m_check = 0;
	Millis m_checkStarted = 0;
	Millis m_checkAt = kNever;
	Millis m_checkTimeout = kNever;
	std::string m_checkResult = "none";
	std::string m_publishedResult;
	long long m_checked = 0;
};

} // namespace velarix::keeper
