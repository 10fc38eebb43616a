// The keeper's log beside the agent's, and what its words mean.

#include "ctl/history/KeeperLog.h"
#include "CtlTest.h"
#include "NodeLog.h"

using namespace std::chrono_literals;
using namespace velarix::ctl;

namespace fs = std::filesystem;

namespace
{

class KeeperHistory : public CtlTest
{
protected:
	LocalZone m_zone{"UTC0"};
	const std::string m_log = "/usr/velarix/log/velarix.log";
	const std::string m_keeper = "/usr/velarix/log/keeper.log";
};

std::string lineAt(const std::string& time, const std::string& rest)
{
	return "2026-03-01T" + time + "+0100 " + rest + "\n";
}

} // namespace

TEST_F(KeeperHistory, IsMergedByTimeWithItsArchives)
{
	const fs::path log = write(m_log, NodeLog(now).start(180s).text());
	write(m_keeper + ".1", lineAt("12:56:00.000", "ha-address[41] raised: 198.51.100.10 on eth0"));
	write(m_keeper, "torn line\n" + lineAt("12:58:30.500", "ha-web[42] died: ended with status 1; is started again"));
	const std::string text = run({"events", "--log", log.string()}).out;
	const std::size_t raised =
	    text.find("11:56:00.0  keeper                            ha-address raised: 198.51.100.10 on eth0");
	const std::size_t started = text.find("agent-started");
	const std::size_t died =
	    text.find("11:58:30.5  keeper                            ha-web died: ended with status 1");
	EXPECT_LT(raised, started) << text;
	EXPECT_LT(started, died) << text;
	EXPECT_NE(died, std::string::npos) << text;
	EXPECT_THAT(
	    run({"events", "--log", log.string(), "--json", "--since", "2m"}).out,
	    HasSubstr("{\"time\":\"2026-03-01T11:58:30.500Z\",\"event\":\"keeper\",\"pid\":42,"
	              "\"subject\":\"ha-web\",\"word\":\"died\",\"detail\":\"ended with status 1; is started again\""));
}

TEST_F(KeeperHistory, ASwitchoverIsPlannedInTheEventsAndInTheStatus)
{
	const fs::path log = write(m_log, NodeLog(now).start(198s).takeService(90s).masterFor(80s, 20s).giveUp(19s).text());
	write(m_keeper, lineAt("12:59:40.500", "velarixctl[9] switchover: to 192.0.2.2, by root"));
	const std::string text = run({"events", "--log", log.string()}).out;
	EXPECT_THAT(text, AllOf(HasSubstr("operator                          velarixctl switchover: to 192.0.2.2, by root"),
	                        HasSubstr("master -> standby: a planned move (velarixctl switchover)"),
	                        Not(HasSubstr("fault-found"))));
	EXPECT_EQ(movesIn(below(m_keeper))(now), now - 19500ms);
	EXPECT_EQ(movesIn(below(m_keeper))(now - 20s), std::nullopt);
}

// The agent finds its programs started while another host keeps the address.
TEST_F(KeeperHistory, AnAgentThatBelievesItServesIsContradicted)
{
	const fs::path log = write(m_log, NodeLog(now).start(198s).takeService(90s).text());
	write(m_keeper, lineAt("12:58:00.000", "ha-address[4] waiting: 198.51.100.10 is held by 02:00:00:00:00:02"));
	const std::string text = run({"events", "--log", log.string()}).out;
	EXPECT_THAT(text, HasSubstr("has taken the service: to the agent alone, ha-address is waiting: 198.51.100.10 is "
	                            "held by 02:00:00:00:00:02"));
	write(m_keeper, lineAt("12:58:00.000", "ha-address[4] raised: 198.51.100.10 on eth0"));
	EXPECT_THAT(run({"events", "--log", log.string()}).out, HasSubstr("has taken the service  ["));
}

TEST_F(KeeperHistory, GoesOnAfterItsFileWasCut)
{
	const fs::path path =
	    write(m_keeper, lineAt("12:00:00.000", "ha-web[4] running: a long line, longer than the next"));
	KeeperLog log(path);
	EXPECT_FALSE(log.next(now - 2h).has_value()) << "it is later than that";
	EXPECT_EQ(log.next(now)->word, "running");
	EXPECT_FALSE(log.next(now).has_value());
	write(m_keeper, lineAt("12:00:01.000", "ha-web[4] died: x"));
	EXPECT_EQ(log.next(now)->word, "died");
}

TEST_F(KeeperHistory, AFileThatCannotBeReadForATimeIsReportedOnceAndReadLater)
{
	fs::create_directories(below(m_keeper));
	KeeperLog log(below(m_keeper));
	EXPECT_FALSE(log.next(now).has_value());
	EXPECT_FALSE(log.next(now).has_value());
	ASSERT_EQ(log.trouble().size(), 1U);
	EXPECT_EQ(log.trouble().front().error, EISDIR);
	fs::remove(below(m_keeper));
	write(m_keeper, lineAt("12:00:01.000", "ha-web[4] died: x"));
	EXPECT_EQ(log.next(now)->word, "died");
}

TEST_F(KeeperHistory, AFileThatCannotBeReadIsReportedWhileItIsFollowed)
{
	const fs::path log = write(m_log, NodeLog(now).start(180s).text());
	fs::create_directories(below(m_keeper));
	int looks = 0;
	fakeHost().onPause = [&](std::chrono::milliseconds)
	{
		if (++looks == 3)
		{
			throw Failure(ExitCode::noInput, "enough");
		}
	};
	EXPECT_EQ(run({"events", "--follow", "--log", log.string()}).err,
	          "velarixctl: cannot read " + below(m_keeper).string() + ": Is a directory\nvelarixctl: enough\n");
}

TEST_F(KeeperHistory, EveryWordOfTheKeeperIsExplained)
{
	std::string sources;
	for (const fs::directory_entry& file : fs::directory_iterator(VELARIX_KEEPER_SOURCES))
	{
		sources += file.path().extension() == ".cpp" ? readFile(file.path()) : "";
	}
	// In a call of event or eventIf it is a text in front of the detail, or of another word.
	std::ranges::replace(sources, '\t', ' ');
	std::ranges::replace(sources, '\n', ' ');
	const auto twice = std::ranges::unique(sources, [](char one, char next) { return one == ' ' && next == ' '; });
	sources.erase(twice.begin(), twice.end());
	std::set<std::string> words;
	for (const std::string& call : allBetween(sources, "ournal.event", "; "))
	{
		for (const char* end : {"\", ", "\" : "})
		{
			const std::set<std::string> texts = allBetween(call, "\"", end);
			std::copy_if(texts.begin(), texts.end(), std::inserter(words, words.end()),
			             [](const std::string& text) {
				             return !text.empty() &&
				                    text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") == std::string::npos;
			             });
		}
	}
	EXPECT_GT(words.size(), 23U);
	for (const std::string& word : words)
	{
		EXPECT_FALSE(explainKeeper(word).empty()) << word;
	}
}

TEST_F(KeeperHistory, ALineIsExplainedAsItsProgramMeansIt)
{
	const Outcome file = run({"explain", lineAt("12:00:00.000", "ha-address[4] waiting: 198.51.100.10 is held by x")});
	EXPECT_EQ(file.code, 0);
	EXPECT_THAT(file.out, HasSubstr("another host answers for the address"));
	const Outcome journal = run({"explain", "Mar 01 12:00:00 a ha-web[4]: stopped: waits for the address"});
	EXPECT_THAT(journal.out, HasSubstr("nothing of the service is left"));
	EXPECT_EQ(run({"explain", "check-failed"}).code, 0);
}
