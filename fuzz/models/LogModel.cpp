#include "LogModel.h"

#include <array>
#include <cstdio>

#include "Target.h"

namespace fuzz
{

namespace
{

using velarix::inspect::LogLine;

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
		expect("nothing of the log is lost", left.empty() || left == "\n", left);
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
		expect("a head has its date", m_text.size() - m_at > dateSize);
		const std::string head = m_text.substr(m_at + dateSize, 160);
		const int fields = std::sscanf(head.c_str(), " [%ld:%ld][%64[^]:]:%d] <%c>%n", &process, &thread, label.data(),
		                               &number, &letter, &size);
		expectEqual("a head has its fields", fields, 5);
		expectEqual("process", message.process, process);
		expectEqual("thread", message.thread, thread);
		expectEqual("label", message.label, label.data());
		expectEqual("number", message.number, number);
		expectEqual("letter", std::string(1, message.letter), std::string(1, letter));
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
			expect("a message is what stands in the log", there || behindZeros, text);
			m_at += there ? 1 : 0;
		}
	}
};

} // namespace

void expectWhole(const std::string& text, const std::vector<LogLine>& messages)
{
	Walk walk(text);
	for (const LogLine& message : messages)
	{
		walk.pass(message);
	}
	walk.end();
}

} // namespace fuzz
