// The verb events: an attacker's bytes and its memory and words. What it says: stories/status.txt. How it follows a log
// that is being written: program_test.py.

#include "CtlTest.h"
#include "ctl/history/Events.h"
#include "inspect/Catalogue.h"

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
	std::ofstream("/proc/self/clear_refs") << 5;
	const long before = memory("VmRSS:");
	const Outcome outcome = runBelow({"events"});
	EXPECT_EQ(outcome.code, 0);
	EXPECT_LT(memory("VmHWM:") - before, 6000) << "KiB";
}
#endif

/// The words of the pages' tables with this heading, as the program has them.
std::vector<std::string> wordsOfThePage(std::string_view heading)
{
	std::vector<std::string> words;
	for (const CatalogueRow& row : velarix::inspect::words())
	{
		if (row.label == heading)
		{
			words.emplace_back(row.text);
		}
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

} // namespace
