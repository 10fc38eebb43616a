/// The end of a log, made into the snapshot that its last messages give, and the
/// search for the last change of the role further back.
#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ctl/history/Events.h"
#include "inspect/LogReader.h"

namespace velarix::ctl
{

/// Messages that surely hold everything an agent tells periodically.
inline constexpr std::size_t kTailMessages = 3000;
/// Bytes of messages that are kept at most: a log full of long ones costs no more.
inline constexpr std::size_t kTailBytes = 16UL * 1024UL * 1024UL;

struct LogTail
{
	/// Why nothing could be read; empty when something was.
	std::string problem;
	/// The problem is a lack of rights.
	bool forbidden = false;
	/// Adds up what was read.
	Snapshot snapshot;
};

/// Which log, when, and by what its commands are known.
struct LogWish
{
	std::filesystem::path path;
	/// About when the last message was written.
	Instant now;
	Commands commands;
	/// The planned moves of this node.
	LastMove lastMove;
};

/// The last messages, in their order.
struct Tail
{
	std::deque<LogLine> messages;
	/// No more of them would fit into kTailBytes.
	bool full = false;
	std::vector<LogTrouble> trouble;
};

/// @param more asked with each message, newest first, whether one more is wanted
Tail readEnd(const LogWish& wish, const std::function<bool(const LogLine&)>& more);

/// @param until read back at least to there, if that is further than kTailMessages
LogTail readTail(const LogWish& wish, std::optional<Instant> until = std::nullopt);

/// @return the date in the remark that the library writes as the first line of a
///         log, from which it counts the day until the next rotation; nothing
///         without such a line
std::optional<Instant> begunAt(const std::filesystem::path& log);

struct LastChange
{
	/// The event roleChanged; nothing when none was found.
	std::optional<Event> event;
	/// The oldest message that was looked at.
	std::optional<Instant> searchedTo;
};

/// Looks back for the last change of the role, which is `role` now.
LastChange findLastChange(const LogWish& wish, Role role);

} // namespace velarix::ctl
