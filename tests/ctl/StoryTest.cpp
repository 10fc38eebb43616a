// What an operator reads, and what is done for him: the stories of stories/.

#include "StoryTest.h"

#include <iomanip>

using namespace velarix::inspect;
using namespace std::chrono_literals;

const StoryBook& storyBook()
{
	static const StoryBook all(VELARIX_CTL_STORIES);
	return all;
}

void StoryTest::obeyOne(const std::string& line)
{
	Words words{line, "", ""};
	const std::string word = cutWord(words.all);
	words.rest = words.all;
	words.first = cutWord(words.rest);
	const bool judges = kExpectations.contains(word);
	const auto& all = judges ? kExpectations : kCommands;
	ASSERT_TRUE(all.contains(word)) << line;
	ASSERT_TRUE(!judges || kMayBeEmpty.contains(word) || !words.all.empty()) << "of what? " << line;
	ASSERT_TRUE(!kOfTwo.contains(word) || !words.rest.empty()) << "and what? " << line;
	SCOPED_TRACE(line + "\n" + m_outcome.out + m_outcome.err);
	try
	{
		all.at(word)(*this, words);
	}
	catch (const std::exception& error)
	{
		ADD_FAILURE() << error.what();
	}
	m_judged = m_judged || judges;
}

NodeLog StoryTest::logOf(const std::string& text) const
{
	NodeLog log = emptyLog();
	for (std::string part : split(text, " | "))
	{
		const std::string word = cutWord(part);
		const std::string first = cutWord(part);
		word == "start"         ? log.start(seconds(first))
		: word == "take"        ? log.takeService(seconds(first))
		: word == "give-up"     ? log.giveUp(seconds(first))
		: word == "agent"       ? log.agent(std::stol(first))
		: word == "master"      ? log.masterFor(seconds(first), seconds(part))
		: word == "silent"      ? log.masterFor(seconds(first), seconds(part), "")
		: word == "slave"       ? log.slaveFor(seconds(first), seconds(part))
		: word == "asks"        ? log.slave(seconds(first), NodeLog::kSlaveBeat, true)
		: word == "slave-hears" ? log.slave(seconds(first), part)
		: word == "hears"       ? log.masterFor(12300ms, 300ms, first)
		: word == "takes"       ? log.line(seconds(first), 3, "CHeartReciver:473", "try to process run")
		: word == "sends"       ? log.line(seconds(first), 2, "CHeartSender:124", "beat sent[noName]:" + part)
		: word == "check"       ? log.line(seconds(first), 1, "ProcessChecker:103", "ProcessRuning[noName][MODE:M]: 1")
		                        : throw std::invalid_argument(word);
	}
	return log;
}

void StoryTest::run(const std::string& words, bool below)
{
	std::vector<std::string> arguments;
	std::istringstream stream(inDirectory(words));
	for (std::string word; stream >> std::quoted(word, '\'', '\1');)
	{
		arguments.push_back(word);
	}
	const Outcome outcome = below ? runBelow(arguments) : StateTest::run(arguments);
	expectEnd();
	m_untold = words + " ";
	m_judged = true;
	m_outcome = {outcome.code, anonymous(outcome.out), anonymous(outcome.err)};
	if (Poco::replace(m_untold, std::string("--json "), std::string()) != m_untold)
	{
		expectJson(arguments.front() == "watch" || arguments.front() == "events");
	}
}

void StoryTest::writeState(const std::string& program, const std::string& fields) const
{
	const auto since =
	    std::chrono::duration_cast<std::chrono::seconds>((now - NodeLog::Span(60000)).time_since_epoch());
	std::string text = fields + ", since=" + std::to_string(since.count());
	Poco::replaceInPlace(text, std::string("AGO"), std::to_string(since.count()));
	Poco::replaceInPlace(text, std::string(", "), std::string("\n"));
	write("/run/velarix-ha/" + program + ".state", text + "\n");
}

void StoryTest::makeNode(int node)
{
	node == 1 ? soundMaster() : soundSlave();
	m_lines = settingsOf(node);
	fakeHost().onPause = [this](auto time) { pass(time); };
}

host::Process& StoryTest::process(const std::string& pid)
{
	const auto found = std::ranges::find(fakeHost().processes, std::stoi(pid), &host::Process::pid);
	return found == fakeHost().processes.end() ? throw std::invalid_argument("no process " + pid) : *found;
}

void StoryTest::endProcess(const std::string& pid)
{
	std::erase_if(fakeHost().processes, [&](const host::Process& process) { return process.pid == std::stoi(pid); });
}

void StoryTest::ssh(const std::string& script) const
{
	::setenv("PATH", (below("/bin").string() + ":" + m_path).c_str(), 1);
	executable("/bin/ssh", "#!/bin/sh\n" + inDirectory(script));
}

void StoryTest::obeySignal(const std::string& act)
{
	for (host::Process& process : fakeHost().processes)
	{
		process.state = act == "19 " + std::to_string(process.pid)   ? 'T'
		                : act == "18 " + std::to_string(process.pid) ? 'S'
		                                                             : process.state;
	}
}

void StoryTest::pass(std::chrono::milliseconds time)
{
	now += m_clock ? time : 0ms;
	++m_pauses;
	for (const auto& [when, line] : m_atPause)
	{
		when == 0 || when == m_pauses ? obey(line) : void();
	}
	while (!m_steps.empty() && fakeHost().elapsed >= m_steps.front().first)
	{
		// A run in it may pause, too.
		const std::string line = m_steps.front().second;
		m_steps.erase(m_steps.begin());
		obey(line);
	}
	m_says.empty() ? void() : writeLog(logOf("start 98 | take 90 | master 83.3 80 | " + m_says));
}

std::vector<std::string> StoryTest::missed() const
{
	std::vector<std::string> lines(m_atAct.empty() ? 0 : 1, m_atAct);
	std::ranges::transform(m_steps, std::back_inserter(lines), [](const auto& step) { return step.second; });
	for (const auto& [when, line] : m_atPause)
	{
		lines.insert(lines.end(), std::max(when, 1) > m_pauses ? 1 : 0, line);
	}
	return lines;
}

void StoryTest::expectJson(bool isLines) const
{
	EXPECT_THAT(m_outcome.out, EndsWith("\n")) << m_untold;
	for (const std::string& text : split(m_outcome.out.substr(0, m_outcome.out.rfind('\n')), isLines ? "\n" : "\x01"))
	{
		EXPECT_TRUE(Json::accept(text)) << m_untold << '\n' << text;
	}
}

void StoryTest::makeReports()
{
	makeNode(2);
	run("status --for-pair");
	write("/partner", Poco::replace(m_outcome.out, std::string("\"node-a\""), std::string("\"node-b\"")));
	makeNode(1);
	run("status --for-pair");
	write("/own", m_outcome.out);
}

void StoryTest::patch(const std::string& file, const Json& change) const
{
	write(file, Json::parse(readFile(below(file))).patch(Json::array({change})).dump());
}

TEST_P(StoryTest, IsToldAsExpected)
{
	for (const std::string& line : GetParam().lines)
	{
		obey(line);
	}
	expectEnd();
	EXPECT_TRUE(m_judged);
	EXPECT_THAT(missed(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Story, StoryTest, testing::ValuesIn(storyBook().stories()), rowName<Story>);
