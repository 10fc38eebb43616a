#include "ctl/status/LogTail.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeParser.h>

#include "inspect/LineStream.h"
#include "inspect/LogReader.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// Messages around a change that the history is given to tell its cause, older
/// and newer ones.
constexpr std::size_t kBeforeChange = 500;
constexpr std::size_t kAfterChange = 500;
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

/// @param newestFirst messages in the order in which they were read back
template <typename Messages> Snapshot snapshotOf(const Messages& newestFirst, const LogWish& wish)
{
	History history({}, wish.commands, wish.lastMove);
	std::for_each(newestFirst.rbegin(), newestFirst.rend(), [&](const LogLine& line) { history.feed(line); });
	return history.snapshot();
}

} // namespace

LogTail readTail(const LogWish& wish, std::optional<Instant> until)
{
	std::vector<LogLine> messages;
	std::vector<LogTrouble> trouble;
	std::size_t bytes = 0;
	readBackwards(
	    wish.path, wish.now,
	    [&](const LogLine& line)
	    {
		    messages.push_back(line);
		    bytes += sizeof line + line.text.size();
		    return bytes < kTailBytes &&
		           (messages.size() < kTailMessages || (until && line.time && *line.time > *until));
	    },
	    trouble);
	LogTail tail;
	tail.snapshot = snapshotOf(messages, wish);
	if (!tail.snapshot.lastMessage)
	{
		const int error = trouble.empty() ? 0 : trouble.front().error;
		tail.forbidden = error == EACCES;
		tail.problem = trouble.empty() ? "the log " + wish.path.string() + " holds no message of an agent"
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
	return read ? std::optional<Instant>(std::chrono::milliseconds(date.timestamp().epochMicroseconds() / 1000))
	            : std::nullopt;
}

LastChange findLastChange(const LogWish& wish, Role role, std::size_t limit)
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
		    around.push_back(line);
		    if (!found && around.size() > kAfterChange)
		    {
			    around.pop_front();
		    }
		    if (line.time)
		    {
			    result.searchedTo = line.time;
		    }
		    const Role reported = repeatedRole(line);
		    found = found || (reported != Role::unknown && reported != role);
		    sinceFound += found ? 1 : 0;
		    return sinceFound < kBeforeChange && ++looked < limit;
	    },
	    ignored);
	result.event = snapshotOf(around, wish).lastRoleChange;
	return result;
}

} // namespace velarix::ctl
