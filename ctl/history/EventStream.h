/// The history of a node as it goes on: what the agent's log and the keeper's tell, in
/// one order.
#pragma once

#include "ctl/history/History.h"
#include "ctl/history/KeeperLog.h"
#include "inspect/LogLine.h"
#include "inspect/LogReader.h"
#include "inspect/Paths.h"
#include "inspect/SettingsFile.h"

namespace velarix::ctl
{

/// @return the commands of the settings
Commands commandsOf(const SettingsFile& settings);

/// Which logs, and by what the agent's commands are known.
struct EventSource
{
	std::filesystem::path log;
	std::filesystem::path keeperLog;
	Commands commands;

	/// @param log the agent's; where it is empty, the one that the settings name
	/// @throws Failure when the settings are needed and do not tell
	static EventSource of(const Paths& paths, const std::filesystem::path& log = {});
};

class EventStream
{
public:
	using AgentSink = std::function<void(const Event&)>;
	using KeeperSink = std::function<void(const KeeperEvent&)>;

	/// @param since archives that were rotated away before are not opened
	EventStream(const EventSource& source, std::optional<Instant> since, AgentSink agent, KeeperSink keeper);

	/// Hands out what the logs tell so far. Ask again for what comes then.
	/// @param goOn asked before each message; without it all of it is read
	void read(const std::function<bool()>& goOn = {});
	/// The keeper's events that are later than the agent's last.
	void readKeeper(Instant until = Instant::max());
	/// Lines that never got their end, when no more is awaited.
	void finish();

	/// The time of the message that is being read: it tells of events that may have been
	/// before, and it does not go back when the stream is read once more.
	Instant at() const { return m_at; }
	bool anything() const { return m_anything; }
	const std::vector<LogTrouble>& trouble() const { return m_reader.trouble(); }
	const std::vector<LogTrouble>& keeperTrouble() const { return m_keeper.trouble(); }

private:
	KeeperLog m_keeper;
	KeeperSink m_keeperSink;
	History m_history;
	LogReader m_reader;
	LogLine m_line;
	Instant m_at;
	std::optional<Instant> m_lastMove;
	bool m_anything = false;

	/// Why the address is not here, as ha-address says; empty while it is, or nobody says.
	std::string m_notHere;

	void feed();
	void note(const KeeperEvent& event);
	Event withKeeper(Event event) const;
};

} // namespace velarix::ctl
