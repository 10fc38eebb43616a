/// Follows the logs of both nodes from outside and writes roles and actions into
/// the timeline; also notices an agent that ends by itself.
///
/// A line's time is when the lab read it, at most about 20 ms after it was
/// written: the log's own stamps are tenths of a second. What a line means follows from its label and
/// number: both are fixed for ever (docs/log-messages.md), while texts hold values.
#pragma once

#include <array>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/types.h>

#include "inspect/LogLine.h"
#include "lab/core/Basics.h"
#include "lab/core/Timeline.h"

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

/// Reads what is new in a growing text file.
class LogTail
{
public:
	/// @return the complete lines written since the last call; none when there is
	///         no such file. Begins anew when the file became shorter.
	std::vector<std::string> readNew(const std::filesystem::path& path);

private:
	std::uintmax_t m_offset = 0;
	std::string m_rest;
};

/// When a probe that nobody answered began and ended. Each end is as exact as every line is, so
/// its length is exact within about 20 ms.
struct ProbeInterval
{
	Millis from{0};
	Millis to{0};

	Millis length() const { return to - from; }
};

/// What a node's log tells beside the timeline, in the order in which it happened.
struct LogSeen
{
	std::vector<Millis> passes;              ///< when each pass of the receiver began
	std::vector<ProbeInterval> silentProbes; ///< probes that nobody answered
	std::vector<Millis> starts;              ///< when an agent began its work
};

class LogWatch
{
public:
	/// `timeline` and `clock` must outlive the watch.
	LogWatch(Timeline& timeline, const LabClock& clock);

	/// Follows this file, on the node's disk, so that it is there whether the
	/// node is on or off.
	void follow(HostId node, const std::filesystem::path& log);
	/// Reads at once what the file has.
	void catchUp(HostId node);

	LogSeen seen(HostId node) const;

	/// The node's agent runs as this process (as the lab sees it).
	void agentRuns(HostId node, pid_t agent);
	/// The node has no agent, or one whose end is known.
	void forgetAgent(HostId node) { agentRuns(node, -1); }

private:
	struct Watched
	{
		std::filesystem::path log;
		LogTail tail;
		inspect::LogClock clock;
		pid_t agent = -1;
		std::string lastAction;
		LogSeen seen{};
		std::optional<Millis> probing{}; ///< since when
	};

	Timeline& m_timeline;
	const LabClock& m_clock;
	mutable std::mutex m_mutex;
	std::array<Watched, 2> m_watched;
	std::jthread m_thread; ///< ends before what it uses

	Watched& watched(HostId node) { return m_watched[indexOf(node)]; }
	void loop(const std::stop_token& stop);
	void readLog(HostId node);
	static void keepMark(Watched& log, LogMark mark, Millis now);
	void checkAgent(HostId node);
};

} // namespace velarix::lab
