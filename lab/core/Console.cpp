#include "lab/core/Console.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include <sys/ioctl.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

constexpr Millis repeatPause{5000};
constexpr const char* eraseLine = "\r\033[K";

std::size_t terminalWidth()
{
	winsize size{};
	return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

const char* colourOf(EventKind kind)
{
	switch (kind)
	{
	case EventKind::phase:
		return "1";
	case EventKind::fault:
		return "1;31";
	case EventKind::repair:
		return "32";
	case EventKind::address:
	case EventKind::service:
		return "36";
	default:
		return "";
	}
}

} // namespace

Console::Console()
    : m_terminal(::isatty(STDOUT_FILENO) == 1), m_colour(m_terminal && std::getenv("NO_COLOR") == nullptr)
{
}

Console::~Console()
{
	const std::lock_guard lock(m_mutex);
	clearWaiting();
	std::cout.flush();
}

void Console::clearWaiting()
{
	if (m_waitingShown)
	{
		std::cout << eraseLine;
		m_waitingShown = false;
	}
}

void Console::line(const std::string& text)
{
	const std::lock_guard lock(m_mutex);
	clearWaiting();
	std::cout << text << std::endl;
}

void Console::event(const Event& event)
{
	const std::string code = m_colour ? colourOf(event.kind) : "";
	line(code.empty() ? toText(event) : "\033[" + code + "m" + toText(event) + "\033[0m");
}

void Console::waiting(const Wait& wait, Millis elapsed)
{
	const std::string state = wait.seen ? wait.seen() : "";
	const std::lock_guard lock(m_mutex);
	const std::string text = "waiting " + std::to_string(elapsed.count() / 1000) + " of " +
	                         std::to_string(wait.limit.count() / 1000) + " s for " + wait.what +
	                         (state.empty() ? std::string() : " (now: " + state + ")");
	if (m_terminal)
	{
		clearWaiting();
		std::cout << text.substr(0, terminalWidth() - 1) << std::flush;
		m_waitingShown = true;
	}
	else if (m_clock.now() - m_lastWaiting >= repeatPause)
	{
		m_lastWaiting = m_clock.now();
		std::cout << "           " << text << std::endl;
	}
}

WaitObserver Console::observer()
{
	return [this](const Wait& wait, Millis elapsed) { waiting(wait, elapsed); };
}

std::string aligned(const std::vector<Row>& rows)
{
	std::vector<std::size_t> widths(rows.front().size(), 0);
	for (const Row& row : rows)
	{
		std::ranges::transform(row, widths, widths.begin(),
		                       [](const std::string& cell, std::size_t width) { return std::max(cell.size(), width); });
	}
	std::string text;
	for (const Row& row : rows)
	{
		for (std::size_t column = 0; column < row.size(); ++column)
		{
			text += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
		}
		text.erase(text.find_last_not_of(' ') + 1);
		text += '\n';
	}
	return text;
}

} // namespace velarix::lab
