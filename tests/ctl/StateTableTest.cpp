// What status, nagios, metrics and events say of sound and of broken nodes: the stories of states.txt.

#include <cmath>

#include <Poco/String.h>

#include "StateTest.h"
#include "StoryBook.h"

using namespace velarix::inspect;
using Span = NodeLog::Span;

namespace
{

const StoryBook& book()
{
	static const StoryBook all(VELARIX_CTL_STATES);
	return all;
}

Span seconds(const std::string& text)
{
	return Span(std::lround(std::stod(text) * 1000));
}

class StateTable : public StateTest, public testing::WithParamInterface<Story>
{
protected:
	void obey(std::string line)
	{
		const std::string whole = line;
		const std::string word = cutWord(line);
		const auto command = kCommands.find(word);
		ASSERT_TRUE(command != kCommands.end()) << whole;
		SCOPED_TRACE(whole + "\n" + m_outcome.out + m_outcome.err);
		command->second(*this, line);
		static const std::set<std::string> kJudging{"code",    "golden", "has", "not",   "begins",
		                                            "nothing", "error",  ">",   "sample"};
		m_judged = m_judged || kJudging.contains(word);
	}

	bool m_judged = false;

private:
	using Command = void (*)(StateTable&, std::string&);
	static const std::map<std::string, Command> kCommands;

	/// Of the last run.
	Outcome m_outcome;
	int m_node = 1;
	/// What differs from the sound settings.
	std::vector<std::pair<std::string, std::string>> m_changes;
	std::vector<std::unique_ptr<LocalZone>> m_zones;

	/// "start 198 | slave 198 191 | take 190 | master 183.3 0.3", in seconds before now
	NodeLog logOf(const std::string& text) const
	{
		NodeLog log = emptyLog();
		for (std::string part : split(text, " | "))
		{
			const std::string word = cutWord(part);
			const std::string first = cutWord(part);
			word == "start"     ? log.start(seconds(first))
			: word == "take"    ? log.takeService(seconds(first))
			: word == "give-up" ? log.giveUp(seconds(first))
			: word == "agent"   ? log.agent(std::stol(first))
			: word == "master"  ? log.masterFor(seconds(first), seconds(part))
			: word == "silent"  ? log.masterFor(seconds(first), seconds(part), "")
			: word == "slave"   ? log.slaveFor(seconds(first), seconds(part))
			: word == "check"   ? log.line(seconds(first), 1, "ProcessChecker:103", "ProcessRuning[noName][MODE:M]: 1")
			                    : throw std::invalid_argument(word);
		}
		return log;
	}

	/// @param words  DIR is the test's directory
	std::vector<std::string> argumentsOf(const std::string& words) const
	{
		return split(Poco::replace(words, std::string("DIR"), root().string()), " ");
	}

	void note(const Outcome& outcome) { m_outcome = {outcome.code, anonymous(outcome.out), anonymous(outcome.err)}; }

