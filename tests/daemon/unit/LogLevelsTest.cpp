#include <stdexcept>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Exception.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include "Console.h"
#include "Daemon.h"
#include "LogLines.h"
#include "Sandbox.h"
#include "VelarixLog.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr char kLog[] = "/usr/velarix/log/levels.log";

class VelarixLogLevels : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		useRealLogFileAt(kLog);
	}

	static std::vector<std::string> file() { return logFileTexts(kLog); }
};

TEST_F(VelarixLogLevels, DebugGoesToTheFileAndWithItsPlaceToStandardOutput)
{
	const Console console = consoleOf([] { velarixLog->debug("Source", 11, "%d of %s", 3, "five"); });
	EXPECT_THAT(file(), ElementsAre("[Source:11] <D> 3 of five"));
	EXPECT_EQ(console.out, "**DEBUG**(Source:11)3 of five\n");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevels, InfoGoesToTheFileAlone)
{
	const Console console = consoleOf([] { velarixLog->info("Source", 12, "%d of %s", 3, "five"); });
	EXPECT_THAT(file(), ElementsAre("[Source:12] <I> 3 of five"));
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevels, NoticeGoesToTheFileAloneAndCarriesTheDebugLetter)
{
	const Console console = consoleOf([] { velarixLog->notice("Source", 13, "%d of %s", 3, "five"); });
	EXPECT_THAT(file(), ElementsAre("[Source:13] <D> 3 of five"));
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevels, WarningGoesToTheFileAndWithoutItsPlaceToStandardOutput)
{
	const Console console = consoleOf([] { velarixLog->warning("Source", 14, "%d of %s", 3, "five"); });
	EXPECT_THAT(file(), ElementsAre("[Source:14] <W> 3 of five"));
	EXPECT_EQ(console.out, "**WARNING**3 of five\n");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevels, ErrorGoesToTheFileAndWithItsPlaceToStandardError)
{
	const Console console = consoleOf([] { velarixLog->error("Source", 15, "%d of %s", 3, "five"); });
	EXPECT_THAT(file(), ElementsAre("[Source:15] <E> 3 of five"));
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "**ERROR**(Source:15)3 of five\n");
}

TEST_F(VelarixLogLevels, CriticalGoesToTheFileAndWithoutItsPlaceToStandardOutput)
{
	const Console console = consoleOf([] { velarixLog->critical("Source", 16, "%d of %s", 3, "five"); });
	EXPECT_THAT(file(), ElementsAre("[Source:16] <C> 3 of five"));
	EXPECT_EQ(console.out, "**CRITICAL**3 of five\n");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevels, LinesKeepTheirOrder)
{
	consoleOf(
	    []
	    {
		    velarixLog->critical("A", 3, "%s", "first");
		    velarixLog->notice("B", 2, "%s", "second");
		    velarixLog->error("C", 1, "%s", "third");
	    });
	EXPECT_THAT(file(), ElementsAre("[A:3] <C> first", "[B:2] <D> second", "[C:1] <E> third"));
}

TEST_F(VelarixLogLevels, PercentSignsOfAnArgumentAreTextEverywhere)
{
	const Console console = consoleOf([] { velarixLog->debug("Source", 1, "%s", "100%d %n %t %%"); });
	EXPECT_THAT(file(), ElementsAre("[Source:1] <D> 100%d %n %t %%"));
	EXPECT_EQ(console.out, "**DEBUG**(Source:1)100%d %n %t %%\n");
}

TEST_F(VelarixLogLevels, AnEmptyMessageIsALineOfItsOwn)
{
	const Console console = consoleOf([] { velarixLog->warning("Source", 1, "%s", ""); });
	EXPECT_THAT(file(), ElementsAre("[Source:1] <W> "));
	EXPECT_EQ(console.out, "**WARNING**\n");
}

TEST_F(VelarixLogLevels, AMessageLongerThanTheFirstBufferIsWhole)
{
	const std::string text = std::string(70000, 'm') + "end";
	const Console console = consoleOf([&] { velarixLog->error("Source", 1, "%s", text.c_str()); });
	EXPECT_THAT(file(), ElementsAre("[Source:1] <E> " + text));
	EXPECT_EQ(console.err, "**ERROR**(Source:1)" + text + "\n");
}

/// The log without a logger, as after a start that failed.
class VelarixLogLevelsUnset : public VelarixLogLevels
{
protected:
	void SetUp() override
	{
		VelarixLogLevels::SetUp();
		useUnsetLog();
	}
};

TEST_F(VelarixLogLevelsUnset, DebugStillEchoes)
{
	const Console console = consoleOf([] { velarixLog->debug("Source", 11, "%s", "text"); });
	EXPECT_EQ(console.out, "**DEBUG**(Source:11)text\n");
	EXPECT_EQ(console.err, "");
	EXPECT_THAT(file(), IsEmpty());
}

