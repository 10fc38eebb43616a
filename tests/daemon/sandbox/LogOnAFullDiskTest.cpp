// The log on a file system that is really full.
#include <fcntl.h>

#include <Poco/String.h>

#include "Console.h"
#include "Daemon.h"
#include "LogFile.h"
#include "VelarixLog.h"

using testing::AnyOf;

namespace
{

constexpr char kLog[] = "/usr/velarix/full/velarix.log";

/// What the library says; its versions (1.11 and 1.13) differ.
std::string g_refusal;

class LogOnAFullDisk : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		sandbox::shell("mkdir -p /usr/velarix/full && mount -t tmpfs -o size=64k full /usr/velarix/full");
		settings.set("LOG.PATH", kLog);
		apply();
		useRealLogFile();
		velarixLog->info("Source", 1, "%s", "before");
		fill();
	}
	void TearDown() override
	{
		useRecordedLog();
		sandbox::shell("umount -l /usr/velarix/full");
		DaemonTest::TearDown();
	}

	/// Takes all the room that is left, that behind the log's last line too.
	static void fill()
	{
		sandbox::shell("dd if=/dev/zero of=/usr/velarix/full/rest bs=1k count=100 2>/dev/null || true");
		const std::string line(4200, 'x');
		testing::internal::CaptureStdout();
		velarixLog->info("Source", 2, "%s", line.c_str());
		g_refusal = Poco::trim(testing::internal::GetCapturedStdout());
		EXPECT_THAT(g_refusal, AnyOf(std::string("Cannot write file: ") + kLog,
		                             std::string("File access error: no space left on device: ") + kLog));
	}
};

// The library's stream stays bad; a restart of the daemon is what helps.
TEST_F(LogOnAFullDisk, RoomMadeLaterBringsTheLogBackWithTheNextStartAlone)
{
	ASSERT_EQ(::unlink("/usr/velarix/full/rest"), 0);
	EXPECT_EQ(consoleOf([] { velarixLog->info("Source", 3, "%s", "with room"); }).out, g_refusal + "\n");
	EXPECT_THAT(sandbox::readFile(kLog), Not(HasSubstr("with room")));
	useRealLogFile();
	EXPECT_EQ(consoleOf([] { velarixLog->info("Source", 4, "%s", "after the start"); }).out, "");
	EXPECT_THAT(sandbox::readFile(kLog), HasSubstr("[Source:4] <I> after the start\n"));
}

} // namespace