	/// A keeper's program, whose state is a minute old.
	void writeState(const std::string& program, const std::string& fields) const
	{
		const auto since = std::chrono::duration_cast<std::chrono::seconds>((now - Span(60000)).time_since_epoch());
		std::string text = fields + ", since=" + std::to_string(since.count());
		Poco::replaceInPlace(text, std::string("AGO"), std::to_string(since.count()));
		Poco::replaceInPlace(text, std::string(", "), std::string("\n"));
		write("/run/velarix-ha/" + program + ".state", text + "\n");
	}
};

const std::map<std::string, StateTable::Command> StateTable::kCommands{
    {"node",
     [](StateTable& test, std::string& role)
     {
	     test.m_node = role == "master" ? 1 : 2;
	     role == "master" ? test.soundMaster() : test.soundSlave();
     }},
    {"fresh", [](StateTable&, std::string&) { freshHost(); }},
    {"lose-partner", [](StateTable& test, std::string&) { test.losePartner(); }},
    {"set",
     [](StateTable& test, std::string& value)
     {
	     const std::string key = cutWord(value);
	     test.m_changes.emplace_back(key, value);
	     test.writeSettings(test.m_node, test.m_changes);
     }},
    {"log", [](StateTable& test, std::string& text) { test.writeLog(test.logOf(text)); }},
    {"zone",
     [](StateTable& test, std::string& zone) { test.m_zones.push_back(std::make_unique<LocalZone>(zone.c_str())); }},
    {"wait", [](StateTable& test, std::string& time) { test.now += seconds(time); }},
    {"started", [](StateTable& test, std::string& ago) { fakeMachine().starts[kAgent] = test.now - seconds(ago); }},
    {"changed",
     [](StateTable& test, std::string& ago)
     {
	     const std::string path = cutWord(ago);
	     fakeMachine().changed[test.below(path).string()] = test.now - seconds(ago);
     }},
    {"file",
     [](StateTable& test, std::string& text)
     {
	     const std::string path = cutWord(text);
	     test.write(path, text);
     }},
    {"remove", [](StateTable& test, std::string& path) { std::filesystem::remove(test.below(path)); }},
    {"end", [](StateTable& test, std::string& pid) { test.endProcess(std::stoi(pid)); }},
    {"process",
     [](StateTable& test, std::string& name)
     {
	     const int pid = std::stoi(cutWord(name));
	     const std::string what = cutWord(name);
	     test.endProcess(pid);
	     test.addProcess(pid, what, name.empty() ? 'S' : name[0], what == "VelarixHA" ? 4 : 1);
     }},
    {"hidden", [](StateTable&, std::string& pid) { fakeMachine().hidden = {std::stoi(pid)}; }},
    {"output", [](StateTable&, std::string& text) { fakeMachine().outputs[kAgent] = text; }},
    {"state",
     [](StateTable& test, std::string& fields)
     {
	     const std::string program = cutWord(fields);
	     test.writeState(program, fields);
     }},
    {"drop-address", [](StateTable& test, std::string&) { test.dropAddress(); }},
    {"no-carrier", [](StateTable&, std::string& name) { fakeHost().interfaces[name].carrier = false; }},
    {"interface",
     [](StateTable&, std::string& name) {
	     fakeHost().interfaces[name] = {true, true};
     }},
    {"no-interface", [](StateTable&, std::string& name) { fakeHost().interfaces.erase(name); }},
    {"tunnel",
     [](StateTable& test, std::string&) {
	     fakeHost().tunnel = host::TunnelSession{test.now - Span(70000), 1000, 2000, "203.0.113.2:51871"};
     }},
    {"answers", [](StateTable&, std::string& address) { fakeMachine().answering.insert(address); }},
    {"silent", [](StateTable&, std::string& address) { fakeMachine().answering.erase(address); }},
    {"holder",
     [](StateTable&, std::string& holder) {
	     fakeHost().holders = {{"198.51.100.10", holder}};
     }},
    {"colour", [](StateTable& test, std::string& wanted) { test.colour = wanted == "yes"; }},
    {"run", [](StateTable& test, std::string& words) { test.note(test.run(test.argumentsOf(words))); }},
    {"run-below", [](StateTable& test, std::string& words) { test.note(test.runBelow(test.argumentsOf(words))); }},
    {"nothing", [](StateTable& test, std::string&) { EXPECT_EQ(test.m_outcome.out, ""); }},
    {"directory", [](StateTable& test, std::string& path) { std::filesystem::create_directories(test.below(path)); }},
    {"begins", [](StateTable& test, std::string& text) { EXPECT_THAT(test.m_outcome.out, StartsWith(text)); }},
    {"sample",
     [](StateTable& test, std::string& expected)
     {
	     const std::string name = cutWord(expected);
	     const std::string text = "\n" + readFile(test.below("/velarix.prom"));
	     const std::size_t at = text.find("\nvelarix_" + name + " ");
	     const std::size_t value = at + sizeof("velarix_ ") + name.size();
	     EXPECT_EQ(at == std::string::npos ? "none" : text.substr(value, text.find('\n', value) - value), expected);
     }},
    {"log-begins", [](StateTable& test, std::string& text) { test.write(kLog, text + readFile(test.below(kLog))); }},
    {"code", [](StateTable& test, std::string& code) { EXPECT_EQ(test.m_outcome.code, std::stoi(code)); }},
    {"golden", [](StateTable& test, std::string& name) { expectGolden(name, test.m_outcome.out); }},
    {">", [](StateTable& test, std::string& line)
     { EXPECT_THAT("\n" + test.m_outcome.out, HasSubstr("\n" + line + "\n")); }},
    {"has", [](StateTable& test, std::string& text) { EXPECT_THAT(test.m_outcome.out, HasSubstr(text)); }},
    {"not", [](StateTable& test, std::string& text) { EXPECT_THAT(test.m_outcome.out, Not(HasSubstr(text))); }},
    {"error",
     [](StateTable& test, std::string& text) { EXPECT_EQ(test.m_outcome.err, text + (text.empty() ? "" : "\n")); }},
    {"on-page",
     [](StateTable&, std::string& name) { EXPECT_THAT(readFile(VELARIX_CTL_MONITORING), HasSubstr("`" + name)); }},
};

TEST_P(StateTable, IsToldAsExpected)
{
	for (const std::string& line : GetParam().lines)
	{
		book().expand(line, [this](const std::string& one) { obey(one); });
	}
	EXPECT_TRUE(m_judged);
}

INSTANTIATE_TEST_SUITE_P(Story, StateTable, testing::ValuesIn(book().stories()), rowName<Story>);

} // namespace
