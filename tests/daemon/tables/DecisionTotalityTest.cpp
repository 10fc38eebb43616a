// Every combination of a decision's inputs meets exactly one line of one literal
// table, and the real code does what that line says: roles, status, pending ask,
// count and the whole sequence of events.
#include <array>
#include <iostream>
#include <set>
#include <sstream>

#include "Workers.h"

namespace
{

/// One line of the table, as it is written.
struct Line
{
	/// Status, role, partner, ask, pending, count, configured, programs: the values that it covers,
	/// between blanks; "*" covers all.
	std::array<const char*, 8> inputs;
	/// Role, status, pending, count; "=" is the value as before.
	std::array<const char*, 4> results;
	/// The events' names in kEvents, in order.
	const char* events;
};

// clang-format off
const Line kLines[] = {
    // status   own   partner      ask            ask  count  conf  runs   role st  ask count  events
    {"1",      "1",   "2 none 01", "*",           "*",   "*",   "*",   "*",   "=", "=", "=", "=", "ok-master-slave"},
    {"1",      "1",   "1",         "*",           "*",   "*",   "1",   "no",  "1", "=", "=", "=", "ok-master-master run"},
    {"1",      "1",   "1",         "*",           "*",   "*",   "1",   "yes", "1", "=", "=", "=", "ok-master-master kill-master run"},
    {"1",      "1",   "1",         "*",           "*",   "*",   "2 7", "no",  "2", "=", "=", "=", "ok-master-master"},
    {"1",      "1",   "1",         "*",           "*",   "*",   "2 7", "yes", "2", "=", "=", "=", "ok-master-master kill-slave"},
    {"1",      "2",   "1",         "none 0 _1",   "*",   "*",   "*",   "*",   "=", "1", "0", "=", "ok-slave-master ok-answer"},
    {"1",      "2",   "1",         "1 10",        "0 2", "*",   "*",   "*",   "=", "1", "=", "=", "ok-slave-master ok-answer"},
    {"1",      "2",   "1",         "1 10",        "1",   "0",   "*",   "*",   "=", "1", "1", "1", "ok-slave-master ok-answer ok-answer-wait-1"},
    {"1",      "2",   "1",         "1 10",        "1",   "1",   "*",   "*",   "=", "1", "1", "2", "ok-slave-master ok-answer ok-answer-wait-2"},
    {"1",      "2",   "1",         "1 10",        "1",   "2",   "*",   "*",   "=", "1", "1", "3", "ok-slave-master ok-answer ok-answer-wait-3"},
    {"1",      "2",   "1",         "1 10",        "1",   "3",   "*",   "*",   "=", "1", "0", "0", "ok-slave-master ok-answer ok-answer-done-4"},
    {"1",      "2",   "1",         "1 10",        "1",   "4",   "*",   "*",   "=", "1", "0", "0", "ok-slave-master ok-answer ok-answer-done-5"},
    {"1",      "2",   "2 none 01", "*",           "1",   "0",   "*",   "*",   "=", "=", "1", "1", "ok-ask-wait-1"},
    {"1",      "2",   "2 none 01", "*",           "1",   "1",   "*",   "*",   "=", "=", "1", "2", "ok-ask-wait-2"},
    {"1",      "2",   "2 none 01", "*",           "1",   "2",   "*",   "*",   "=", "=", "1", "3", "ok-ask-wait-3"},
    {"1",      "2",   "2 none 01", "1 10",        "1",   "3 4", "*",   "*",   "1", "=", "0", "0", "ok-ask ok-take-over"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "1",   "3 4", "1",   "no",  "1", "=", "0", "0", "ok-ask ok-slave-slave run"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "1",   "3 4", "1",   "yes", "1", "=", "0", "0", "ok-ask ok-slave-slave kill-master run"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "1",   "3 4", "2 7", "no",  "2", "=", "0", "0", "ok-ask ok-slave-slave"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "1",   "3 4", "2 7", "yes", "2", "=", "0", "0", "ok-ask ok-slave-slave kill-slave"},
    {"1",      "2",   "2 none 01", "1 10",        "0 2", "*",   "*",   "*",   "1", "=", "=", "=", "ok-ask ok-take-over"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "1",   "no",  "1", "=", "=", "=", "ok-ask ok-slave-slave run"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "1",   "yes", "1", "=", "=", "=", "ok-ask ok-slave-slave kill-master run"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "2 7", "no",  "2", "=", "=", "=", "ok-ask ok-slave-slave"},
    {"1",      "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "2 7", "yes", "2", "=", "=", "=", "ok-ask ok-slave-slave kill-slave"},
    {"1",      "0 3", "*",         "*",           "*",   "*",   "*",   "*",   "=", "=", "=", "=", "ok-unknown"},

    {"0 7 -1", "1",   "2 none 01", "*",           "*",   "*",   "*",   "yes", "=", "1", "=", "=", ""},
    {"0",      "1",   "2 none 01", "*",           "*",   "*",   "*",   "no",  "=", "=", "=", "=", "stopped-0"},
    {"7",      "1",   "2 none 01", "*",           "*",   "*",   "*",   "no",  "=", "=", "=", "=", "stopped-7"},
    {"-1",     "1",   "2 none 01", "*",           "*",   "*",   "*",   "no",  "=", "=", "=", "=", "stopped-minus-1"},
    {"0 7 -1", "1",   "1",         "*",           "*",   "*",   "1",   "no",  "1", "=", "=", "=", "not-master-master run"},
    {"0 7 -1", "1",   "1",         "*",           "*",   "*",   "1",   "yes", "1", "=", "=", "=", "not-master-master kill-master run"},
    {"0 7 -1", "1",   "1",         "*",           "*",   "*",   "2 7", "no",  "2", "=", "=", "=", "not-master-master"},
    {"0 7 -1", "1",   "1",         "*",           "*",   "*",   "2 7", "yes", "2", "=", "=", "=", "not-master-master kill-slave"},
    {"0 7 -1", "2",   "1",         "none 0 _1",   "*",   "*",   "*",   "*",   "=", "1", "=", "=", "not-slave-master not-answer"},
    {"0 7 -1", "2",   "1",         "1 10",        "0 2", "*",   "*",   "*",   "=", "1", "=", "=", "not-slave-master not-answer"},
    {"0 7 -1", "2",   "1",         "1 10",        "1",   "0",   "*",   "*",   "=", "1", "1", "1", "not-slave-master not-answer not-answer-wait-1"},
    {"0 7 -1", "2",   "1",         "1 10",        "1",   "1",   "*",   "*",   "=", "1", "1", "2", "not-slave-master not-answer not-answer-wait-2"},
    {"0 7 -1", "2",   "1",         "1 10",        "1",   "2",   "*",   "*",   "=", "1", "1", "3", "not-slave-master not-answer not-answer-wait-3"},
    {"0 7 -1", "2",   "1",         "1 10",        "1",   "3",   "*",   "*",   "=", "1", "0", "0", "not-slave-master not-answer not-answer-done-4"},
    {"0 7 -1", "2",   "1",         "1 10",        "1",   "4",   "*",   "*",   "=", "1", "0", "0", "not-slave-master not-answer not-answer-done-5"},
    {"0 7 -1", "2",   "2 none 01", "*",           "1",   "0",   "*",   "*",   "=", "=", "1", "1", "not-ask-wait-1"},
    {"0 7 -1", "2",   "2 none 01", "*",           "1",   "1",   "*",   "*",   "=", "=", "1", "2", "not-ask-wait-2"},
    {"0 7 -1", "2",   "2 none 01", "*",           "1",   "2",   "*",   "*",   "=", "=", "1", "3", "not-ask-wait-3"},
    {"0 7 -1", "2",   "2 none 01", "1 10",        "1",   "3",   "*",   "*",   "1", "=", "0", "0", "not-ask-done-4 not-ask not-take-over"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "3",   "1",   "no",  "1", "=", "0", "0", "not-ask-done-4 not-ask not-slave-slave run"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "3",   "1",   "yes", "1", "=", "0", "0", "not-ask-done-4 not-ask not-slave-slave kill-master run"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "3",   "2 7", "no",  "2", "=", "0", "0", "not-ask-done-4 not-ask not-slave-slave"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "3",   "2 7", "yes", "2", "=", "0", "0", "not-ask-done-4 not-ask not-slave-slave kill-slave"},
    {"0 7 -1", "2",   "2 none 01", "1 10",        "1",   "4",   "*",   "*",   "1", "=", "0", "0", "not-ask-done-5 not-ask not-take-over"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "4",   "1",   "no",  "1", "=", "0", "0", "not-ask-done-5 not-ask not-slave-slave run"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "4",   "1",   "yes", "1", "=", "0", "0", "not-ask-done-5 not-ask not-slave-slave kill-master run"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "4",   "2 7", "no",  "2", "=", "0", "0", "not-ask-done-5 not-ask not-slave-slave"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "1",   "4",   "2 7", "yes", "2", "=", "0", "0", "not-ask-done-5 not-ask not-slave-slave kill-slave"},
    {"0 7 -1", "2",   "2 none 01", "1 10",        "0 2", "*",   "*",   "*",   "1", "=", "=", "=", "not-ask not-take-over"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "1",   "no",  "1", "=", "=", "=", "not-ask not-slave-slave run"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "1",   "yes", "1", "=", "=", "=", "not-ask not-slave-slave kill-master run"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "2 7", "no",  "2", "=", "=", "=", "not-ask not-slave-slave"},
    {"0 7 -1", "2",   "2 none 01", "none 0 _1",   "0 2", "*",   "2 7", "yes", "2", "=", "=", "=", "not-ask not-slave-slave kill-slave"},
    {"0 7 -1", "0 3", "*",         "*",           "*",   "*",   "*",   "*",   "=", "=", "=", "=", "not-unknown"},
};
// clang-format on

/// Stands for the received ask field in the events below.
const char kAskMark[] = "{ask}";

std::map<std::string, events::List> makeEvents()
{
	using namespace steps;
	const char* kWaitNot = "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer wait";
	const char* kDoneNot = "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer OK";
	const char* kWaitOK = "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer wait";
	const char* kDoneOK = "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer OK";
	const char* kResultOK = "My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result";
	const auto line = [](int number, const std::string& text, const std::string& counted = "")
	{ return "log D CHeartReciver:" + std::to_string(number) + " " + text + (counted.empty() ? "" : " " + counted); };
	// clang-format off
	return {
	    {"ok-master-slave",    {line(278, "My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK")}},
	    {"ok-master-master",   {line(282, "My NetWork Status: OK MY:MASTER PARTNER:MASTER OK")}},
	    {"ok-slave-master",    {line(287, "My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK")}},
	    {"ok-slave-slave",     {line(418, "My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK")}},
	    {"ok-unknown",         {line(297, "My NetWork Status: OK UNKNOW")}},
	    {"ok-answer",          {line(350, "szTmp[1] szPartnerProcessRunning[{ask}]")}},
	    {"ok-answer-wait-1",   {line(363, kWaitOK, "[1/3]")}},
	    {"ok-answer-wait-2",   {line(363, kWaitOK, "[2/3]")}},
	    {"ok-answer-wait-3",   {line(363, kWaitOK, "[3/3]")}},
	    {"ok-answer-done-4",   {line(368, kDoneOK, "[4/4]")}},
	    {"ok-answer-done-5",   {line(368, kDoneOK, "[5/4]")}},
	    {"ok-ask",             {line(411, "szTmp[1] specialAsk[{ask}]")}},
	    {"ok-ask-wait-1",      {line(403, kResultOK, "[1/3]")}},
	    {"ok-ask-wait-2",      {line(403, kResultOK, "[2/3]")}},
	    {"ok-ask-wait-3",      {line(403, kResultOK, "[3/3]")}},
	    {"ok-take-over",       join({{line(414, "special ask: slave -> master")}, kFindAddress, kRunPrograms})},
	    {"stopped-0",          {"log E CHeartReciver:319 m_myStatus[0]:ERRRRREEEEEEERRRRRRR"}},
	    {"stopped-7",          {"log E CHeartReciver:319 m_myStatus[7]:ERRRRREEEEEEERRRRRRR"}},
	    {"stopped-minus-1",    {"log E CHeartReciver:319 m_myStatus[-1]:ERRRRREEEEEEERRRRRRR"}},
	    {"not-master-master",  {line(324, "My NetWork Status: NOT OK MY:MASTER PARTNER:MASTER RESET")}},
	    {"not-slave-master",   {line(329, "My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK")}},
	    {"not-slave-slave",    {line(447, "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Reset")}},
	    {"not-unknown",        {line(339, "My NetWork Status: NOT OK UNKNOW")}},
	    {"not-answer",         {line(376, "szTmp[1] szPartnerProcessRunning[{ask}]")}},
	    {"not-answer-wait-1",  {line(384, kWaitNot, "[1/3]")}},
	    {"not-answer-wait-2",  {line(384, kWaitNot, "[2/3]")}},
	    {"not-answer-wait-3",  {line(384, kWaitNot, "[3/3]")}},
	    {"not-answer-done-4",  {line(389, kDoneNot, "[4/3]")}},
	    {"not-answer-done-5",  {line(389, kDoneNot, "[5/3]")}},
	    {"not-ask",            {line(440, "szTmp[1] specialAsk[{ask}]")}},
	    {"not-ask-wait-1",     {line(429, kWaitNot, "[1/3]")}},
	    {"not-ask-wait-2",     {line(429, kWaitNot, "[2/3]")}},
	    {"not-ask-wait-3",     {line(429, kWaitNot, "[3/3]")}},
	    {"not-ask-done-4",     {line(434, kDoneNot, "[4/3]")}},
	    {"not-ask-done-5",     {line(434, kDoneNot, "[5/3]")}},
	    {"not-take-over",      join({{line(443, "special ask: slave -> master")}, kFindAddress, kRunPrograms})},
	    {"kill-master",        join({{line(470, "MASTER kill")}, kKillPrograms})},
	    {"run",                join({{line(473, "try to process run")}, kRunPrograms})},
	    {"kill-slave",         join({{line(480, "SLAVE kill")}, kKillPrograms, kDropAddress})},
	};
	// clang-format on
}

/// In the order of Line.
using Combination = std::array<std::string, 8>;

bool covers(const Line& line, const Combination& combination)
{
	return std::equal(combination.begin(), combination.end(), line.inputs.begin(),
	                  [](const std::string& value, const std::string& covered)
	                  { return covered == "*" || (" " + covered + " ").find(" " + value + " ") != std::string::npos; });
}

/// How the message writes what the table calls by these names.
std::string onTheWire(const std::string& name)
{
	return name == "none" ? "" : name == "_1" ? " 1" : name;
}

class DecisionTotality : public ReceiverTest
{
protected:
	/// Calls `take` with every combination.
	void forEach(const std::function<void(const Combination&)>& take)
	{
		// The last two are slow to change.
		for (const char* configured : {"1", "2", "7"})
			for (const char* programs : {"no", "yes"})
			{
				settings.set("AGENT.MODE", configured);
				programRuns(std::string(programs) == "yes");
				for (const char* own : {"1", "0", "7", "-1"})
					for (const char* role : {"1", "2", "0", "3"})
						for (const char* partner : {"1", "2", "none", "01"})
							for (const char* ask : {"none", "0", "1", "10", "_1"})
								for (const char* pending : {"0", "1", "2"})
									for (const char* asked : {"0", "1", "2", "3", "4"})
										take({own, role, partner, ask, pending, asked, configured, programs});
			}
	}

	events::List expectedEvents(const Line& line, const std::string& ask) const
	{
		events::List expected = steps::kAccepted;
		std::istringstream names(line.events);
		for (std::string name; names >> name;)
		{
			for (std::string event : named.at(name))
			{
				if (const std::size_t mark = event.find(kAskMark); mark != std::string::npos)
				{
					event.replace(mark, sizeof kAskMark - 1, ask);
				}
				expected.push_back(event);
			}
		}
		return expected;
	}

	/// Runs the real decision and compares it with the line.
	void expectAsWritten(const Line& line, const Combination& combination)
	{
		events::clear();
		status() = std::stoi(combination[0]);
		mode = std::stoi(combination[1]);
		velarix::storeShared(g_specialAsking, std::stoi(combination[4]));
		count() = std::stoi(combination[5]);

		hear(onTheWire(combination[2]), onTheWire(combination[3]));

		const std::array<int, 4> after = {mode, status(), velarix::loadShared(g_specialAsking), count()};
		const std::array<std::size_t, 4> before = {1, 0, 4, 5};
		for (std::size_t i = 0; i < after.size(); ++i)
		{
			const std::string result = line.results[i];
			ASSERT_EQ(std::to_string(after[i]), result == "=" ? combination[before[i]] : result)
			    << "result " << i << " of " << testing::PrintToString(combination);
		}
		ASSERT_EQ(events::all(), expectedEvents(line, onTheWire(combination[3])))
		    << testing::PrintToString(combination);
	}

	std::map<std::string, events::List> named = makeEvents();
};

TEST_F(DecisionTotality, EveryCombinationIsDecidedByExactlyOneLine)
{
	// The log's echo on the console.
	std::cout.setstate(std::ios::failbit);
	std::cerr.setstate(std::ios::failbit);
	int decided = 0;
	std::set<const Line*> met;
	forEach(
	    [&](const Combination& combination)
	    {
		    const auto covering = [&](const Line& line) { return covers(line, combination); };
		    ASSERT_EQ(std::count_if(std::begin(kLines), std::end(kLines), covering), 1)
		        << "lines that cover " << testing::PrintToString(combination);
		    const Line* pLine = std::find_if(std::begin(kLines), std::end(kLines), covering);
		    met.insert(pLine);
		    ++decided;
		    HasFailure() ? void() : expectAsWritten(*pLine, combination);
	    });
	std::cout.clear();
	std::cerr.clear();
	EXPECT_EQ(decided, 28800);
	EXPECT_FALSE(running);
	EXPECT_EQ(met.size(), std::size(kLines)) << "a line decides nothing";
}

} // namespace
