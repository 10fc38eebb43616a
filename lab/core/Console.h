/// What velarix-lab and velarix-demo write on its standard output while a person looks on.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Timeline.h"

namespace velarix::lab
{

/// Lines that stay, and one line at the bottom that tells what is being waited
/// for: rewritten in place on a terminal, repeated every five seconds elsewhere.
/// Colours on a terminal only, and not when NO_COLOR is set. Any thread may call.
class Console
{
public:
	Console();
	/// Takes the waiting line away.
	~Console();
	Console(const Console&) = delete;
	Console& operator=(const Console&) = delete;

	void line(const std::string& text);
	void event(const Event& event);
	/// For a Wait.
	WaitObserver observer();

private:
	bool m_terminal;
	bool m_colour;
	bool m_waitingShown = false;
	Millis m_lastWaiting{-10000};
	std::mutex m_mutex;
	LabClock m_clock;

	void clearWaiting();
	void waiting(const Wait& wait, Millis elapsed);
};

/// One line of a table; every row has as many cells as the first one, that of titles.
using Row = std::vector<std::string>;

/// Columns as wide as their widest cell, two blanks between them.
std::string aligned(const std::vector<Row>& rows);

} // namespace velarix::lab
