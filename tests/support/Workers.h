/// Workers that tests make without an agent, and the literal event lists that the decisions
/// of the receiver end in. Needs FakeOutside.
#pragma once

#include <Poco/AutoPtr.h>

#include "Daemon.h"
#include "WorkerAccess.h"

/// Fixture with what the agent shares with its workers: the values of a slave without programs.
class WorkerTest : public DaemonTest
{
protected:
	/// @return a worker with the label in its log lines
	template <typename Worker> Poco::AutoPtr<Worker> make(const std::string& label = "noName")
	{
		location = label;
		return new Worker(&handles, &running, &mode, location);
	}

	MODE mode = MODE_SLAVE;
	bool running = false;
	std::string location = "noName";
	std::vector<Poco::ProcessHandle*>* handles = nullptr;
};

/// Fixture with one receiver, slave and with the status OK, nothing asked. The
/// one managed program, dbServer, is looked for in a hand-made /proc, where
/// another process lives; the virtual IP is listed on the node.
class ReceiverTest : public WorkerTest
{
protected:
	ReceiverTest()
	{
		settings.programs({"/opt/app/bin/dbServer"});
		fakeoutside::commandPrints("ifconfig",
		                           {"eth0:ha: flags=4163\n        inet 10.0.1.100  netmask 255.255.255.0\n"});
		sandbox::coverProc();
		std::filesystem::create_directory("/proc/7");
		programRuns(false);
		receiver = make<CHeartReciver>();
	}
	~ReceiverTest() override { sandbox::showRealProc(); }

	/// Puts dbServer into /proc or another program in its place.
	static void programRuns(bool runs)
	{
		sandbox::writeFile("/proc/7/status", runs ? "Name:\tdbServer\n" : "Name:\tbash\n");
	}

	/// Hands over a heartbeat with the partner's role and ask fields as given.
	void hear(const std::string& partnerRole, const std::string& ask)
	{
		receiver->ParsingReceivedMessage("/process/1/" + partnerRole + "/20240131235959/" + ask + "/");
	}

	/// Runs `call` and looks at role, status, ask and count at each event, and in the end. What
	/// changes and changes back between two of these is not seen.
	/// @return every change as "role R status S ask A count C at EVENT", EVENT being the
	///         first one that saw it, "the end" after the last
	std::vector<std::string> stateChanges(const std::function<void()>& call)
	{
		std::vector<std::string> changes;
		std::string last = state();
		const auto look = [&](const std::string& event)
		{
			if (const std::string now = state(); now != last)
			{
				changes.push_back(now + " at " + event);
				last = now;
			}
		};
		events::observe(look);
		call();
		events::observe(nullptr);
		look("the end");
		return changes;
	}

	std::int32_t& status() { return WorkerAccess::myStatus(*receiver); }
	std::int32_t& count() { return WorkerAccess::specialAskCount(*receiver); }

	Poco::AutoPtr<CHeartReciver> receiver;

private:
	std::string state()
	{
		return "role " + std::to_string(velarix::loadShared(mode)) + " status " + std::to_string(status()) + " ask " +
		       std::to_string(velarix::loadShared(g_specialAsking)) + " count " + std::to_string(count());
	}
};

namespace steps
{

using events::join, events::List;

/// The line about the accepted prefix.
inline const List kAccepted{"log D CHeartReciver:249 szTmp[process] szPreFix[process]"};
/// The kill command for dbServer.
inline const List kKillPrograms{"command kill-by-name dbServer", "log I Utill:573 command(kill-by-name dbServer) : "};
/// The stop command of the virtual IP.
inline const List kDropAddress{"command vip-stop", "log I Utill:573 command(vip-stop) : "};
/// The virtual IP asked to be up, which is listed already.
inline const List kFindAddress = join({kDropAddress, {"command ifconfig", "log D Utill:668 myVirtualIP working"}});
/// The address is not listed: the countdown, and the start command.
inline const List kMissAddress{"command ifconfig", "log D Utill:680 myVirtualIP not working",
                               "sleep 1000",       "sleep 1000",
                               "sleep 1000",       "sleep 1000",
                               "sleep 1000",       "command vip-start"};
/// The virtual IP asked to be up, which is not listed, and the first answered ping.
inline const List kRaiseAddress = join({kDropAddress,
                                        kMissAddress,
                                        {"log I Utill:573 command(vip-start) : ", "log D Utill:490 set virtual ip...",
                                         "ping 10.0.1.100 x10", "log D Utill:496 ping: 10"}});
/// The run script up to its start, without the virtual IP and with it.
inline const List kTryPrograms{"log D Utill:48 try to start virtual ip"};
inline const List kScriptRuns{"log D Utill:62 try to run processes",
                              "system chmod 755 /usr/velarix/bin/ini/processList.sh", kScript};
inline const List kRunPrograms = join({kTryPrograms, kFindAddress, kScriptRuns, {kBanner}});
inline const List kRunProgramsOnly = join({kTryPrograms, kScriptRuns, {kBanner}});

/// What a run of the script can throw, and what the error line says then.
inline const std::vector<std::pair<events::Action, std::string>> kScriptFailures{
    {events::throws(Poco::NotFoundException("script")), "Not found: script: NotFoundException"},
    {events::throws(Poco::NoPermissionException("script")), "No permission: script: NoPermissionException"},
    {events::throws(Poco::SystemException("fork", 12)), "System exception: fork: SystemException"},
    {events::throws(Poco::TimeoutException("script")), "Timeout: script"},
    {events::throws(std::runtime_error("not of the library")), "UNKNOWN ERROR"}};

} // namespace steps
