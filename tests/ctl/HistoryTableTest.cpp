// What the history tells of agents, roles and services: the histories of histories.txt.

#include "CtlTest.h"
#include "StoryBook.h"
#include "ctl/history/History.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace
{

using Lines = std::vector<std::string>;

const StoryBook& book()
{
	static const StoryBook all(VELARIX_CTL_TABLES "/histories.txt");
	return all;
}

std::string yesNo(const std::optional<Reported<bool>>& seen)
{
	return !seen ? "none" : seen->value ? "yes" : "no";
}

/// An event on one line: "WORD FROM->TO (CAUSE) SUBJECT DETAIL DURATIONms"; what it
/// does not have is left out.
std::string textOf(const Event& event)
{
	std::ostringstream text;
	text << wordOf(event.kind);
	if (event.kind == EventKind::roleChanged || event.kind == EventKind::partnerChanged)
	{
		text << ' ' << wordOf(event.from) << "->" << wordOf(event.to);
	}
	if (event.cause != Cause::none)
	{
		text << " (" << wordOf(event.cause) << ')';
	}
	for (const std::string& part : {event.subject, event.detail})
	{
		text << (part.empty() ? "" : " " + part);
	}
	if (event.duration)
	{
		text << " " << event.duration->count() << "ms";
	}
	return text.str();
}

class HistoryTable : public testing::TestWithParam<Story>
{
protected:
	HistoryTable() { begin({}); }

	void obey(std::string line)
	{
		const std::string word = cutWord(line);
		const std::map<std::string, std::function<void()>> commands{
		    {"given",
		     [&] {
			     begin({"raise", "drop (a) : b", "killall -9"});
		     }},
		    {"process", [&] { m_process = std::stol(line); }},
		    {"thread", [&] { m_thread = std::stol(line); }},
		    {"wait", [&] { m_now += Milliseconds(std::stol(line)); }},
		    {"moved", [&] { m_moved = m_now - Milliseconds(std::stol(line)); }},
		    {"dated", [&] { m_dated = line == "yes"; }},
		    {"garbage", [&] { m_history->feed(LogLine{}); }},
		    {"forget", [&] { m_events.clear(); }},
		};
		const auto command = commands.find(word);
		command != commands.end() ? command->second() : message(word, line);
	}

	/// Clears what is expected; nothing is where nothing is expected.
	void expectEvents(Lines& expected)
	{
		if (expected.empty())
		{
			return;
		}
		Lines seen = std::exchange(m_events, {});
		if (expected.back() == "...")
		{
			expected.pop_back();
			seen.resize(std::min(seen.size(), expected.size()));
		}
		EXPECT_EQ(seen, expected == Lines{"none"} ? Lines{} : expected);
		expected.clear();
	}

	std::string figure(const std::string& name) const
	{
		constexpr std::array addresses{"not known", "dropped", "starting", "waiting", "up"};
		const Snapshot& all = m_history->snapshot();
		const std::map<std::string, std::string> figures{
		    {"process", std::to_string(all.process)},
		    {"started", age(all.agentStarted)},
		    {"receiver", age(all.lastOfReceiver)},
		    {"role", std::string(all.role ? wordOf(all.role->value) : "none")},
		    {"role-since", all.role ? age(all.role->since) : "none"},
		    {"role-changes", std::to_string(all.roleChanges.size())},
		    {"last-change", std::string(wordOf(all.lastRoleChange.value_or(Event{}).cause))},
		    {"takeover", std::string(wordOf(all.takeOver.value_or(Event{}).cause))},
		    {"network", yesNo(all.networkOk)},
		    {"asking", yesNo(all.asking)},
		    {"programs", yesNo(all.programsRun)},
		    {"address", addresses.at(static_cast<std::size_t>(all.address))},
		    {"partner", all.partnerLost ? "lost" : "heard"},
		    {"received", beat(all.received)},
		    {"sent", beat(all.sent)},
		    {"heartbeats", all.fault(Fault::heartbeats).there ? "fault" : "none"},
		    {"missing-programs", all.fault(Fault::programs).there ? "fault" : "none"},
		    {"silences", std::to_string(all.silences)},
		    {"refusals", std::to_string(all.refusals)},
		    {"failed-starts", std::to_string(all.failedStarts)}};
		return figures.at(name);
	}

private:
	std::optional<History> m_history;
	Lines m_events;
	Instant m_now{std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + 9h};
	/// The last planned move.
	std::optional<Instant> m_moved;
	long m_process = 4711;
	long m_thread = 3;
	bool m_dated = true;

	void begin(const Commands& commands)
	{
		m_history.emplace([this](const Event& event) { m_events.push_back(textOf(event)); }, commands,
		                  [this](Instant) { return m_moved; });
	}

	std::string age(const std::optional<Instant>& time) const
	{
		return time ? std::to_string(std::chrono::duration_cast<Milliseconds>(m_now - *time).count()) : "none";
	}

	/// "RUNNING MASTER STARTED ASKING, since AGE, AGE"
	std::string beat(const std::optional<Reported<Heartbeat>>& reported) const
	{
		const Heartbeat beat = reported.value_or(Reported<Heartbeat>{}).value;
		std::ostringstream text;
		text << beat.running << ' ' << beat.master << ' ' << beat.started << ' ' << beat.asking;
		return reported ? text.str() + ", since " + age(reported->since) + ", " + age(reported->at) : "none";
	}

	/// "receiver 137 <E> TEXT"; each a tenth of a second after the one before
	void message(const std::string& speaker, std::string rest)
	{
		static const std::map<std::string, std::pair<const char*, long>> speakers{{"agent", {"CAgent", 0}},
		                                                                          {"checker", {"ProcessChecker", 1}},
		                                                                          {"sender", {"CHeartSender", 2}},
		                                                                          {"receiver", {"CHeartReciver", 3}}};
		const auto known = speakers.find(speaker);
		m_thread = known != speakers.end() ? known->second.second : m_thread;
		m_now += 100ms;
		LogLine line;
		line.time = m_dated ? std::optional(m_now) : std::nullopt;
		line.process = m_process;
		line.thread = m_thread;
		line.label = known != speakers.end() ? known->second.first : speaker == "service" ? "Utill" : speaker;
		line.number = std::stoi(cutWord(rest));
		line.letter = rest.starts_with('<') ? cutWord(rest)[1] : 'D';
		line.text = rest;
		m_history->feed(line);
	}
};

TEST_P(HistoryTable, TellsItsEvents)
{
	bool judged = false;
	Lines expected;
	const auto take = [&](const std::string& line)
	{
		if (line.starts_with("> "))
		{
			expected.push_back(line.substr(2));
			judged = true;
			return;
		}
		expectEvents(expected);
		if (line.starts_with("= "))
		{
			const std::size_t end = line.find(' ', 2);
			EXPECT_EQ(figure(line.substr(2, end - 2)), line.substr(end + 1)) << line;
			judged = true;
			return;
		}
		obey(line);
	};
	for (const std::string& line : GetParam().lines)
	{
		book().expand(line, take);
	}
	expectEvents(expected);
	EXPECT_TRUE(judged);
}

INSTANTIATE_TEST_SUITE_P(Story, HistoryTable, testing::ValuesIn(book().stories()), rowName<Story>);

} // namespace
