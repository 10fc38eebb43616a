// The process checker: construction, the related process and every worker's reference count;
// its loop in a /proc where the program runs twice, with its locks recorded.

#include <pthread.h>

#include "Workers.h"

namespace
{

struct Locking
{
	std::string step; ///< "lock", "unlock" or one of the loop's own steps
	const void* mutex;
	bool operator==(const Locking&) const = default;
};

bool g_recordLocks = false;
std::vector<Locking> g_locks;

void recordStep(const std::string& step, const void* mutex)
{
	if (!g_recordLocks)
	{
		return;
	}
	// The recorder's and the log's own locks enclose nothing; they are dropped.
	if (step == "unlock" && !g_locks.empty() && g_locks.back() == Locking{"lock", mutex})
	{
		g_locks.pop_back();
		return;
	}
	g_locks.push_back({step, mutex});
}

} // namespace

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* pMutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* pMutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* pMutex)
{
	recordStep("lock", pMutex);
	return __real_pthread_mutex_lock(pMutex);
}

extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t* pMutex);
extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* pMutex);
extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* pMutex)
{
	recordStep("unlock", pMutex);
	return __real_pthread_mutex_unlock(pMutex);
}

namespace
{

class Checker : public ReceiverTest
{
protected:
	Poco::AutoPtr<ProcessChecker> make() { return WorkerTest::make<ProcessChecker>(); }

