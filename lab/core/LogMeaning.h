/// What the lines of the agent's log mean for the lab, by label and number: both are
/// fixed for ever (docs/log-messages.md), while texts hold values.
#pragma once

#include <string_view>

#include "inspect/LogLine.h"

namespace velarix::lab
{

/// What begins or ends with a line. A probe is ten pings to one address.
enum class LogMark
{
	none,
	workBegins, ///< a fresh agent begins
	passBegins, ///< of the receiver
	probeBegins,
	probeAnswered, ///< it is over, something answered
	probeSilent    ///< it is over, nothing answered
};

struct LogMeaning
{
	std::string_view label;
	int number;
	const char* role;   ///< the role the node has from this line on; null: not reported
	const char* action; ///< for a person; null: not shown
	LogMark mark = LogMark::none;
};

/// @return the meaning of the line; null when the lab makes nothing of it
const LogMeaning* meaningOf(const inspect::LogLine& line);

} // namespace velarix::lab
