/// What one notifier has been given, and giving it the next event.
///
/// The logs are the queue: an event is read again from them until the notifier has taken
/// it, and a small file remembers how far it has come. In memory is at most what a start
/// has found behind the mark, 1000 events of each log. A crash between taking and
/// remembering gives the event twice.
#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "ctl/history/Events.h"
#include "ctl/notify/Notifiers.h"
#include "inspect/HostProgram.h"

namespace velarix::ctl::notify
{

using Json = nlohmann::ordered_json;

/// An event on its way.
struct Message
{
	/// When it became known.
	Instant at;
	Json json;

	/// What it is found by when the logs are read again; how long it took is no part of it,
	/// since that depends on how much of the logs is still there.
	std::string identity() const;
};

/// The last event of one log that was taken.
struct Mark
{
	Instant at;
	/// Empty: begin with what comes after `at`.
	std::string identity;
};

/// Passes the events of one log on that come behind the mark. Until `rest` is called it
/// keeps them; should the mark not be in the log, those from its time on.
class Resumption
{
public:
	explicit Resumption(Mark mark) : m_mark(std::move(mark)) {}

	/// @return whether the event is to be delivered now
	bool passes(const Message& message);

	/// After the first reading: what came behind the mark. From now on all events pass.
	std::deque<Message> rest();

	/// How many were too many to keep, the oldest.
	std::size_t dropped() const { return m_dropped; }

private:
	Mark m_mark;
	bool m_found = false;
	bool m_catchesUp = true;
	std::deque<Message> m_behind;
	std::size_t m_dropped = 0;
};

/// How far a notifier has come, in a file.
struct Position
{
	Mark agent;
	Mark keeper;

	/// @return nothing when there is no file
	/// @throws Failure settings for a damaged one
	static std::optional<Position> read(const std::filesystem::path& file);
	void write(const std::filesystem::path& file) const;
};

/// Gives the event to the notifier once: JSON on standard input, its members as VELARIX_NAME
/// in the environment.
host::ProgramEnd deliver(const Notifier& notifier, const Json& event, std::chrono::milliseconds limit);

} // namespace velarix::ctl::notify
