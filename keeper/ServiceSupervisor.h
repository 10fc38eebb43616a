/// ha-NAME: runs one service while the address is on this node (ServiceMachine.h), either
/// a command and everything it forks, or a systemd unit.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Descriptor.h"
#include "Journal.h"
#include "Loop.h"
#include "Process.h"
#include "Runtime.h"
#include "ServiceMachine.h"
#include "Settings.h"

namespace velarix::keeper
{

class ServiceSupervisor
{
public:
	explicit ServiceSupervisor(const ServiceSettings& settings);
	/// Works until SIGTERM, or until the service died too often. @return the exit status
	int run();

private:
	/// What a child of ours is, besides the service itself and adopted orphans.
	enum class Job : std::uint8_t
	{
		none,
		unitStart,
		unitQuestion, ///< asks for the unit's main process
		unitStop
	};

	void readSignalsOf(int descriptor);
	void reap();
	void onChild(pid_t child, int status);
	void onMainEnd(int status);
	void onCheckEnd(int status);
	void onJobEnd(int status);
	void onUnitMain();
	void lookAtAddress();
	void watchUnit(pid_t pid);

	void feed(ServiceEvent event);
	void perform(const ServiceActions& actions);
	void startService();
	void terminate();
	void kill();
	void startCheck();
	void endCheck();
	void startJob(Job job, const std::vector<std::string>& command);
	std::vector<pid_t> remains() const;
	void tellWhenGone();

	void onTime(Millis moment);
	Millis deadline() const;
	void report(const ServiceMachine& before, ServiceEvent event);
	void publish();

	ServiceSettings m_settings;
	Identity m_identity;
	Journal m_journal;
	Loop m_loop;
	AddressWatch m_address;
	int m_watchedDeath = -1;
	ServiceMachine m_machine;

	pid_t m_main = 0;
	std::string m_reason; ///< of the last death
	pid_t m_check = 0;
	Millis m_checkStarted = 0;
	Millis m_checkAt = kNever;
	Millis m_checkTimeout = kNever;
	std::string m_checkResult = "none";
	std::string m_publishedResult;
	long long m_checked = 0;
	Job m_job = Job::none;
	pid_t m_jobPid = 0;
	Descriptor m_answer;   ///< what a job prints
	Descriptor m_unitMain; ///< a pidfd
};

/// Ends what a supervisor that was killed has left: processes, or the unit.
/// @param settings nullptr when the service stands in keeper.ini no more
/// @return whether nothing is left
bool endRemains(const std::string& program, const ServiceSettings* settings);

} // namespace velarix::keeper
