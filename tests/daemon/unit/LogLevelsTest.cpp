// The levels of the log: what reaches the file and what the console, with a working log, with
// none and with one that refuses every line.

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include "Daemon.h"
#include "LogOutput.h"
#include "VelarixLog.h"

namespace
{

constexpr char kLog[] = "/usr/velarix/log/levels.log";
constexpr char kRefusal[] = "Cannot write file: /var/log/v.log\n";

using Operation = void (VelarixLog::*)(const char*, int, const char*, ...);

struct Level
{
	const char* name;
	Operation write;
	const char* letter;
	const char* out; ///< the echo
	const char* err;
	bool throws; ///< what the log's channel throws, before any echo
};

// clang-format off
const Level kLevels[] = {
    // name        write                   letter standard output           standard error               throws
    {"Debug",    &VelarixLog::debug,     "D", "**DEBUG**(Source:11)text\n", "",                          true},
    {"Info",     &VelarixLog::info,      "I", "",                           "",                          false},
    {"Notice",   &VelarixLog::notice,    "D", "",                           "",                          false},
    {"Warning",  &VelarixLog::warning,   "W", "**WARNING**text\n",          "",                          true},
    {"Error",    &VelarixLog::error,     "E", "",                           "**ERROR**(Source:11)text\n", false},
    {"Critical", &VelarixLog::critical,  "C", "**CRITICAL**text\n",         "",                          true},
};
// clang-format on

class RefusingChannel : public Poco::Channel
{
public:
	explicit RefusingChannel(events::Action refusal) : m_refusal(std::move(refusal)) {}
	void log(const Poco::Message& /*message*/) override { m_refusal(); }

private:
	events::Action m_refusal;
};

class LogTexts : public DaemonTest
{
protected:
	LogTexts() { useRealLogFileAt(kLog); }

	/// Each line ends in an exception from now on.
	static void refuse(const events::Action& refusal)
	{
		Poco::Logger::get("FileLogger").setChannel(Poco::AutoPtr<Poco::Channel>(new RefusingChannel(refusal)));
	}
	static std::vector<std::string> file() { return logFileTexts(kLog); }

	static void expectConsole(const std::function<void()>& call, const std::string& out, const std::string& err)
	{
		const Console console = consoleOf(call);
		EXPECT_EQ(console.out, out);
		EXPECT_EQ(console.err, err);
	}
};

class LogLevels : public LogTexts, public testing::WithParamInterface<Level>
{
protected:
	static void write() { (velarixLog->*GetParam().write)("Source", 11, "%s%c", "tex", 't'); }
};

TEST_P(LogLevels, GoToTheFileAndTheConsole)
{
	expectConsole(write, GetParam().out, GetParam().err);
	EXPECT_THAT(file(), ElementsAre(std::string("[Source:11] <") + GetParam().letter + "> text"));
}

TEST_P(LogLevels, StillEchoWithoutALogger)
{
	useUnsetLog();
	expectConsole(write, GetParam().out, GetParam().err);
	EXPECT_THAT(file(), IsEmpty());
}

TEST_P(LogLevels, ThrowBeforeTheEchoOrPrintWhatTheFileRefused)
{
	refuse(events::throws(Poco::WriteFileException("/var/log/v.log")));
	if (GetParam().throws)
	{
		expectConsole([] { EXPECT_THROW(write(), Poco::WriteFileException); }, "", "");
	}
	else
	{
		expectConsole(write, kRefusal, GetParam().err);
	}
}

TEST_P(LogLevels, LeaveAnExceptionOfAnotherFamilyToTheCaller)
{
	refuse(events::throws(std::runtime_error("not of the library")));
	expectConsole([] { EXPECT_THROW(write(), std::runtime_error); }, "", "");
}

INSTANTIATE_TEST_SUITE_P(All, LogLevels, testing::ValuesIn(kLevels), rowName<Level>);

TEST_F(LogTexts, PercentSignsOfAnArgumentAreTextEverywhere)
{
	expectConsole([] { velarixLog->debug("Source", 1, "%s", "100%d %n %t %%"); }, "**DEBUG**(Source:1)100%d %n %t %%\n",
	              "");
	EXPECT_THAT(file(), ElementsAre("[Source:1] <D> 100%d %n %t %%"));
}

} // namespace
