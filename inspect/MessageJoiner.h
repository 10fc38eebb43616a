/// Puts lines together to messages.
#pragma once

#include <deque>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/LineStream.h"
#include "inspect/LogLine.h"

namespace velarix::inspect
{

/// A line, cut where a head begins in its middle (what an agent wrote behind the
/// unfinished last line of the one before) and behind the zero bytes that a
/// power failure leaves. One piece for every line that is in order.
std::vector<std::string_view> piecesOf(std::string_view line);

class MessageJoiner
{
public:
	explicit MessageJoiner(LogClock clock = {}) : m_clock(std::move(clock)) {}

	void add(const RawLine& line);
	/// The message begun last is whole: the file ends here, or nothing more of it
	/// is awaited.
	void finish();
	/// @return false when there is no whole message
	bool take(LogLine& message);

private:
	LogClock m_clock;
	std::optional<LogLine> m_begun;
	std::deque<LogLine> m_whole;

	void addPiece(std::string_view piece, std::uint64_t cut);
};

} // namespace velarix::inspect
