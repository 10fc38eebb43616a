#include "ctl/status/Counters.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <sstream>
#include <utility>
#include <vector>

#include "ctl/history/History.h"
#include "ctl/render/Exposition.h"
#include "inspect/LogReader.h"
#include "inspect/Pattern.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using namespace std::chrono_literals;

/// A line is stamped before it is written: younger ones may still come.
constexpr auto kSettled = 1s;
/// Messages before the first that counts, for the history to know what it is about.
constexpr std::size_t kBefore = 1000;
/// Up to this gap the log is read from its end, beyond it from its beginning.
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

Instant instantOf(double value)
{
	return Instant(std::chrono::milliseconds(std::llround(value * 1000)));
}

/// Takes one sample line into the counters, when a sample of ours can have that value: a
/// double counts exactly up to 2^53, and the clock ends in the year 2262.
/// @param name  "events_total{event="error"}"
void takeSample(Counters& counters, const std::string& name, double value)
{
	if (name == kUntil || name == kChanged)
	{
		(name == kUntil ? counters.until : counters.roleChanged) =
		    value >= 0 && value < 9.2e9 ? std::optional(instantOf(value)) : std::nullopt;
		return;
	}
	static const Pattern kSample(R"re(([a-z_]+)(?:\{[a-z]+="([^"]+)"\})?)re");
	const Pattern::Groups parts = kSample.matched(name);
	const auto* const family = parts.empty() ? kFamilies.end() : std::ranges::find(kFamilies, parts[1], &Family::name);
	if (family != kFamilies.end() && family->label.empty() == parts[2].empty() && value >= 0 &&
	    value < 9007199254740992.0)
	{
		counters.counts[{family->name, parts[2]}] = static_cast<std::uint64_t>(std::llround(value));
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
			++m_counters.counts[{kEvents.name, std::string(wordOf(event.kind))}];
		}
	}

	void take(const LogLine& line)
	{
		if (const auto* const level = std::ranges::find(kLevels, line.letter, &decltype(kLevels)::value_type::first);
		    level != kLevels.end())
		{
			++m_counters.counts[{kMessages.name, level->second}];
		}
		m_counters.counts.at({kSent.name, ""}) += line.is("CHeartSender", 124) ? 1U : 0U;
		m_counters.counts.at({kReceived.name, ""}) += line.is("CHeartReciver", 164) ? 1U : 0U;
	}
};

/// @return false when the messages would not fit into kTailBytes; nothing is counted then
bool readShortGap(Count& count, const LogWish& log, Instant from)
{
	std::size_t before = 0;
	const Tail tail = readEnd(log,
	                          [&](const LogLine& line)
	                          {
		                          before += line.time && *line.time <= from ? 1U : 0U;
		                          return before < kBefore;
	                          });
	if (tail.full)
	{
		return false;
	}
	std::ranges::for_each(tail.messages, [&](const LogLine& line) { count.feed(line); });
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
	constexpr std::string_view prefix = "velarix_";
	Counters counters;
	std::istringstream lines(exposition);
	for (std::string line; std::getline(lines, line);)
	{
		const std::size_t blank = line.rfind(' ');
		double value = 0;
		if (line.starts_with(prefix) && blank != std::string::npos &&
		    std::from_chars(line.data() + blank + 1, line.data() + line.size(), value).ec == std::errc())
		{
			takeSample(counters, line.substr(prefix.size(), blank - prefix.size()), value);
		}
	}
	return counters.until ? counters : Counters{};
}

void countOn(Counters& counters, const LogWish& log)
{
	counters.counts.try_emplace({kSent.name, ""});
	counters.counts.try_emplace({kReceived.name, ""});
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
