// What the history tells of agents, roles and services: the histories of histories.txt. Below,
// what no event shows.

#include <Poco/String.h>

#include "HistoryTest.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

struct Story
{
	std::string name;
	std::vector<std::string> lines;
};

std::vector<Story> stories()
{
	std::vector<Story> all;
	std::ifstream file(VELARIX_CTL_HISTORIES);
	if (!file)
	{
		throw std::runtime_error("cannot read " VELARIX_CTL_HISTORIES);
	}
	for (std::string line; std::getline(file, line);)
	{
		if (line.starts_with("== "))
		{
			all.push_back({line.substr(3), {}});
		}
		else if (!line.empty() && !line.starts_with('#'))
		{
			for (const auto& [escape, byte] : {std::pair("\\n", "\n"), {"\\r", "\r"}, {"\\e", "\x1b"}})
			{
				Poco::replaceInPlace(line, std::string(escape), std::string(byte));
			}
			all.back().lines.push_back(line);
		}
	}
	return all;
}

/// @return what stands before the first blank, which is taken away with it
std::string cutWord(std::string& text)
{
	const std::string word = text.substr(0, text.find(' '));
	text.erase(0, word.size() + 1);
	return word;
}

std::string yesNo(const std::optional<Reported<bool>>& seen)
{
	return !seen ? "none" : seen->value ? "yes" : "no";
}

class HistoryTable : public HistoryTest, public testing::WithParamInterface<Story>
{
protected:
	void obey(std::string line)
	{
		const std::string whole = line;
		const std::string word = cutWord(line);
		const auto command = kCommands.find(word);
		if (line.starts_with("x "))
		{
			repeat(std::stoi(word), line.substr(2));
		}
		else if (command != kCommands.end())
		{
			command->second(*this, line);
		}
		else
		{
			message(word, line);
		}
	}

	/// Clears what is expected; nothing is where nothing is expected.
	void expectEvents(std::vector<std::string>& expected)
	{
		if (expected.empty())
		{
			return;
		}
		std::vector<std::string> seen = events();
		if (expected.back() == "...")
		{
			expected.pop_back();
			seen.resize(std::min(seen.size(), expected.size()));
		}
		EXPECT_EQ(seen, expected == std::vector<std::string>{"none"} ? std::vector<std::string>{} : expected);
		expected.clear();
	}

	std::string figure(const std::string& name) const
	{
		const Snapshot& all = snapshot();
		const std::map<std::string, std::string> figures{
		    {"process", std::to_string(all.process)},
		    {"role", std::string(wordOf(all.role->value))},
		    {"agent-starts", std::to_string(count(EventKind::agentStarted))},
		    {"takeover", std::string(wordOf(all.takeOver.value_or(Event{}).cause))},
		    {"asking", yesNo(all.asking)},
		    {"address", std::string(wordOf(all.address.value_or(Reported<AddressState>{}).value))},
		    {"partner", all.partnerLost ? "lost" : "heard"},
		    {"fault", all.fault(Fault::heartbeats).there ? "heartbeats" : "none"},
		    {"silences", std::to_string(all.silences)},
		    {"refusals", std::to_string(all.refusals)},
		    {"failed-starts", std::to_string(all.failedStarts)},
		    {"heartbeats-sent", std::to_string(all.heartbeatsSent)},
		    {"heartbeats-received", std::to_string(all.heartbeatsReceived)}};
		return figures.at(name);
	}

private:
	using Command = void (*)(HistoryTable&, std::string&);
	static const std::map<std::string, Command> kCommands;

	std::uint64_t count(EventKind kind) const
	{
		const auto found = snapshot().events.find(kind);
		return found == snapshot().events.end() ? 0 : found->second;
	}

	void repeat(int times, std::string commands)
	{
		Poco::replaceInPlace(commands, std::string(" | "), std::string("\t"));
		for (int time = 0; time < times; ++time)
		{
			std::istringstream each(commands);
			for (std::string one; std::getline(each, one, '\t');)
			{
				obey(one);
			}
		}
	}

	/// "receiver 137 <E> TEXT"
	void message(const std::string& speaker, std::string rest)
	{
		static const std::map<std::string, std::pair<const char*, long>> speakers{{"agent", {"CAgent", 0}},
		                                                                          {"checker", {"ProcessChecker", 1}},
		                                                                          {"sender", {"CHeartSender", 2}},
		                                                                          {"receiver", {"CHeartReciver", 3}}};
		const auto known = speakers.find(speaker);
		thread = known != speakers.end() ? known->second.second : thread;
		const int number = std::stoi(cutWord(rest));
		const char letter = rest.starts_with('<') ? cutWord(rest)[1] : 'D';
		const std::string other = speaker == "service" ? "Utill" : speaker;
		say(known != speakers.end() ? known->second.first : other, number, rest, letter);
	}
};

