#include "OwnProcess.h"
#include "PlainUser.h"
#include "QuorinINI.h"
#include "WaitingThread.h"
#include "Workers.h"

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

using RunInfoLocks = WorkerTest;

/// Leaves the editor's lock taken by the calling thread.
void jamTheEditor()
{
	sandbox::writeFile(kVanishing, "[T]\nK = 1\n");
	initialization editor;
	editor.loadFile(kVanishing);
	ASSERT_EQ(std::remove(kVanishing), 0);
	ASSERT_FALSE(editor.changeINI("T.K", "2"));
}

// With one shared lock the sender's reader would wait behind the failed editor and no further
// heartbeat would go out. Each writer holds its own file's copy while it waits in the editor, so
// a second call of the same class stops before it, a reader of that class too.
TEST_IN_OWN_PROCESS(RunInfoLocks, EachSourceFileHasItsOwnCopyWhichAJammedWriterHolds)
{
	CAgent agent(MODE_SLAVE);
	auto pSender = make<CHeartSender>();
	auto pReciver = make<CHeartReciver>();
	// The threads wait until the process ends, so what they use is never destroyed.
	pSender.duplicate();
	pReciver.duplicate();
	static std::string partnerTime = "20240131235958";
	const auto readBySender = [&] { EXPECT_EQ(pSender->getProcessStartedTime(), "20240131235959"); };
	const auto readByReciver = [&] { EXPECT_FALSE(pReciver->isStartedProcessFaster(partnerTime)); };
	jamTheEditor();

	const WaitingThread agentWriter([&] { agent.saveStartedTime(); });
	EXPECT_TRUE(agentWriter.waits());
	EXPECT_TRUE(WaitingThread(readBySender).returns());
	EXPECT_TRUE(WaitingThread(readByReciver).returns());

	const WaitingThread reciverWriter([&] { pReciver->saveStartedTime(); });
	EXPECT_TRUE(reciverWriter.waits());
	const WaitingThread reciverReader(readByReciver);
	EXPECT_TRUE(reciverReader.waits());
	EXPECT_TRUE(WaitingThread(readBySender).returns());

	const WaitingThread senderWriter([&] { pSender->saveStartedTime(); });
	EXPECT_TRUE(senderWriter.waits());
	EXPECT_TRUE(WaitingThread(readBySender).waits());
	EXPECT_FALSE(agentWriter.isDone() || reciverWriter.isDone() || reciverReader.isDone());
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
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

// Whoever reads that line finds the new time in the record.
TEST_F(RunInfoLocks, TheReceiverReportsARecordThatIsWritten)
{
	events::stopClock(1700000000);
	events::at("log D CHeartReciver:627 ",
	           [] { EXPECT_THAT(sandbox::readFile(velarix::kRunInfoPath), HasSubstr("20231114221320")); });
	make<CHeartReciver>()->saveStartedTime();
	EXPECT_THAT(events::only({"log D CHeartReciver:627"}), SizeIs(1));
}

TEST_IN_OWN_PROCESS(RunInfoLocks, AWriterIsNotToldThatTheEditorFailed)
{
	events::stopClock(1700000000);
	CAgent agent(MODE_SLAVE);
	events::clear();
	ASSERT_EQ(::chmod(velarix::kRunInfoPath, 0444), 0);
	const PlainUser plainUser;
	testing::internal::CaptureStdout();
	agent.saveStartedTime();
	make<CHeartReciver>()->saveStartedTime();
	make<CHeartSender>()->saveStartedTime();
	const std::string printed = testing::internal::GetCapturedStdout();
	EXPECT_THAT(printed, StartsWith("ini File fopen fail.\n**DEBUG**(CAgent:179)run time wrote:"));
	const std::string time = "TRACE.LAST_RUN_TIME(20231114221320)[noName]";
	EXPECT_THAT(events::all(), ElementsAre("log D CAgent:179 run time wrote:" + time,
	                                       "log D CHeartReciver:627 run info file changed:" + time,
	                                       "log D CHeartSender:249 run info file changed:" + time));
	EXPECT_EQ(sandbox::readFile(velarix::kRunInfoPath), kRunInfo);
}

} // namespace