TEST_F(VelarixLogLevelsUnset, InfoAndNoticeAreLost)
{
	const Console console = consoleOf(
	    []
	    {
		    velarixLog->info("Source", 12, "%s", "text");
		    velarixLog->notice("Source", 13, "%s", "text");
	    });
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "");
	EXPECT_THAT(file(), IsEmpty());
}

TEST_F(VelarixLogLevelsUnset, WarningStillEchoes)
{
	const Console console = consoleOf([] { velarixLog->warning("Source", 14, "%s", "text"); });
	EXPECT_EQ(console.out, "**WARNING**text\n");
	EXPECT_EQ(console.err, "");
	EXPECT_THAT(file(), IsEmpty());
}

TEST_F(VelarixLogLevelsUnset, ErrorStillEchoes)
{
	const Console console = consoleOf([] { velarixLog->error("Source", 15, "%s", "text"); });
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "**ERROR**(Source:15)text\n");
	EXPECT_THAT(file(), IsEmpty());
}

TEST_F(VelarixLogLevelsUnset, CriticalStillEchoes)
{
	const Console console = consoleOf([] { velarixLog->critical("Source", 16, "%s", "text"); });
	EXPECT_EQ(console.out, "**CRITICAL**text\n");
	EXPECT_EQ(console.err, "");
	EXPECT_THAT(file(), IsEmpty());
}

/// Ends every line in an exception.
class RefusingChannel : public Poco::Channel
{
public:
	explicit RefusingChannel(bool ofTheLibrary) : m_ofTheLibrary(ofTheLibrary) {}
	void log(const Poco::Message& /*message*/) override
	{
		if (m_ofTheLibrary)
		{
			throw Poco::WriteFileException("/var/log/v.log");
		}
		throw std::runtime_error("not of the library");
	}

private:
	bool m_ofTheLibrary;
};

/// The log with a channel that refuses every line.
class VelarixLogLevelsRefused : public VelarixLogLevels
{
protected:
	void SetUp() override
	{
		VelarixLogLevels::SetUp();
		refuse(true);
	}

	static void refuse(bool ofTheLibrary)
	{
		Poco::Logger::get("FileLogger").setChannel(Poco::AutoPtr<Poco::Channel>(new RefusingChannel(ofTheLibrary)));
	}

	/// Expects that `call` leaves the exception to its caller, without an echo.
	static void expectThrows(const std::function<void()>& call)
	{
		const Console console = consoleOf([&] { EXPECT_THROW(call(), Poco::WriteFileException); });
		EXPECT_EQ(console.out, "");
		EXPECT_EQ(console.err, "");
	}
};

TEST_F(VelarixLogLevelsRefused, DebugThrowsBeforeItsEcho)
{
	expectThrows([] { velarixLog->debug("Source", 11, "%s", "text"); });
}

TEST_F(VelarixLogLevelsRefused, WarningThrowsBeforeItsEcho)
{
	expectThrows([] { velarixLog->warning("Source", 14, "%s", "text"); });
}

TEST_F(VelarixLogLevelsRefused, CriticalThrowsBeforeItsEcho)
{
	expectThrows([] { velarixLog->critical("Source", 16, "%s", "text"); });
}

TEST_F(VelarixLogLevelsRefused, InfoPrintsTheException)
{
	const Console console = consoleOf([] { velarixLog->info("Source", 12, "%s", "text"); });
	EXPECT_EQ(console.out, "Cannot write file: /var/log/v.log\n");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevelsRefused, NoticePrintsTheException)
{
	const Console console = consoleOf([] { velarixLog->notice("Source", 13, "%s", "text"); });
	EXPECT_EQ(console.out, "Cannot write file: /var/log/v.log\n");
	EXPECT_EQ(console.err, "");
}

TEST_F(VelarixLogLevelsRefused, ErrorPrintsTheExceptionAndStillEchoes)
{
	const Console console = consoleOf([] { velarixLog->error("Source", 15, "%s", "text"); });
	EXPECT_EQ(console.out, "Cannot write file: /var/log/v.log\n");
	EXPECT_EQ(console.err, "**ERROR**(Source:15)text\n");
}

TEST_F(VelarixLogLevelsRefused, AnExceptionOfAnotherFamilyIsTheCallersAtEveryLevel)
{
	refuse(false);
	const Console console = consoleOf(
	    []
	    {
		    EXPECT_THROW(velarixLog->debug("Source", 1, "%s", "text"), std::runtime_error);
		    EXPECT_THROW(velarixLog->info("Source", 1, "%s", "text"), std::runtime_error);
		    EXPECT_THROW(velarixLog->notice("Source", 1, "%s", "text"), std::runtime_error);
		    EXPECT_THROW(velarixLog->warning("Source", 1, "%s", "text"), std::runtime_error);
		    EXPECT_THROW(velarixLog->error("Source", 1, "%s", "text"), std::runtime_error);
		    EXPECT_THROW(velarixLog->critical("Source", 1, "%s", "text"), std::runtime_error);
	    });
	EXPECT_EQ(console.out, "");
	EXPECT_EQ(console.err, "");
}

} // namespace
