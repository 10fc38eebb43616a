// The return to the configured role when a command cannot be started or a setting
// is missing.
#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "Told.h"
#include "velarix/shared_value.h"

using testing::ElementsAreArray;

namespace
{

const char kKill[] = "command kill-by-name dbServer";
const char kKillFailed[] = "log E Utill:550 shell command run error(fp is NULL): kill-by-name dbServer";
const char kStop[] = "command vip-stop";
const char kStopFailed[] = "log E Utill:550 shell command run error(fp is NULL): vip-stop";
const char kSecond[] = "sleep 1000";

class ResetFailures : public ReceiverTest
{
protected:
	/// A reset of a node whose programs run.
	void reset(const std::string& configured, MODE role)
	{
		configureRole(configured);
		programRuns(true);
		mode = role;
		receiver->resetProcess();
	}
};

TEST_F(ResetFailures, ASlaveWhoseKillCommandCannotBeStartedStillDropsTheAddress)
{
	fakeoutside::commandFails("kill-by-name dbServer");
	reset("2", 1);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::join({"log D CHeartReciver:480 SLAVE kill", kKill, kKillFailed,
	                                                         kSecond, steps::dropAddress()})));
	EXPECT_EQ(mode, 2);
}

TEST_F(ResetFailures, ASlaveWhoseStopCommandCannotBeStartedIsASlaveAllTheSame)
{
	fakeoutside::commandFails("vip-stop");
	reset("2", 1);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::join({"log D CHeartReciver:480 SLAVE kill",
	                                                         steps::killPrograms(), kStop, kStopFailed, kSecond})));
	EXPECT_EQ(mode, 2);
}

TEST_F(ResetFailures, ASlaveWithoutEitherCommandTriesBoth)
{
	fakeoutside::commandFails("kill-by-name dbServer");
	fakeoutside::commandFails("vip-stop");
	reset("2", 2);
	EXPECT_THAT(events::all(), ElementsAreArray({"log D CHeartReciver:480 SLAVE kill", kKill, kKillFailed, kSecond,
	                                             kStop, kStopFailed, kSecond}));
	EXPECT_EQ(mode, 2);
}

TEST_F(ResetFailures, AMasterWhoseKillCommandCannotBeStartedRunsItsProgramsAllTheSame)
{
	fakeoutside::commandFails("kill-by-name dbServer");
	reset("1", 2);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::join({"log D CHeartReciver:470 MASTER kill", kKill, kKillFailed, kSecond,
	                                          "log D CHeartReciver:473 try to process run", steps::runPrograms()})));
	EXPECT_EQ(mode, 1);
}

TEST_F(ResetFailures, AMasterWhoseStopCommandCannotBeStartedRunsItsProgramsAllTheSame)
{
	fakeoutside::commandFails("vip-stop");
	reset("1", 2);
	EXPECT_THAT(
	    events::all(),
	    ElementsAreArray(steps::join(
	        {"log D CHeartReciver:470 MASTER kill", steps::killPrograms(), "log D CHeartReciver:473 try to process run",
	         "log D Utill:48 try to start virtual ip", kStop, kStopFailed, kSecond, "command ifconfig",
	         "log D Utill:668 myVirtualIP working", "log D Utill:62 try to run processes",
	         "system chmod 755 /usr/velarix/bin/ini/processList.sh", "system /usr/velarix/bin/ini/processList.sh",
	         "log E Utill:78 \n"
	         "======================================================\n"
	         "================ process run =========================\n"
	         "======================================================"})));
	EXPECT_EQ(mode, 1);
}

constexpr char kGetInt[] = "int Configuraion::getInt(const std::string&)";

class ResetSettings : public ResetFailures
{
protected:
	/// The reset told on standard error, the role before each log line.
	void resetTelling(const std::string& configured, MODE role, const std::vector<std::string>& missing)
	{
		tellEverything();
		onLogLine(
		    [this](const std::string& event)
		    {
			    tell("role " + std::to_string(mode));
			    tell(event);
		    });
		settings.set("AGENT.MODE", configured);
		for (const std::string& key : missing)
		{
			settings.remove(key);
		}
		apply();
		programRuns(true);
		mode = role;
		receiver->resetProcess();
	}
};

TEST_F(ResetSettings, AResetNeedsTheConfiguredRole)
{
	EXPECT_FATAL_AFTER(resetTelling("2", 1, {"AGENT.MODE"}),
	                   told({kBegin, "role 1", "log E Configuraion:82 Not found: AGENT.MODE"}), "0", "Configuraion", 83,
	                   kGetInt);
}

TEST_F(ResetSettings, AResetNeedsTheObservationMode)
{
	EXPECT_FATAL_AFTER(resetTelling("2", 1, {"PROCESS_CHECK.OBSERVATION_MODE"}),
	                   told({kBegin, "role 1", "log E Configuraion:82 Not found: PROCESS_CHECK.OBSERVATION_MODE"}), "0",
	                   "Configuraion", 83, kGetInt);
}

TEST_F(ResetSettings, AConfiguredMasterNeedsTheObservationModeBeforeItIsMaster)
{
	EXPECT_FATAL_AFTER(resetTelling("1", 2, {"PROCESS_CHECK.OBSERVATION_MODE"}),
	                   told({kBegin, "role 2", "log E Configuraion:82 Not found: PROCESS_CHECK.OBSERVATION_MODE"}), "0",
	                   "Configuraion", 83, kGetInt);
}

TEST_F(ResetSettings, OfTwoMissingSettingsOfAResetTheRoleIsTold)
{
	EXPECT_FATAL_AFTER(resetTelling("2", 1, {"AGENT.MODE", "PROCESS_CHECK.OBSERVATION_MODE"}),
	                   told({kBegin, "role 1", "log E Configuraion:82 Not found: AGENT.MODE"}), "0", "Configuraion", 83,
	                   kGetInt);
}

} // namespace
