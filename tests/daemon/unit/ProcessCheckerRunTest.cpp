// The loop of the process checker and the agent's kill. The check and the kill of the programs
// are scripted here (the production kill always succeeds), the locks are recorded.

#include <pthread.h>

#include "WorkerTest.h"

namespace
{

/// What the check answers, one after the other; the last for good.
std::vector<std::function<bool()>> g_answers;
std::size_t g_checks = 0;
std::function<bool()> g_kill;

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

// Utill::isProcessRunning(OBSERVATION_MODE)
extern "C" bool __wrap__ZN5Utill16isProcessRunningE16OBSERVATION_MODE(OBSERVATION_MODE mode);
extern "C" bool __wrap__ZN5Utill16isProcessRunningE16OBSERVATION_MODE(OBSERVATION_MODE mode)
{
	events::add("check in mode " + std::to_string(mode));
	recordStep("check", nullptr);
	const std::size_t turn = std::min(g_checks++, g_answers.size() - 1);
	return g_answers[turn]();
}

// Utill::processKill()
extern "C" bool __wrap__ZN5Utill11processKillEv();
extern "C" bool __wrap__ZN5Utill11processKillEv()
{
	events::add("kill");
	return g_kill();
}

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

bool yes()
{
	return true;
}

bool no()
{
	return false;
}

class CheckerRun : public WorkerTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		g_answers = {&yes};
		g_checks = 0;
	}

	void TearDown() override
	{
		g_recordLocks = false;
		g_locks.clear();
		DaemonTest::TearDown();
	}

	Poco::AutoPtr<ProcessChecker> make()
	{
		auto pChecker = WorkerTest::make<ProcessChecker>(location);
		events::clear();
		return pChecker;
	}

	/// Runs the loop until its n-th sleep.
	void runCycles(int n)
	{
		Poco::AutoPtr<ProcessChecker> pChecker = make();
		events::endAtSleep(n);
		EXPECT_THROW(pChecker->run(), events::EndOfScript);
	}

	/// Runs the loop until its second sleep.
	/// @return the running flag at both
	std::vector<bool> flagsAtTwoSleeps()
	{
		std::vector<bool> flags;
		Poco::AutoPtr<ProcessChecker> pChecker = make();
		events::onSleep(
		    [&](long)
		    {
			    flags.push_back(running);
			    if (flags.size() == 2)
			    {
				    throw events::EndOfScript{};
			    }
		    });
		EXPECT_THROW(pChecker->run(), events::EndOfScript);
		return flags;
	}

	void set(const std::string& key, const std::string& value)
	{
		settings.set(key, value);
		apply();
	}
};

TEST_F(CheckerRun, EachCycleChecksStoresLogsAndSleeps)
{
	g_answers = {&yes, &no};
	EXPECT_THAT(flagsAtTwoSleeps(), ElementsAre(true, false));
	EXPECT_THAT(events::all(),
	            ElementsAre("check in mode 1", "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1",
	                        "sleep 5000", "check in mode 1",
	                        "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0", "sleep 5000"));
}

TEST_F(CheckerRun, AnExceptionOfTheCheckKeepsTheFlagAndTheLoop)
{
	running = true;
	g_answers = {[]() -> bool { throw Poco::FileException("proc", 3); }, &no};
	EXPECT_THAT(flagsAtTwoSleeps(), ElementsAre(true, false));
	EXPECT_THAT(events::all(), ElementsAre("check in mode 1", "log E ProcessChecker:107 File access error: proc",
	                                       "sleep 5000", "check in mode 1",
	                                       "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 0", "sleep 5000"));
}

TEST_F(CheckerRun, AnExceptionOfAnotherKindIsAnUnknownErrorAndKeepsTheFlag)
{
	running = true;
	g_answers = {[]() -> bool { throw std::runtime_error("other"); }, []() -> bool { throw 7; }, &yes};
	runCycles(3);
	EXPECT_TRUE(running);
	EXPECT_THAT(events::all(), ElementsAre("check in mode 1", "log E ProcessChecker:111 UNKNOWN ERROR", "sleep 5000",
	                                       "check in mode 1", "log E ProcessChecker:111 UNKNOWN ERROR", "sleep 5000",
	                                       "check in mode 1",
	                                       "log D ProcessChecker:103 ProcessRuning[noName][MODE:S]: 1", "sleep 5000"));
}

/// Runs one pass of the checker and expects both locks around its check and neither
/// around its wait.
void expectLocksAroundTheCheck(ProcessChecker& checker)
{
	events::onSleep(
	    [](long)
	    {
		    recordStep("sleep", nullptr);
		    throw events::EndOfScript{};
	    });
	g_recordLocks = true;
	EXPECT_THROW(checker.run(), events::EndOfScript);
	g_recordLocks = false;
	ASSERT_EQ(g_locks.size(), 6U);
	const void* pFirst = g_locks[0].mutex;
	const void* pSecond = g_locks[1].mutex;
	EXPECT_NE(pFirst, pSecond);
	EXPECT_THAT(g_locks, ElementsAre(Locking{"lock", pFirst}, Locking{"lock", pSecond}, Locking{"check", nullptr},
	                                 Locking{"unlock", pFirst}, Locking{"unlock", pSecond}, Locking{"sleep", nullptr}));
}

TEST_F(CheckerRun, TheLocksAreTakenAndGivenBackInTheSameOrderAndNotHeldWhileSleeping)
{
	expectLocksAroundTheCheck(*make());
}

TEST_F(CheckerRun, ACheckThatThrowsGivesTheLocksBackToo)
{
	g_answers = {[]() -> bool { throw Poco::FileException("proc"); }};
	expectLocksAroundTheCheck(*make());
}

class AgentKill : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		g_answers = {&yes};
		g_kill = &yes;
	}

	static void expectEnd(CAgent& agent, const std::string& errorLine)
	{
		EXPECT_FATAL_AFTER(agent.kill(), errorLine, "isKill == true", "CAgent", 131, "bool CAgent::kill()");
	}
};

TEST_F(AgentKill, ThatFailsIsLoggedAndEndsTheDaemon)
{
	CAgent agent(MODE_SLAVE);
	g_kill = &no;
	expectEnd(agent, "**ERROR**(CAgent:123)process killed[noName]");
	g_kill = []() -> bool { throw Poco::SystemException("kill"); };
	expectEnd(agent, "**ERROR**(CAgent:127)System exception: kill");
}

TEST_F(AgentKill, ThatFailsDoesNotKeepTheAgentFromItsStart)
{
	g_kill = &no;
	const CAgent another(MODE_SLAVE);
	EXPECT_EQ(events::all().back(), "log I CAgent:38 Slave CAgent()");
}

} // namespace
