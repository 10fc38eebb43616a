/// velarixctl's reader of the agent's log.
///
/// Input: a byte for the size of the reads, a byte of choices, the log; in it 0x01
/// and a byte N stand for N KiB of one letter, twice at most. Read forwards and
/// backwards the log must give the same messages, none of its bytes may be lost,
/// the events of its history can be printed, and a heartbeat in it is read as the
/// agent itself reads it.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <tuple>

#include <Poco/Exception.h>
#include <nlohmann/json.hpp>

#include "HeartbeatMessage.h"
#include "ctl/history/History.h"
#include "ctl/render/StateViews.h"
#include "inspect/LineStream.h"
#include "inspect/LogReader.h"
#include "inspect/Printable.h"

#include "Target.h"

namespace
{

using namespace velarix::ctl;
using namespace velarix::inspect;

constexpr unsigned kReadOn = 1; // the backwards reader goes on to the archives
constexpr unsigned kWithRest = 2;

fuzz::MemoryFile* g_pFile = nullptr;

std::string unfolded(const std::string& text)
{
	std::string result;
	int folds = 0;
	for (std::size_t at = 0; at < text.size(); ++at)
	{
		if (text[at] == '\x01' && at + 1 < text.size() && folds++ < 2)
		{
			result.append(1024UL * static_cast<unsigned char>(text[++at]), 'x');
		}
		else
		{
			result += text[at];
		}
	}
	return result;
}

std::vector<LogLine> forwards(const std::string& text, std::size_t step, bool withRest)
{
	g_pFile->write(text);
	LineStream lines(openBytes(g_pFile->path()), kLongestText, step);
	MessageJoiner joiner;
	RawLine line;
	std::vector<LogLine> messages;
	LogLine message;
	const auto take = [&]
	{
		while (joiner.take(message))
		{
			messages.push_back(message);
		}
	};
	while (lines.next(line))
	{
		joiner.add(line);
		take();
	}
	if (lines.rest(line) && withRest)
	{
		joiner.add(line);
	}
	joiner.finish();
	take();
	return messages;
}

/// What forwards() has read.
std::vector<LogLine> backwards(std::size_t expected, bool readOn)
{
	std::vector<LogLine> messages;
	std::vector<LogTrouble> trouble;
	readBackwards(
	    g_pFile->path(), Instant(),
	    [&](const LogLine& message)
	    {
		    messages.push_back(message);
		    return readOn || messages.size() < expected;
	    },
	    trouble);
	fuzz::expect("no trouble", trouble.empty());
	std::reverse(messages.begin(), messages.end());
	return messages;
}

void compare(const std::vector<LogLine>& forward, const std::vector<LogLine>& backward)
{
	fuzz::expectEqual("messages backwards", backward.size(), forward.size());
	for (std::size_t i = 0; i < forward.size(); ++i)
	{
		const auto head = [](const LogLine& line)
		{ return std::tuple(line.time, line.place(), line.letter, line.process, line.thread, line.cut); };
		fuzz::expect("head backwards", head(backward[i]) == head(forward[i]), forward[i].text);
		fuzz::expectEqual("text backwards", backward[i].text, forward[i].text);
	}
}

/// Without control characters; what is no UTF-8 cannot be written as JSON.
void expectPrintable(const char* what, const std::string& text)
{
	fuzz::expect(what, std::ranges::none_of(text, [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }), text);
	fuzz::expect(what, !nlohmann::json(text).dump().empty(), text);
	fuzz::expectEqual("printing twice", printable(text), text);
}

void tellHistory(const std::vector<LogLine>& messages)
{
	History history(
	    [](const Event& event)
	    {
		    expectPrintable("an event can be printed", textLine(event, false));
		    fuzz::expect("an event can be JSON", !eventJson(event).dump().empty());
	    });
	for (const LogLine& message : messages)
	{
		history.feed(message);
	}
}

/// The agent's splitter and velarixctl's must take the same texts.
void compareHeartbeat(const std::string& text)
{
	const std::optional<Heartbeat> reported = parseHeartbeat(text);
	try
	{
		const HeartbeatMessage heard = splitHeartbeat(text);
		const bool accepted = heard.prefix.starts_with("process");
		fuzz::expect("velarixctl takes what the agent takes", reported.has_value() == accepted, text);
		fuzz::expect("the heartbeat's fields",
		             !accepted || (reported->running == (heard.processRunning == "1") &&
		                           reported->master == (heard.role == "1") && reported->started == heard.startedTime &&
		                           reported->asking == heard.specialAsk.starts_with('1')),
		             text);
	}
	catch (const Poco::RangeException&)
	{
		fuzz::expect("velarixctl drops what the agent drops", !reported, text);
	}
}

/// Walks over the text as the messages tell.
class Walk
{
public:
	explicit Walk(const std::string& text) : m_text(text) {}

