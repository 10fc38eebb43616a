// The end of the log, and the counts over it.

#include "ctl/status/LogTail.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <sstream>
#include <system_error>

#include <Poco/DateTimeFormat.h>
#include <Poco/NumberFormatter.h>
#include <Poco/NumberParser.h>
#include <Poco/String.h>

#include "ctl/history/Dates.h"
#include "ctl/history/History.h"
#include "inspect/LineStream.h"
#include "inspect/Pattern.h"
#include "inspect/TimeText.h"

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
	const bool tells = line.is("ProcessChecker", 103);
	const bool master = tells && line.text.find("[MODE:M]") != std::string::npos;
	return master || line.is("CHeartReciver", 505)  ? Role::master
	       : tells || line.is("CHeartReciver", 538) ? Role::slave
	                                                : Role::unknown;
}

Snapshot snapshotOf(const std::deque<LogLine>& messages, const LogWish& wish)
{
	History history({}, wish.commands, wish.lastMove);
	std::ranges::for_each(messages, [&](const LogLine& line) { history.feed(line); });
	return history.snapshot();
}

std::string escaped(std::string_view text)
{
	std::string result(text);
	Poco::replaceInPlace(result, std::string("\\"), std::string("\\\\"));
	return Poco::replaceInPlace(result, std::string("\n"), std::string("\\n"));
}

/// Milliseconds at most, without zeros that tell nothing.
std::string numberText(double value)
{
	std::string text = Poco::NumberFormatter::format(value, 3);
	text.erase(text.find_last_not_of('0') + 1);
	if (text.ends_with('.'))
	{
		text.pop_back();
	}
	return text;
}

using namespace std::chrono_literals;

/// A line is stamped before it is written: younger ones may still come.
constexpr auto kSettled = 1s;
/// Messages before the first that counts, for the history to know what it is about.
constexpr std::size_t kBefore = 1000;
/// Up to this gap the log is read from its end, beyond it from its beginning: in a long one the clock may
/// have been set back, and what stands before that has to be counted as well.
constexpr auto kShortGap = 1h;

constexpr std::string_view kUntil = "counted_until_timestamp_seconds";
constexpr std::string_view kChanged = "last_role_change_timestamp_seconds";

struct Family
{
	std::string_view name;
	/// Of the label of its samples; empty for one without.
	std::string_view label;
	std::string_view help;
};
constexpr std::array kFamilies{
    Family{"events_total", "event", "Events reported by the log, by their word (velarixctl events)."},
    Family{"log_messages_total", "level", "Messages of the log by level."},
    Family{"heartbeats_sent_total", "", "Heartbeats sent to the partner."},
    Family{"heartbeats_received_total", "", "Heartbeats received from the partner."},
};
constexpr const Family& kEvents = kFamilies[0];
constexpr const Family& kMessages = kFamilies[1];
constexpr const Family& kSent = kFamilies[2];
constexpr const Family& kReceived = kFamilies[3];

/// Letters of the log; notices carry that of a debug line.
constexpr std::array<std::pair<char, const char*>, 5> kLevels{
    {{'D', "debug"}, {'I', "info"}, {'W', "warning"}, {'E', "error"}, {'C', "critical"}}};

/// Takes one sample into the counters, when one of ours can have that value: a double counts
/// exactly up to 2^53, and the clock ends in the year 2262.
/// @param label the value of its label; empty without one
void takeSample(Counters& counters, const std::string& name, const std::string& label, double value)
{
	if (name == kUntil || name == kChanged)
	{
		(name == kUntil ? counters.until : counters.roleChanged) =
		    value >= 0 && value < 9.2e9 ? std::optional(Instant(std::chrono::milliseconds(std::llround(value * 1000))))
		                                : std::nullopt;
		return;
	}
	const auto* const family = std::ranges::find(kFamilies, name, &Family::name);
	if (family != kFamilies.end() && family->label.empty() == label.empty() && value >= 0 && value < 9007199254740992.0)
	{
		counters.counts[{family->name, label}] = static_cast<std::uint64_t>(std::llround(value));
	}
}

void countMessage(Counters& counters, const LogLine& line)
{
	if (const auto* const level = std::ranges::find(kLevels, line.letter, &decltype(kLevels)::value_type::first);
	    level != kLevels.end())
	{
		++counters.counts[{kMessages.name, level->second}];
	}
	counters.counts.at({kSent.name, ""}) += line.is("CHeartSender", 124) ? 1U : 0U;
	counters.counts.at({kReceived.name, ""}) += line.is("CHeartReciver", 164) ? 1U : 0U;
}