const std::map<std::string, HistoryTable::Command> HistoryTable::kCommands{
    {"start", [](HistoryTable& test, std::string&) { test.start(); }},
    {"pass", [](HistoryTable& test, std::string& role) { test.pass(role == "M"); }},
    {"take-service", [](HistoryTable& test, std::string&) { test.takeService(); }},
    {"become-master", [](HistoryTable& test, std::string&) { test.becomeMaster(); }},
    {"become-standby", [](HistoryTable& test, std::string&) { test.becomeStandby(); }},
    {"give-up-and-ask", [](HistoryTable& test, std::string&) { test.giveUpAndAsk(); }},
    {"heard", [](HistoryTable& test, std::string& text) { test.heartbeat(text); }},
    {"sent", [](HistoryTable& test, std::string& text) { test.sent(text); }},
    {"checked", [](HistoryTable& test, std::string& text) { test.checked(text.at(0), std::stoi(text.substr(2))); }},
    {"ran",
     [](HistoryTable& test, std::string& text)
     {
	     const std::size_t end = std::min(text.find(" : "), text.size());
	     test.ran(text.substr(0, end), text.substr(std::min(end + 3, text.size())));
     }},
    {"process", [](HistoryTable& test, std::string& text) { test.process = std::stol(text); }},
    {"thread", [](HistoryTable& test, std::string& text) { test.thread = std::stol(text); }},
    {"wait", [](HistoryTable& test, std::string& text) { test.now += std::chrono::milliseconds(std::stol(text)); }},
    {"forget", [](HistoryTable& test, std::string&) { test.events(); }},
};

TEST_P(HistoryTable, TellsItsEvents)
{
	const auto judges = [](const std::string& line) { return line.starts_with("> ") || line.starts_with("= "); };
	ASSERT_TRUE(std::ranges::any_of(GetParam().lines, judges));
	std::vector<std::string> expected;
	for (const std::string& line : GetParam().lines)
	{
		if (line.starts_with("> "))
		{
			expected.push_back(line.substr(2));
			continue;
		}
		expectEvents(expected);
		if (line.starts_with("= "))
		{
			const std::size_t end = line.find(' ', 2);
			EXPECT_EQ(figure(line.substr(2, end - 2)), line.substr(end + 1)) << line;
			continue;
		}
		obey(line);
	}
	expectEvents(expected);
}

INSTANTIATE_TEST_SUITE_P(Story, HistoryTable, testing::ValuesIn(stories()), rowName<Story>);

TEST_F(HistoryTest, ALogThatBeginsInTheMiddleTellsNoStartAndNoChange)
{
	pass(true);
	checked('M', 1);
	sent("/process/1/1/20261121090601/0/");
	EXPECT_THAT(events(), IsEmpty());
	EXPECT_EQ(snapshot().process, 4711);
	EXPECT_FALSE(snapshot().agentStarted);
	EXPECT_EQ(snapshot().role->value, Role::master);
	EXPECT_TRUE(snapshot().programsRun->value);
	EXPECT_FALSE(snapshot().asking->value);
	EXPECT_FALSE(snapshot().lastRoleChange);
}

TEST_F(HistoryTest, MessagesWithoutADateHappenedWhenTheOneBeforeDid)
{
	LogLine line;
	line.letter = 'D';
	line.process = 1;
	line.thread = 3;
	line.label = "CHeartReciver";
	line.number = 505;
	history.feed(line);
	EXPECT_EQ(snapshot().process, 0);
	LogLine garbage;
	garbage.text = "garbage";
	history.feed(garbage);
	EXPECT_EQ(snapshot().letters.at('?'), 1U);
	start();
	line.process = 4711;
	history.feed(line);
	EXPECT_EQ(snapshot().role->value, Role::master);
	EXPECT_EQ(snapshot().role->since, now);
}

TEST_F(HistoryTest, EachWorkersLastMessageIsKnown)
{
	start();
	EXPECT_FALSE(snapshot().lastOfReceiver);
	receiver(94);
	const Instant ofReceiver = now;
	service(756); // on the receiver's thread
	EXPECT_EQ(snapshot().lastOfReceiver, ofReceiver + 100ms);
	checked('S', 0);
	EXPECT_EQ(snapshot().lastOfChecker, now);
	sent("/process/0/2/x/0/");
	EXPECT_EQ(snapshot().lastOfSender, now);
	EXPECT_EQ(snapshot().lastOfReceiver, ofReceiver + 100ms);
	EXPECT_EQ(snapshot().lastMessage, now);
}

TEST_F(HistoryTest, GivenCommandsServeUntilTheLogTellsThem)
{
	std::vector<std::string> reported;
	History given([&](const Event& event) { reported.push_back(textOf(event)); },
	              {"raise", "drop (a) : b", "killall -9"});
	const auto feed = [&](int number, const std::string& text)
	{
		LogLine line;
		line.time = now += 100ms;
		line.process = 1;
		line.thread = 3;
		line.label = number == 573 ? "Utill" : "CHeartReciver";
		line.number = number;
		line.letter = 'D';
		line.text = text;
		given.feed(line);
	};
	feed(505, "");
	feed(524, "");
	feed(525, "");
	feed(573, "command(killall -9 server) : ");
	feed(573, "command(drop (a) : b) : gone");
	EXPECT_THAT(reported, ElementsAre("fault-found service-interface",
	                                  "role-changed master->slave (service-interface-down) 200ms",
	                                  "ask-made (service-interface-down)", "program-killed (give-up) server",
	                                  "address-dropped (give-up) gone"));
}

TEST_F(HistoryTest, TheHeartbeatsOfBothSidesAreInThePicture)
{
	start();
	heartbeat("/process/1/1/20261121090601/0/");
	const Instant first = now;
	heartbeat("/process/1/1/20261121090601/0/");
	EXPECT_EQ(snapshot().received->value, (Heartbeat{true, true, "20261121090601", false}));
	EXPECT_EQ(snapshot().received->since, first);
	EXPECT_EQ(snapshot().received->at, now);
	sent("/process/0/2/20261121090602/1/");
	EXPECT_EQ(snapshot().sent->value, (Heartbeat{false, false, "20261121090602", true}));
}

} // namespace
