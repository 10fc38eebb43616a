#include "OwnProcess.h"
#include "QuorinINI.h"
#include "WaitingThread.h"
#include "WorkerTest.h"

// ThreadSanitizer's deadlock detector is right about the editor: after a failure
// it keeps its lock on purpose, and that is what these tests jam.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
	return "deadlock:initialization::changeINI\n";
}

namespace
{

constexpr char kVanishing[] = "/usr/velarix/bin/log/vanishing.txt";

class RunInfoLocks : public WorkerTest
{
};

/// Leaves the editor's lock taken by the calling thread.
void jamTheEditor()
{
	sandbox::writeFile(kVanishing, "[T]\nK = 1\n");
	initialization editor;
	editor.loadFile(kVanishing);
	ASSERT_EQ(std::remove(kVanishing), 0);
	ASSERT_FALSE(editor.changeINI("T.K", "2"));
}

// With one shared lock the sender's reader would wait behind the failed editor
// and no further heartbeat would go out.
TEST_IN_OWN_PROCESS(RunInfoLocks, EachSourceFileHasItsOwnCopy)
{
	CAgent agent(MODE_SLAVE);
	auto pSender = make<CHeartSender>();
	auto pReciver = make<CHeartReciver>();
	jamTheEditor();

	const WaitingThread agentWriter([&agent] { agent.saveStartedTime(); });
	EXPECT_TRUE(agentWriter.waits());

	std::string time;
	const WaitingThread senderReader([&] { time = pSender->getProcessStartedTime(); });
	ASSERT_TRUE(senderReader.returns());
	EXPECT_EQ(time, "20240131235959");

	std::string partnerTime = "20240131235958";
	bool faster = true;
	const WaitingThread reciverReader([&] { faster = pReciver->isStartedProcessFaster(partnerTime); });
	ASSERT_TRUE(reciverReader.returns());
	EXPECT_FALSE(faster);
	EXPECT_FALSE(agentWriter.isDone());
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
}

// Each writer holds its own file's copy while it waits in the editor, so a second
// call of the same class stops before it, a reader of that class too.
TEST_IN_OWN_PROCESS(RunInfoLocks, AJammedWriterHoldsUpItsOwnClassAlone)
{
	auto pSender = make<CHeartSender>();
	auto pReciver = make<CHeartReciver>();
	// The threads wait until the process ends, so what they use is never destroyed.
	pSender.duplicate();
	pReciver.duplicate();
	static std::string partnerTime = "20240131235958";
	jamTheEditor();

	const WaitingThread reciverWriter([&] { pReciver->saveStartedTime(); });
	EXPECT_TRUE(reciverWriter.waits());
	const WaitingThread reciverReader([&] { pReciver->isStartedProcessFaster(partnerTime); });
	EXPECT_TRUE(reciverReader.waits());
	EXPECT_EQ(pSender->getProcessStartedTime(), "20240131235959");

	const WaitingThread senderWriter([&] { pSender->saveStartedTime(); });
	EXPECT_TRUE(senderWriter.waits());
	const WaitingThread senderReader([&] { pSender->getProcessStartedTime(); });
	EXPECT_TRUE(senderReader.waits());
	EXPECT_FALSE(reciverWriter.isDone());
	EXPECT_FALSE(reciverReader.isDone());
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
}

// This file has its copies as well: taking them stops nobody.
TEST_IN_OWN_PROCESS(RunInfoLocks, ALockTakenInAnotherSourceFileStopsNobody)
{
	CAgent agent(MODE_SLAVE);
	auto pSender = make<CHeartSender>();
	auto pReciver = make<CHeartReciver>();
	const Poco::Mutex::ScopedLock lock(g_runTimeRecodeMutex);
	const WaitingThread everybody(
	    [&]
	    {
		    agent.saveStartedTime();
		    pSender->saveStartedTime();
		    pReciver->saveStartedTime();
		    pSender->getProcessStartedTime();
	    });
	EXPECT_TRUE(everybody.returns());
}

// A lock that is already held by its own thread can be taken again.
TEST_F(RunInfoLocks, TheFourLocksAreRecursive)
{
	for (Poco::Mutex* pMutex : {&g_handlerMutex, &g_pIDMutex, &g_modeMutex, &g_runTimeRecodeMutex})
	{
		const Poco::Mutex::ScopedLock outer(*pMutex);
		EXPECT_TRUE(pMutex->tryLock());
		pMutex->unlock();
	}
}

} // namespace