/// The last messages, in their order.
struct Tail
{
	std::deque<LogLine> messages;
	/// No more of them would fit into kTailBytes.
	bool full = false;
	std::vector<LogTrouble> trouble;
};

/// @param more asked with each message, newest first, whether one more is wanted
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

/// @return what was logged after a moment, and what the history needs before it; nothing when these are more messages
///         than fit into kTailBytes, or not all of them can be read
std::optional<std::deque<LogLine>> readShortGap(const LogWish& log, Instant from)
{
	std::size_t before = 0;
	Tail end = readEnd(log, [&](const LogLine& line) { return !line.time || *line.time > from || ++before < kBefore; });
	return end.full || !end.trouble.empty() ? std::nullopt : std::optional(std::move(end.messages));
}

} // namespace

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
	if (std::unique_ptr<ByteSource> bytes = openBytes(log))
	{
		LineStream lines(std::move(bytes), kRemarkLength);
		if (lines.next(line) && line.text.starts_with(remark))
		{
			return dateIn(line.text.substr(remark.size()), Poco::DateTimeFormat::RFC1036_FORMAT);
		}
	}
	return std::nullopt;
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

void Exposition::family(std::string_view name, std::string_view help, std::string_view type)
{
	m_name = "velarix_" + std::string(name);
	m_head = "# HELP " + m_name + " " + escaped(help) + "\n";
	m_head += "# TYPE " + m_name + " " + std::string(type) + "\n";
}

void Exposition::sample(double value, Labels labels)
{
	m_text += std::exchange(m_head, {}) + m_name;
	char separator = '{';
	for (const auto& [name, content] : labels)
	{
		m_text += separator + std::string(name) + "=\"" +
		          Poco::replace(escaped(content), std::string("\""), std::string("\\\"")) + "\"";
		separator = ',';
	}
	m_text += (separator == ',' ? "} " : " ") + numberText(value) + "\n";
}

Counters readCounters(const std::string& exposition)
{
	static const Pattern kSample(R"re(velarix_([a-z_]+)(?:\{[a-z]+="([^"]+)"\})? (\S+)\s*)re");
	Counters counters;
	std::istringstream lines(exposition);
	for (std::string line; std::getline(lines, line);)
	{
		const Pattern::Groups parts = kSample.matched(line);
		double value = 0;
		if (!parts.empty() && Poco::NumberParser::tryParseFloat(parts[3], value))
		{
			takeSample(counters, parts[1], parts[2], value);
		}
	}
	return counters.until ? counters : Counters{};
}

void countOn(Counters& counters, const LogWish& log)
{
	counters.counts.try_emplace({kSent.name, ""});
	counters.counts.try_emplace({kReceived.name, ""});
	const Instant to = std::chrono::floor<std::chrono::milliseconds>(log.now - kSettled);
	const Instant from = std::exchange(counters.until, to).value_or(to);
	if (from >= to)
	{
		return;
	}
	const auto take = [&](const Event& event)
	{
		if (event.time > from && event.time <= to)
		{
			++counters.counts[{kEvents.name, std::string(wordOf(event.kind))}];
		}
	};
	History history(take, log.commands, log.lastMove);
	const auto feed = [&](const LogLine& line)
	{
		if (!line.time || *line.time > to)
		{
			return;
		}
		if (*line.time > from)
		{
			countMessage(counters, line);
		}
		history.feed(line);
	};
	if (const auto end = to - from < kShortGap ? readShortGap(log, from) : std::nullopt)
	{
		std::ranges::for_each(*end, feed);
		return;
	}
	LogReader reader(log.path, from);
	for (LogLine line; reader.next(line);)
	{
		feed(line);
	}
}

void writeCounters(Exposition& out, const Counters& counters)
{
	if (!counters.until)
	{
		return;
	}
	out.single(kUntil, "Moment up to which the counters of this file count the log.",
	           std::optional(inSeconds(*counters.until)));
	for (const Family& family : kFamilies)
	{
		out.counter(family.name, family.help);
		for (const auto& [sample, count] : counters.counts)
		{
			if (sample.first == family.name)
			{
				family.label.empty() ? out.sample(static_cast<double>(count))
				                     : out.sample(static_cast<double>(count), {{family.label, sample.second}});
			}
		}
	}
}

} // namespace velarix::ctl
