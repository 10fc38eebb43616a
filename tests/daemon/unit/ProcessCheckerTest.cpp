// The process checker without its loop: construction, the related process and
// the reference count. Its loop is in ProcessCheckerRunTest.cpp.

#include <ctime>

#include "WorkerTest.h"

namespace
{

class Checker : public WorkerTest
{
protected:
	/// A checker that tells when it is deleted.
	struct Observed : ProcessChecker
	{
		using ProcessChecker::ProcessChecker;
		~Observed() override { events::add("checker deleted"); }
	};

	Poco::AutoPtr<ProcessChecker> make() { return WorkerTest::make<Observed>(); }
};

TEST_F(Checker, ReadingTheProgramsAgainAppends)
{
	settings.programs({"/opt/app/one"});
	apply();
	Poco::AutoPtr<ProcessChecker> pChecker = make();
	settings.programs({"/opt/app/other"});
	apply();
	pChecker->getProcessList();
	EXPECT_THAT(WorkerAccess::processList(*pChecker), ElementsAre("/opt/app/one", "/opt/app/other"));
	EXPECT_THAT(events::all(), ElementsAre("log D ProcessChecker:69 process list loaded[noName]",
	                                       "log D ProcessChecker:69 process list loaded[noName]"));
}

TEST_F(Checker, TheObservationModeIsTheSettings)
{
	EXPECT_EQ(WorkerAccess::observationMode(*make()), OBSERVATION_MODE_1);
	settings.set("PROCESS_CHECK.OBSERVATION_MODE", "7");
	apply();
	EXPECT_EQ(WorkerAccess::observationMode(*make()), OBSERVATION_MODE_2);
}

TEST_F(Checker, TheStartTimeIsTheTimeOfConstruction)
{
	const std::time_t before = std::time(nullptr);
	const std::string startTime = WorkerAccess::startTime(*make());
	const std::time_t after = std::time(nullptr);
	std::tm parts{};
	ASSERT_NE(::strptime(startTime.c_str(), "%Y%m%d%H%M%S", &parts), nullptr) << startTime;
	parts.tm_isdst = -1;
	const std::time_t stamp = std::mktime(&parts);
	EXPECT_EQ(startTime.size(), 14U);
	EXPECT_GE(stamp, before);
	EXPECT_LE(stamp, after);
}

TEST_F(Checker, TheRelatedProcessIsKilledByTheCommandWithItsName)
{
	settings.set("ADVENCE.PROCESS_KILL_COMMAND", "killall -q").set("AGENT.RELATED_PROCESS", "agentd");
	apply();
	Poco::AutoPtr<ProcessChecker> pChecker = make();
	events::clear();
	fakeoutside::commandPrints("killall -q agentd", "agentd: no process found\n");
	pChecker->killRelatedProcess();
	EXPECT_THAT(events::all(),
	            ElementsAre("command killall -q agentd",
	                        "log I Utill:573 command(killall -q agentd) : agentd: no process found\n\n"));
}

TEST_F(Checker, WithoutARelatedProcessNothingIsKilled)
{
	Poco::AutoPtr<ProcessChecker> pChecker = make();
	events::clear();
	pChecker->killRelatedProcess();
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(Checker, TheLastPointerDeletesTheChecker)
{
	Poco::AutoPtr<ProcessChecker> pFirst = make();
	Poco::AutoPtr<ProcessChecker> pSecond = pFirst;
	EXPECT_EQ(WorkerAccess::refCount(*pFirst), 2);
	events::clear();
	pFirst = nullptr;
	EXPECT_EQ(WorkerAccess::refCount(*pSecond), 1);
	EXPECT_THAT(events::all(), IsEmpty());
	pSecond = nullptr;
	EXPECT_THAT(events::all(), ElementsAre("checker deleted"));
}

} // namespace
