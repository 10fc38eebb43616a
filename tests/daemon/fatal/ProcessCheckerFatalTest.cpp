// The process checker's settings, in the order in which they are read, and the
// running flag that it cannot do without.

#include <cstddef>
#include <new>

#include "WorkerTest.h"

namespace
{

constexpr char kConstructor[] =
    "ProcessChecker::ProcessChecker(std::vector<Poco::ProcessHandle*>**, bool*, MODE*, std::string&)";
constexpr char kGetString[] = "std::string Configuraion::getString(const std::string&)";
constexpr char kGetInt[] = "int Configuraion::getInt(const std::string&)";

class CheckerFatal : public WorkerTest
{
protected:
	void construct(bool* pRunning) { const ProcessChecker checker(&handles, pRunning, &mode, location); }

	/// Keeps the settings before the n-th read only: the n-th read ends the daemon.
	void removeFromReadOn(std::size_t n)
	{
		for (std::size_t i = n - 1; i < order.size(); ++i)
		{
			settings.remove(order[i]);
		}
		apply();
	}

	const std::vector<std::string> order{
	    "AGENT.RELATED_PROCESS",          "ADVENCE.PROCESS_KILL_COMMAND", "PROCESS_CHECK.PROCESS_CHECK_CYCLE",
	    "PROCESS_CHECK.OBSERVATION_MODE", "PROCESS_CHECK.PROCESS_NUM",    "PROCESS_CHECK.PROCESS_PATH1"};
};

TEST_F(CheckerFatal, TheSettingsAreReadInThisOrder)
{
	for (std::size_t n = order.size(); n >= 1; --n)
	{
		removeFromReadOn(n);
		const bool isNumber = n >= 3 && n <= 5;
		EXPECT_FATAL_AFTER(make<ProcessChecker>(),
		                   (isNumber ? "**ERROR**(Configuraion:82)" : "**ERROR**(Configuraion:65)") +
		                       ("Not found: " + order[n - 1]),
		                   "0", "Configuraion", isNumber ? 83 : 66, isNumber ? kGetInt : kGetString);
	}
}

TEST_F(CheckerFatal, ConstructionWithoutARunningFlagEndsTheDaemon)
{
	EXPECT_FATAL(construct(nullptr), "bProcessRuning != __null", "ProcessChecker", 33, kConstructor);
}

TEST_F(CheckerFatal, TheRunningFlagIsTestedAfterTheKillCommandIsRead)
{
	removeFromReadOn(2);
	EXPECT_NO_TEXT(construct(nullptr), "ADVENCE.PROCESS_KILL_COMMAND");
}

TEST_F(CheckerFatal, TheRunningFlagIsTestedBeforeTheCycleIsRead)
{
	removeFromReadOn(3);
	EXPECT_FATAL(construct(nullptr), "bProcessRuning != __null", "ProcessChecker", 33, kConstructor);
}

TEST_F(CheckerFatal, ARunningFlagLostDuringConstructionEndsTheDaemon)
{
	alignas(ProcessChecker) std::byte place[sizeof(ProcessChecker)];
	onLogLine([&](const std::string&)
	          { WorkerAccess::runningFlag(*reinterpret_cast<ProcessChecker*>(place)) = nullptr; });
	EXPECT_FATAL(new (place) ProcessChecker(&handles, &running, &mode, location), "m_bProcessRunning != __null",
	             "ProcessChecker", 43, kConstructor);
}

TEST_F(CheckerFatal, ARunningFlagLostLaterEndsTheDaemonInTheNextCycle)
{
	ProcessChecker checker(&handles, &running, &mode, location);
	WorkerAccess::runningFlag(checker) = nullptr;
	EXPECT_FATAL(checker.run(), "m_bProcessRunning != __null", "ProcessChecker", 96,
	             "virtual void ProcessChecker::run()");
}

} // namespace