	void pass(const LogLine& message)
	{
		// The first message may be an empty line: not each one moves the walk.
		if (m_underWay && m_at < m_text.size() && m_text[m_at] == '\n')
		{
			++m_at;
		}
		m_underWay = true;
		if (message.hasHead())
		{
			passHead(message);
		}
		passText(message.text);
	}

	/// The line feed behind the last message may be left.
	void end() const
	{
		const std::string_view left = std::string_view(m_text).substr(m_at);
		fuzz::expect("nothing of the log is lost", left.empty() || left == "\n", left);
	}

private:
	const std::string& m_text;
	std::size_t m_at = 0;
	bool m_underWay = false;

	void passHead(const LogLine& message)
	{
		constexpr std::size_t dateSize = 21;
		std::array<char, 65> label{};
		char letter = '\0';
		long process = 0;
		long thread = 0;
		int number = 0;
		int size = 0;
		fuzz::expect("a head has its date", m_text.size() - m_at > dateSize);
		const std::string head = m_text.substr(m_at + dateSize, 160);
		const int fields = std::sscanf(head.c_str(), " [%ld:%ld][%64[^]:]:%d] <%c>%n", &process, &thread, label.data(),
		                               &number, &letter, &size);
		fuzz::expect("a head has its fields",
		             fields == 5 && message.process == process && message.thread == thread &&
		                 message.label == label.data() && message.number == number && message.letter == letter,
		             head);
		// And the blank behind it.
		m_at += dateSize + static_cast<std::size_t>(size) + 1;
	}

	void passText(const std::string& text)
	{
		for (const char c : text)
		{
			const bool there = m_at < m_text.size() && m_text[m_at] == c;
			// Zero bytes at a line's beginning, left by a power failure, are a line
			// of their own.
			const bool behindZeros = c == '\n' && m_at > 0 && m_text[m_at - 1] == '\0';
			fuzz::expect("a message is what stands in the log", there || behindZeros, text);
			m_at += there ? 1 : 0;
		}
	}
};

/// Ends the program unless the messages, none of them cut, are the text one after the other.
void expectWhole(const std::string& text, const std::vector<LogLine>& messages)
{
	Walk walk(text);
	for (const LogLine& message : messages)
	{
		walk.pass(message);
	}
	walk.end();
}

} // namespace

void fuzz::prepare()
{
	::setenv("TZ", "UTC", 1);
	g_pFile = new MemoryFile;
}

void fuzz::run(Input& input)
{
	const unsigned step = input.byte();
	const unsigned choices = input.byte();
	const std::string text = unfolded(input.rest());
	// Few bytes at a time are many reads: only a short log is read so.
	const std::size_t bytes = step == 0 || text.size() > 4096 ? 65536 : step;
	const bool withRest = (choices & kWithRest) != 0;
	const std::vector<LogLine> messages = forwards(text, bytes, withRest);
	const std::size_t whole = withRest ? text.size() : text.rfind('\n') + 1;
	if (std::ranges::none_of(messages, [](const LogLine& message) { return message.cut != 0; }))
	{
		expectWhole(text.substr(0, whole), messages);
	}
	if (!withRest)
	{
		compare(messages, backwards(messages.size(), (choices & kReadOn) != 0));
	}
	for (const LogLine& message : messages)
	{
		expectPrintable("a text can be printed", printable(message.text));
		compareHeartbeat(message.text.substr(std::min(message.text.find('/'), message.text.size())));
	}
	tellHistory(messages);
}
