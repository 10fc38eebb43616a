#include "ctl/status/Counters.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "ctl/render/Exposition.h"
#include "inspect/LogReader.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using namespace std::chrono_literals;

/// A line is stamped before it is written: younger ones may still come.
constexpr auto kSettled = 1s;
/// Messages before the first that counts, for the history to know what it is about.
constexpr std::size_t kBefore = 1000;
/// Up to this gap the log is read from its end, beyond it from its beginning.
constexpr auto kShortGap = 1h;
/// What is read from the end is held in memory, and no more than this of it.
constexpr std::size_t kGapBytes = 16UL * 1024UL * 1024UL;

constexpr std::string_view kUntil = "velarix_counted_until_timestamp_seconds";
constexpr std::string_view kEvents = "velarix_events_total";
constexpr std::string_view kMessages = "velarix_log_messages_total";
constexpr std::string_view kSent = "velarix_heartbeats_sent_total";
constexpr std::string_view kReceived = "velarix_heartbeats_received_total";
constexpr std::string_view kChanged = "velarix_last_role_change_timestamp_seconds";

/// Letters of the log; notices carry that of a debug line.
constexpr std::array<std::pair<char, const char*>, 5> kLevels{
    {{'D', "debug"}, {'I', "info"}, {'W', "warning"}, {'E', "error"}, {'C', "critical"}}};

const char* levelOf(char letter)
{
	for (const auto& [known, level] : kLevels)
	{
		if (known == letter)
		{
			return level;
		}
	}
	return nullptr;
}

/// @return the text of the only label; empty without one
std::string labelIn(std::string_view name)
{
	const std::size_t first = name.find('"');
	const std::size_t last = name.rfind('"');
	return first < last && last != std::string_view::npos ? std::string(name.substr(first + 1, last - first - 1))
	                                                      : std::string();
}

Instant instantOf(double value)
{
	return Instant(std::chrono::milliseconds(std::llround(value * 1000)));
}

/// @return whether a sample of ours can have that value: a double counts exactly
///         up to 2^53, and the clock ends in the year 2262
bool isPlausible(std::string_view name, double value)
{
	const bool time = name == kUntil || name == kChanged;
	return value >= 0 && value < (time ? 9.2e9 : 9007199254740992.0);
}

/// Takes one sample line into the counters.
void takeSample(Counters& counters, std::string_view name, double value)
{
	const auto count = static_cast<std::uint64_t>(std::llround(value));
	if (name == kUntil)
	{
		counters.until = instantOf(value);
	}
	else if (name == kChanged)
	{
		counters.roleChanged = instantOf(value);
	}
	else if (const std::string label = labelIn(name); !label.empty() && name.starts_with(kEvents))
	{
		counters.events[label] = count;
	}
	else if (!label.empty() && name.starts_with(kMessages))
	{
		counters.messages[label] = count;
	}
	else if (name == kSent)
	{
		counters.heartbeatsSent = count;
	}
	else if (name == kReceived)
	{
		counters.heartbeatsReceived = count;
	}
}

/// Feeds a history and counts what lies after one moment and not after another.
class Count
{
public:
	Count(Counters& counters, Instant from, Instant to, const LogWish& log)
	    : m_counters(counters), m_from(from), m_to(to),
	      m_history([this](const Event& event) { take(event); }, log.commands, log.lastMove)
	{
	}

	void feed(const LogLine& line)
	{
		if (!line.time || *line.time > m_to)
		{
			return;
		}
		if (*line.time > m_from)
		{
			take(line);
		}
		m_history.feed(line);
	}

private:
	Counters& m_counters;
	Instant m_from;
	Instant m_to;
	History m_history;

	void take(const Event& event)
	{
		if (event.time > m_from && event.time <= m_to)
		{
			++m_counters.events[std::string(wordOf(event.kind))];
		}
	}

	void take(const LogLine& line)
	{
		if (const char* level = levelOf(line.letter))
		{
			++m_counters.messages[level];
		}
		m_counters.heartbeatsSent += line.is("CHeartSender", 124) ? 1U : 0U;
		m_counters.heartbeatsReceived += line.is("CHeartReciver", 164) ? 1U : 0U;
	}
};

/// @return false when the messages would not fit into kGapBytes; nothing is counted then
bool readShortGap(Count& count, const LogWish& log, Instant from)
{
	std::vector<LogLine> newestFirst;
	std::vector<LogTrouble> ignored;
	std::size_t before = 0;
	std::size_t bytes = 0;
	readBackwards(
	    log.path, log.now,
	    [&](const LogLine& line)
	    {
		    newestFirst.push_back(line);
		    bytes += sizeof line + line.text.size();
		    before += line.time && *line.time <= from ? 1U : 0U;
		    return before < kBefore && bytes < kGapBytes;
	    },
	    ignored);
	if (bytes >= kGapBytes)
	{
		return false;
	}
	std::for_each(newestFirst.rbegin(), newestFirst.rend(), [&](const LogLine& line) { count.feed(line); });
	return true;
}

void readLongGap(Count& count, const LogWish& log, Instant from)
{
	LogReader reader(log.path, from);
	for (LogLine line; reader.next(line);)
	{
		count.feed(line);
	}
}

} // namespace

Counters readCounters(const std::string& exposition)
{
	Counters counters;
	std::istringstream lines(exposition);
	for (std::string line; std::getline(lines, line);)
	{
		const std::size_t blank = line.rfind(' ');
		if (!line.starts_with("velarix_") || blank == std::string::npos)
		{
			continue;
		}
		const std::string_view name = std::string_view(line).substr(0, blank);
		double value = 0;
		if (std::from_chars(line.data() + blank + 1, line.data() + line.size(), value).ec == std::errc() &&
		    isPlausible(name, value))
		{
			takeSample(counters, name, value);
		}
	}
	return counters.until ? counters : Counters{};
}

void countOn(Counters& counters, const LogWish& log)
{
	const Instant to = std::chrono::floor<std::chrono::milliseconds>(log.now - kSettled);
	const std::optional<Instant> from = std::exchange(counters.until, to);
	if (!from || *from >= to)
	{
		return;
	}
	Count count(counters, *from, to, log);
	if (to - *from >= kShortGap || !readShortGap(count, log, *from))
	{
		readLongGap(count, log, *from);
	}
}

void writeCounters(Exposition& out, const Counters& counters)
{
	if (!counters.until)
	{
		return;
	}
	const auto bare = [](std::string_view name) { return name.substr(std::string_view("velarix_").size()); };
	out.gauge(bare(kUntil), "Moment up to which the counters of this file count the log.");
	out.sample(inSeconds(*counters.until));
	out.counter(bare(kEvents), "Events reported by the log, by their word (velarixctl events).");
	for (const auto& [word, count] : counters.events)
	{
		out.sample(static_cast<double>(count), {{"event", word}});
	}
	out.counter(bare(kMessages), "Messages of the log by level.");
	for (const auto& [level, count] : counters.messages)
	{
		out.sample(static_cast<double>(count), {{"level", level}});
	}
	out.counter(bare(kSent), "Heartbeats sent to the partner.");
	out.sample(static_cast<double>(counters.heartbeatsSent));
	out.counter(bare(kReceived), "Heartbeats received from the partner.");
	out.sample(static_cast<double>(counters.heartbeatsReceived));
}

} // namespace velarix::ctl
