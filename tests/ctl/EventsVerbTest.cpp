// The verb events: an attacker's bytes, its memory, its words, and the history of real logs. Where it finds the log and
// what it says of what it cannot read: states.txt. How it follows a log that is being written: program_test.py.

#include <sys/resource.h>

#include "CtlTest.h"
#include "ctl/history/Events.h"

using namespace std::chrono_literals;
using namespace velarix::ctl;

namespace
{

constexpr char kSettings[] = "[LOG]\nPATH = /var/v.log\n";
constexpr char kSettingsPath[] = "/usr/velarix/bin/ini/config.ini";

std::string receiver(const std::string& time, const std::string& number, const std::string& text)
{
	return logLine(time, "CHeartReciver:" + number, text);
}

class EventsVerb : public CtlTest
{
protected:
	const LocalZone zone{"UTC0"};
	const std::string log = "/var/v.log";
};

TEST_F(EventsVerb, AnAttackersBytesDoNotReachTheTerminal)
{
	write(kSettingsPath, kSettings);
	write(log, receiver("09:00:00.0", "164", "received message: \x1b]0;owned\x07\xff"));
	EXPECT_THAT(runBelow({"events"}).out,
	            HasSubstr("something else than a heartbeat came in: \\x1b]0;owned\\x07\\xff  [CHeartReciver:164]\n"));
	EXPECT_THAT(runBelow({"events", "--json"}).out, HasSubstr("\"detail\":\"\\\\x1b]0;owned\\\\x07\\\\xff\""));
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
