/// The end of a log, made into the snapshot that its last messages give, and the
/// search for the last change of the role further back.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <utility>

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

/// The text format that Prometheus reads. Collects samples; the first one of a family puts its HELP and TYPE lines
/// before it, so that a family without samples is left out.
class Exposition
{
public:
	using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

	void gauge(std::string_view name, std::string_view help) { family(name, help, "gauge"); }
	/// @param name ends in "_total"
	void counter(std::string_view name, std::string_view help) { family(name, help, "counter"); }

	/// A sample of the family begun last.
	void sample(double value, Labels labels = {});

	/// A family of one sample; nothing at all for a value that is not known.
	void single(std::string_view name, std::string_view help, std::optional<double> value)
	{
		if (value)
		{
			gauge(name, help);
			sample(*value);
		}
	}

	const std::string& text() const { return m_text; }

private:
	std::string m_text;
	std::string m_name;
	/// The lines before the first sample of the family.
	std::string m_head;

	void family(std::string_view name, std::string_view help, std::string_view type);
};

/// Counts over the log that go on from run to run. The log is not read from its
/// beginning each time: the former counts stand in the file that the last run
/// wrote, with the moment up to which they count, and only what was logged since
/// then is added.
struct Counters
{
	/// Every message up to this moment is counted.
	std::optional<Instant> until;
	/// By the metric and the value of its label.
	std::map<std::pair<std::string_view, std::string>, std::uint64_t> counts;
	/// The role changed last, as the former run knew it; kept so that the log need
	/// not be searched each time.
	std::optional<Instant> roleChanged;
};

/// @return the counts of a file that writeCounters wrote; zeros and no moment for
///         any other text
Counters readCounters(const std::string& exposition);

/// Adds what was logged after `counters.until` and up to a little before now,
/// and moves `until` there. Counters without a moment begin at zero.
void countOn(Counters& counters, const LogWish& log);

void writeCounters(Exposition& out, const Counters& counters);

} // namespace velarix::ctl
