// The verb events: where it finds the log, from when on it tells, and what it says of what it
// cannot read; its words, and the history of real logs. How it follows a log that is being written: program_test.py.

#include <sys/resource.h>

#include "CtlTest.h"
#include "ctl/history/Events.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace velarix::ctl;

namespace
{

constexpr char kSettings[] = "[AGENT]\n"
                             "VIRTUAL_IP_START_COMMAND = raise\n"
                             "VIRTUAL_IP_STOP_COMMAND = drop\n"
                             "[ADVENCE]\n"
                             "PROCESS_KILL_COMMAND = killall -9\n"
                             "[LOG]\n"
                             "PATH = /var/v.log\n";
constexpr char kSettingsPath[] = "/usr/velarix/bin/ini/config.ini";

std::string start(const std::string& time, const std::string& process)
{
	return logLine(time, "CAgent:25", "stop virtual ip, process", process + ":0");
}

std::string receiver(const std::string& time, const std::string& number, const std::string& text)
{
	return logLine(time, "CHeartReciver:" + number, text);
}

class EventsVerb : public CtlTest
{
protected:
	const LocalZone zone{"UTC0"};
	const std::string log = "/var/v.log";

	EventsVerb() { now = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + 12h; }

	/// The settings, and the log with the story.
	void writeStory() const
	{
		write(kSettingsPath, kSettings);
		write(log, story());
	}