	/// The worker tells when it is deleted.
	template <typename Worker> void expectCounted()
	{
		struct Observed : Worker
		{
			using Worker::Worker;
			~Observed() override { events::add("deleted"); }
		};
		Worker* pWorker = new Observed(&handles, &running, &mode, location);
		events::clear();
		EXPECT_EQ(WorkerAccess::refCount(*pWorker), 1);
		EXPECT_EQ(pWorker->duplicate(), pWorker);
		EXPECT_EQ(WorkerAccess::refCount(*pWorker), 2);
		pWorker->release();
		EXPECT_THAT(events::all(), IsEmpty());
		pWorker->release();
		EXPECT_THAT(events::all(), ElementsAre("deleted"));
	}
};

TEST_F(Checker, ReadingTheProgramsAgainAppends)
{
	settings.programs({"/opt/app/one"});
	Poco::AutoPtr<ProcessChecker> pChecker = make();
	settings.programs({"/opt/app/other"});
	pChecker->getProcessList();
	EXPECT_THAT(WorkerAccess::processList(*pChecker), ElementsAre("/opt/app/one", "/opt/app/other"));
	EXPECT_THAT(events::all(), ElementsAre("log D ProcessChecker:69 process list loaded[noName]",
	                                       "log D ProcessChecker:69 process list loaded[noName]"));
}

TEST_F(Checker, TheObservationModeIsTheSettings)
{
	EXPECT_EQ(WorkerAccess::observationMode(*make()), OBSERVATION_MODE_1);
	settings.set("PROCESS_CHECK.OBSERVATION_MODE", "7");
	EXPECT_EQ(WorkerAccess::observationMode(*make()), OBSERVATION_MODE_2);
}

TEST_F(Checker, TheStartTimeIsTheTimeOfConstruction)
{
	events::stopClock(1767431225);
	EXPECT_EQ(WorkerAccess::startTime(*make()), "20260103090705");
}

TEST_F(Checker, TheRelatedProcessIsKilledByTheCommandWithItsName)
{
	settings.set("ADVENCE.PROCESS_KILL_COMMAND", "killall -q").set("AGENT.RELATED_PROCESS", "agentd");
	Poco::AutoPtr<ProcessChecker> pChecker = make();
	events::clear();
	fakeoutside::commandPrints("killall -q agentd", {"agentd: no process found\n"});
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

TEST_F(Checker, TheLastReferenceDeletesAWorkerAndNothingOfTheAgent)
{
	expectCounted<ProcessChecker>();
	expectCounted<CHeartReciver>();
	expectCounted<CHeartSender>();
	EXPECT_EQ(mode, MODE_SLAVE);
	EXPECT_EQ(location, "noName");
}

class CheckerRun : public Checker
{
protected:
	CheckerRun()
	{
		programRuns(true);
		std::filesystem::create_directory("/proc/8");
		sandbox::writeFile("/proc/8/status", "Name:\tdbServer\n");
	}

	static void endPrograms()
	{
		programRuns(false);
		std::filesystem::remove_all("/proc/8");
	}

	/// Runs the loop until its n-th sleep.
	/// @return the running flag at each
	std::vector<bool> flagsAtSleeps(std::size_t n)
	{
		std::vector<bool> flags;
		Poco::AutoPtr<ProcessChecker> pChecker = make();
		events::clear();
		events::at("sleep ",
		           [&]
		           {
			           flags.push_back(running);
			           if (flags.size() == n)
			           {
				           throw events::EndOfScript{};
			           }
		           });
		EXPECT_THROW(pChecker->run(), events::EndOfScript);
		return flags;
	}

	/// Runs one pass and expects both locks around its check and neither around its wait.
	void expectLocksAroundTheCheck()
	{
		Poco::AutoPtr<ProcessChecker> pChecker = make();
		events::at("sleep ",
		           []
		           {
			           recordStep("sleep", nullptr);
			           throw events::EndOfScript{};
		           });
		g_locks.clear();
		g_recordLocks = true;
		EXPECT_THROW(pChecker->run(), events::EndOfScript);
		g_recordLocks = false;
		ASSERT_EQ(g_locks.size(), 6U);
		const void* pFirst = g_locks[0].mutex;
		const void* pSecond = g_locks[1].mutex;
		EXPECT_NE(pFirst, pSecond);
		EXPECT_THAT(g_locks,
		            ElementsAre(Locking{"lock", pFirst}, Locking{"lock", pSecond}, Locking{"check", nullptr},
		                        Locking{"unlock", pFirst}, Locking{"unlock", pSecond}, Locking{"sleep", nullptr}));
	}
};

constexpr char kCheck[] = "log D Utill:241  2processes are running at the same time";

TEST_F(CheckerRun, EachCycleChecksStoresLogsAndSleeps)
{
	events::atNth(1, "sleep ", endPrograms);
	EXPECT_THAT(flagsAtSleeps(2), ElementsAre(true, false));
	EXPECT_THAT(events::all(),
	            ElementsAre(kCheck, "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1", "sleep 5000",
	                        "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0", "sleep 5000"));
}

TEST_F(CheckerRun, AnExceptionOfTheCheckKeepsTheFlagAndTheLoop)
{
	running = true;
	events::atNth(1, kCheck, events::throws(Poco::FileException("proc", 3)));
	events::atNth(2, kCheck, events::throws(std::runtime_error("other")));
	events::atNth(3, kCheck, events::throws(7));
	events::atNth(3, "sleep ", endPrograms);
	EXPECT_THAT(flagsAtSleeps(4), ElementsAre(true, true, true, false));
	EXPECT_THAT(events::all(), ElementsAre(kCheck, "log E ProcessChecker:107 File access error: proc", "sleep 5000", //
	                                       kCheck, "log E ProcessChecker:111 UNKNOWN ERROR", "sleep 5000",           //
	                                       kCheck, "log E ProcessChecker:111 UNKNOWN ERROR", "sleep 5000",           //
	                                       "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0", "sleep 5000"));
}

TEST_F(CheckerRun, TheLocksAreTakenAndGivenBackInTheSameOrderAndNotHeldWhileSleeping)
{
	events::at(kCheck, [] { recordStep("check", nullptr); });
	expectLocksAroundTheCheck();
	events::at("log D Utill:241", events::throws(Poco::FileException("proc")));
	expectLocksAroundTheCheck();
}

} // namespace
