#include "ctl/status/LogTail.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeParser.h>

#include "ctl/history/History.h"
#include "inspect/LineStream.h"

namespace velarix::ctl
{

namespace
{

/// Messages around a change that the history is given to tell its cause, older
/// and newer ones.
constexpr std::size_t kBeforeChange = 500;
constexpr std::size_t kAfterChange = 500;
/// Messages after which the search for the last change of the role gives up:
/// most of a day, a second or two of reading.
constexpr std::size_t kSearchedMessages = 1'000'000;
/// Bytes of the library's remark that are read.
constexpr std::size_t kRemarkLength = 128;

/// @return the role that a message tells which every pass or cycle repeats
Role repeatedRole(const LogLine& line)
{
	if (line.is("ProcessChecker", 103))
	{
		return line.text.find("[MODE:M]") != std::string::npos ? Role::master : Role::slave;
	}
	if (line.is("CHeartReciver", 505))
	{
		return Role::master;
	}
	return line.is("CHeartReciver", 538) ? Role::slave : Role::unknown;
}

Snapshot snapshotOf(const std::deque<LogLine>& messages, const LogWish& wish)
{
	History history({}, wish.commands, wish.lastMove);
	std::ranges::for_each(messages, [&](const LogLine& line) { history.feed(line); });
	return history.snapshot();
}

} // namespace

Tail readEnd(const LogWish& wish, const std::function<bool(const LogLine&)>& more)
{
	Tail tail;
	std::size_t bytes = 0;
	readBackwards(
	    wish.path, wish.now,
	    [&](const LogLine& line)
	    {
		    tail.messages.push_front(line);
		    bytes += sizeof line + line.text.size();
		    tail.full = bytes >= kTailBytes;
		    return more(line) && !tail.full;
	    },
	    tail.trouble);
	return tail;
}

LogTail readTail(const LogWish& wish, std::optional<Instant> until)
{
	std::size_t read = 0;
	const Tail end = readEnd(wish, [&](const LogLine& line)
	                         { return ++read < kTailMessages || (until && line.time && *line.time > *until); });
	LogTail tail;
	tail.snapshot = snapshotOf(end.messages, wish);
	if (!tail.snapshot.lastMessage)
	{
		const int error = end.trouble.empty() ? 0 : end.trouble.front().error;
		tail.forbidden = error == EACCES;
		tail.problem = end.trouble.empty() ? "the log " + wish.path.string() + " holds no message of an agent"
		                                   : "cannot read the log " + wish.path.string() + ": " +
		                                         std::generic_category().message(error);
	}
	return tail;
}

std::optional<Instant> begunAt(const std::filesystem::path& log)
{
	constexpr std::string_view remark = "# Log file created/rotated ";
	RawLine line;
	std::unique_ptr<ByteSource> bytes = openBytes(log);
	if (bytes == nullptr)
	{
		return std::nullopt;
	}
	LineStream lines(std::move(bytes), kRemarkLength);
	if (!lines.next(line) || !line.text.starts_with(remark))
	{
		return std::nullopt;
	}
	int zone = 0;
	Poco::DateTime date;
	const bool read = Poco::DateTimeParser::tryParse(Poco::DateTimeFormat::RFC1036_FORMAT,
	                                                 line.text.substr(remark.size()), date, zone);
	// The parser makes a date of the year 0 of what is none, and the clock's nanoseconds reach to 2262.
	const bool known = read && date.year() >= 1970 && date.year() < 2262;
	return known ? std::optional<Instant>(std::chrono::milliseconds(date.timestamp().epochMicroseconds() / 1000))
	             : std::nullopt;
}

LastChange findLastChange(const LogWish& wish, Role role)
{
	LastChange result;
	std::deque<LogLine> around;
	std::size_t looked = 0;
	std::size_t sinceFound = 0;
	bool found = false;
	std::vector<LogTrouble> ignored;
	readBackwards(
	    wish.path, wish.now,
	    [&](const LogLine& line)
	    {
		    around.push_front(line);
		    if (!found && around.size() > kAfterChange)
		    {
			    around.pop_back();
		    }
		    if (line.time)
		    {
			    result.searchedTo = line.time;
		    }
		    const Role reported = repeatedRole(line);
		    found = found || (reported != Role::unknown && reported != role);
		    sinceFound += found ? 1 : 0;
		    return sinceFound < kBeforeChange && ++looked < kSearchedMessages;
	    },
	    ignored);
	result.event = snapshotOf(around, wish).lastRoleChange;
	return result;
}

} // namespace velarix::ctl