	/// A start, a take-over at nine and giving up at ten.
	std::string story() const
	{
		return start("08:00:00.0", "4711") + receiver("09:00:00.0", "538", "networkStatus : SLAVE") +
		       receiver("09:00:00.5", "549", "standby -> master  process run") +
		       receiver("10:00:00.0", "508", "my comunication IP is not OK (1)") +
		       receiver("10:00:00.1", "509", "master -> standby  process kill");
	}
};

TEST_F(EventsVerb, FindsTheLogByTheSettings)
{
	writeStory();
	const Outcome outcome = runBelow({"events"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.err, "");
	expectGolden("events-story.txt", outcome.out);
}

TEST_F(EventsVerb, ColoursAreForATerminal)
{
	writeStory();
	colour = true;
	const std::string coloured = runBelow({"events"}).out;
	EXPECT_THAT(coloured, HasSubstr("\033[1mrole-changed       \033[0m  1 h"));
	EXPECT_THAT(coloured, HasSubstr("\033[31mfault-found        \033[0m  "));
}

TEST_F(EventsVerb, JsonIsAnObjectALine)
{
	writeStory();
	expectGolden("events-story.json", runBelow({"events", "--json"}).out);
}

TEST_F(EventsVerb, TellsWhatHappenedSinceATimeAndKnowsWhatWasBefore)
{
	writeStory();
	const Outcome outcome = runBelow({"events", "--since", "2h"});
	EXPECT_EQ(outcome.code, 0);
	expectGolden("events-since.txt", outcome.out);
	EXPECT_EQ(runBelow({"events", "--since", "2026-11-21 10:00"}).out, outcome.out);
	EXPECT_EQ(runBelow({"events", "--since", "10:00"}).out, outcome.out);
	EXPECT_EQ(runBelow({"events", "--since", "11:00"}).out, "");
}

TEST_F(EventsVerb, ATimeThatIsNoneIsAUsageError)
{
	writeStory();
	const Outcome outcome = runBelow({"events", "--since", "soon"});
	EXPECT_EQ(outcome.code, 2);
	EXPECT_EQ(outcome.out, "");
	EXPECT_EQ(
	    outcome.err,
	    "velarixctl: --since \"soon\" is no time: give a span (2h, 1.5h, 5 minutes ago), a date (2026-11-21 09:07) or "
	    "a time of today (09:07)\n");
	EXPECT_EQ(runBelow({"events", "--nonsense"}).code, 2);
	EXPECT_EQ(runBelow({"events", "extra"}).code, 2);
}

TEST_F(EventsVerb, ArchivesAreReported)
{
	write(kSettingsPath, kSettings);
	write(log + ".20261121083000000", start("08:00:00.0", "4711"));
	write(log, start("09:00:00.0", "4712"));
	const Outcome outcome = runBelow({"events"});
	EXPECT_THAT(outcome.out, HasSubstr("08:00:00.0  agent-started                     process 4711"));
	EXPECT_THAT(outcome.out, HasSubstr("08:00:00.0  agent-ended          0.0 s        process 4711"));
	EXPECT_THAT(outcome.out, HasSubstr("09:00:00.0  agent-started        1 h          process 4712"));
}

TEST_F(EventsVerb, WhatCannotBeReadIsSaid)
{
	const auto expectError = [this](int code, const std::string& error)
	{
		const Outcome outcome = runBelow({"events"});
		EXPECT_EQ(outcome.code, code) << error;
		EXPECT_EQ(outcome.out, "");
		EXPECT_EQ(anonymous(outcome.err), "velarixctl: " + error + "\n");
	};
	expectError(66, "cannot read /usr/velarix/bin/ini/config.ini: No such file or directory; name the log with --log");
	write(kSettingsPath, "[LOG]\nPURGEAGE = 1 days\n");
	expectError(78, "/usr/velarix/bin/ini/config.ini has no LOG.PATH; name the log with --log");
	write(kSettingsPath, kSettings);
	write("/var/other", "");
	expectError(66, "cannot read /var/v.log: No such file or directory");
	fs::create_directories(below(log));
	expectError(66, "cannot read /var/v.log: Is a directory");
}

TEST_F(EventsVerb, AnAttackersBytesDoNotReachTheTerminal)
{
	write(kSettingsPath, kSettings);
	write(log, receiver("09:00:00.0", "164", "received message: \x1b]0;owned\x07\xff"));
	EXPECT_THAT(runBelow({"events"}).out,
	            HasSubstr("something else than a heartbeat came in: \\x1b]0;owned\\x07\\xff  [CHeartReciver:164]\n"));
	EXPECT_THAT(runBelow({"events", "--json"}).out, HasSubstr("\"detail\":\"\\\\x1b]0;owned\\\\x07\\\\xff\""));
}

TEST_F(EventsVerb, AnArchiveThatCannotBeReadIsSaidAndTheRestIsReported)
{
	write(kSettingsPath, kSettings);
	fs::create_directories(below(log + ".20261121083000000"));
	write(log, start("09:00:00.0", "4712"));
	const Outcome outcome = runBelow({"events"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(outcome.out, HasSubstr("process 4712"));
	EXPECT_EQ(anonymous(outcome.err), "velarixctl: cannot read /var/v.log.20261121083000000: Is a directory\n");
}

#if !defined(__SANITIZE_ADDRESS__)
// AddressSanitizer keeps what is freed.
TEST_F(EventsVerb, MemoryDoesNotGrowWithTheLog)
{
	write(kSettingsPath, kSettings);
	{
		std::ofstream file(write(log, ""), std::ios::binary);
		std::string pass = receiver("09:00:00.0", "94", "Reciver while start") +
		                   receiver("09:00:00.0", "538", "networkStatus : SLAVE");
		for (std::size_t size = 0; size < 24UL * 1024 * 1024; size += pass.size())
		{
			file << pass;
		}
		file << std::string(8UL * 1024 * 1024, 'x'); // one line
	}
	rusage before{};
	rusage after{};
	ASSERT_EQ(::getrusage(RUSAGE_SELF, &before), 0);
	const Outcome outcome = runBelow({"events"});
	ASSERT_EQ(::getrusage(RUSAGE_SELF, &after), 0);
	EXPECT_EQ(outcome.code, 0);
	EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 6000) << "KiB";
}
#endif

/// The words in the first column of the table with this heading.
std::vector<std::string> wordsOfThePage(const std::string& heading)
{
	std::ifstream page(VELARIX_CTL_EVENTS);
	std::vector<std::string> words;
	bool inTable = false;
	for (std::string line; std::getline(page, line);)
	{
		if (inTable && line.starts_with("| `"))
		{
			words.push_back(line.substr(3, line.find('`', 3) - 3));
		}
		inTable = line.starts_with("| " + heading + " |") || (inTable && line.starts_with("|"));
	}
	return words;
}

template <typename Value> std::vector<std::string> wordsUpTo(Value last, std::size_t from = 0)
{
	std::vector<std::string> words;
	for (std::size_t value = from; value <= static_cast<std::size_t>(last); ++value)
	{
		words.emplace_back(wordOf(static_cast<Value>(value)));
	}
	return words;
}

TEST(EventWords, AreThoseOfTheirPage)
{
	EXPECT_EQ(wordsOfThePage("event"), wordsUpTo(EventKind::error));
	EXPECT_EQ(wordsOfThePage("cause"), wordsUpTo(Cause::notLogged, 1)); // but for "none"
	EXPECT_EQ(wordsOfThePage("fault"), wordsUpTo(Fault::foreignMessage));
}

/// Real logs: what two agents wrote in the lab while hosts, interfaces, programs and agents
/// failed (logs/README.md).
class EventsOfARealLog : public CtlTest, public testing::WithParamInterface<const char*>
{
protected:
	const LocalZone zone{"UTC0"};

	static std::string log() { return std::string(VELARIX_CTL_LOGS) + "/" + GetParam() + ".log"; }
};

TEST_P(EventsOfARealLog, AreThoseOfItsGoldenFile)
{
	const Outcome outcome = run({"events", "--log", log()});
	expectGolden(std::string("events/") + GetParam() + ".txt", outcome.out);
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.err, "");
}

INSTANTIATE_TEST_SUITE_P(Log, EventsOfARealLog,
                         testing::Values("host-loss-a", "host-loss-b", "program-loss-a", "program-loss-b",
                                         "service-interface-a", "service-interface-b", "communication-interface-a",
                                         "communication-interface-b", "both-masters-a", "both-masters-b",
                                         "agent-killed-a", "agent-killed-b", "agent-frozen-a",
                                         "printing-start-command-a"),
                         [](const auto& row)
                         {
	                         std::string name = row.param;
	                         std::replace(name.begin(), name.end(), '-', '_');
	                         return name;
                         });

} // namespace
