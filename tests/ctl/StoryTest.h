/// What the lines of a story do and expect (stories/).
#pragma once

#include <cmath>

#include <Poco/String.h>
#include <nlohmann/json.hpp>

#include "SoundSettings.h"
#include "StateTest.h"
#include "StoryBook.h"
#include "inspect/Descriptor.h"

/// @return the one book of this test program
const StoryBook& storyBook();

inline NodeLog::Span seconds(const std::string& text)
{
	return NodeLog::Span(std::llround(std::stod(text) * 1000));
}

inline unsigned number(const std::string& text, int base = 10)
{
	return static_cast<unsigned>(std::stoul(text, nullptr, base));
}

/// A line without its word.
struct Words
{
	std::string all;
	/// All is the first word and the rest.
	std::string first;
	std::string rest;
};

class StoryTest : public StateTest, public testing::WithParamInterface<Story>
{
protected:
	~StoryTest() override { ::setenv("PATH", m_path.c_str(), 1); }

	void obey(const std::string& line)
	{
		storyBook().expand(line, [this](const std::string& one) { obeyOne(one); });
	}

	bool m_judged = false;

	using Json = nlohmann::ordered_json;
	using Command = void (*)(StoryTest&, const Words&);
	static const std::map<std::string, Command> kCommands;
	static const std::map<std::string, Command> kExpectations;
	/// Expectations that say something without an operand, and such as need a second one.
	static const std::set<std::string> kMayBeEmpty;
	static const std::set<std::string> kOfTwo;

	/// Of the last run.
	Outcome m_outcome;
	/// The last run, until a story has said its exit status.
	std::string m_untold;
	/// The settings.
	std::vector<std::string> m_lines = soundLines();
	std::vector<std::unique_ptr<LocalZone>> m_zones;
	std::istringstream m_input;
	/// What happens at which pause; 0: at each.
	std::vector<std::pair<int, std::string>> m_atPause;
	int m_pauses = 0;
	/// What happens at the first pause after which time.
	std::vector<std::pair<std::chrono::milliseconds, std::string>> m_steps;
	/// What happens with the first act, until then.
	std::string m_atAct;
	/// Files as they were.
	std::map<std::string, std::string> m_kept;
	/// The end of the log from now on, at each moment.
	std::string m_says;
	bool m_clock = false;
	/// Of a command that changes the node meanwhile.
	velarix::inspect::Descriptor m_otherLock;
	const std::string m_path = std::getenv("PATH");

	void obeyOne(const std::string& line);
	/// A run without a line "code" ends with 0.
	void expectEnd() { EXPECT_EQ(m_untold.empty() ? 0 : m_outcome.code, 0) << m_untold << '\n' << m_outcome.err; }

	/// "start 198 | slave 198 191 | take 190 | master 183.3 0.3", in seconds before now
	NodeLog logOf(const std::string& text) const;

	/// @param words  DIR is the test's directory, LOGS that of the real logs; 'one argument' has blanks
	void run(const std::string& words, bool below = false);

	std::string inDirectory(const std::string& text) const
	{
		return Poco::replace(Poco::replace(text, std::string("DIR"), root().string()), std::string("LOGS"),
		                     std::string(VELARIX_CTL_LOGS));
	}

	/// A keeper's program, whose state is a minute old.
	void writeState(const std::string& program, const std::string& fields) const;

	/// A sound master (1) or standby (2), whose pauses are watched.
	void makeNode(int node);

	void writeSettings() const { write(kSettings, joined(m_lines)); }

	static velarix::inspect::host::Process& process(const std::string& pid);
	static void endProcess(const std::string& pid);
	/// What ssh does from now on.
	void ssh(const std::string& script) const;

	/// Whoever gets one of the two signals obeys.
	static void obeySignal(const std::string& act);

	void pass(std::chrono::milliseconds time);
	/// @return what was to happen and did not
	std::vector<std::string> missed() const;

	/// The output is JSON; that of watch and events a line each.
	void expectJson(bool isLines) const;

	/// The reports of a sound pair.
	void makeReports();
	void patch(const std::string& file, const Json& change) const;
};
