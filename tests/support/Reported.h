/// Events that a death test can see: repeated on standard error as they happen.
#pragma once

#include <iostream>

#include "Daemon.h"

/// Repeats an event on standard error.
inline void report(const std::string& event)
{
	std::cerr << event << '\n';
}

/// The first line of a death test's account: what stands between it and the
/// report is all that happened.
inline constexpr char kBegin[] = "begin";

/// Says kBegin; from now on every log line, outward action and wait is reported.
/// Needs FakeOutside.
inline void reportEverything()
{
	report(kBegin);
	onLogLine(report);
	fakeoutside::onAction(report);
	events::onSleep([](long milliseconds) { report("sleep " + std::to_string(milliseconds)); });
}

/// @return what `tell` and the log's echo leave on standard error for these events,
///         without the last line feed
inline std::string reported(const events::List& list)
{
	std::string text;
	for (const std::string& event : list)
	{
		text += (text.empty() ? "" : "\n") + event;
		if (event.rfind("log E ", 0) == 0)
		{
			const std::size_t blank = event.find(' ', 6);
			text += "\n**ERROR**(" + event.substr(6, blank - 6) + ")" + event.substr(blank + 1);
		}
	}
	return text;
}
