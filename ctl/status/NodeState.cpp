#include "ctl/status/NodeState.h"

#include "ctl/history/EventStream.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

/// What a fresh agent gets before silence of its log counts: it drops the
/// address and kills the programs before it says who it is.
constexpr std::chrono::seconds kStart{15};
/// A message may be this far in the future: the tenths of two clocks.
constexpr std::chrono::seconds kFuture{2};
/// Time zones differ by quarters of an hour, and by no more than this.
constexpr std::chrono::minutes kZoneStep{15};
constexpr std::chrono::hours kWidestZones{26};
/// A log begun that far ahead is begun by a clock that was wrong.
constexpr std::chrono::minutes kAhead{1};

void readRecord(NodeState& state, const Paths& paths)
{
	try
	{
		state.maintenance = readMaintenance(paths.maintenance);
	}
	catch (const Failure& failure)
	{
		state.maintenanceProblem = failure.what();
	}
}

void readSettings(NodeState& state, const Paths& paths)
{
	try
	{
		state.settings = SettingsFile::load(paths.settings);
		state.timing = Timing::of(*state.settings);
	}
	catch (const Failure& failure)
	{
		state.settingsProblem = failure.what();
		state.settingsCode = failure.code();
		return;
	}
	const std::optional<Instant> changed = host::changedAt(paths.settings);
	state.settingsNewer = changed && state.agent.since && *changed > *state.agent.since + std::chrono::seconds(5);
}

void readLog(NodeState& state, const Paths& paths, std::optional<Instant> until)
{
	const std::string path = state.setting(key::kLogPath);
	if (!state.settings)
	{
		state.tail.problem = "where the log is stands in the settings: " + state.settingsProblem;
		state.tail.forbidden = state.settingsCode == ExitCode::noPermission;
	}
	else if (!path.starts_with('/'))
	{
		state.tail.problem =
		    path.empty() ? "the settings name no log file"
		                 : "LOG.PATH is relative (" + path + "): where it is depends on where the agent was started";
	}
	else
	{
		state.log = paths.below(path);
		state.lastMove = movesIn(paths.keeperLog);
		state.tail = readTail(state.logWish(), until ? std::min(*until, state.now - kFlapping) : state.now - kFlapping);
		const std::optional<Instant> begun = begunAt(state.log);
		state.logBegunAhead = begun && *begun > state.now + kAhead ? begun : std::nullopt;
	}
}

/// @return by how many time zones the last line is off the file's own time stamp,
///         in either direction, when that stamp is as fresh as a sound agent's
std::optional<Milliseconds> zonesBetween(const NodeState& state)
{
	const std::optional<Milliseconds> fileAge = state.age(host::changedAt(state.log));
	if (!fileAge || *fileAge > state.timing.logPause() || *fileAge < -kFuture)
	{
		return std::nullopt;
	}
	const Milliseconds off = std::chrono::abs(*state.age(state.snapshot().lastMessage) - *fileAge);
	const Milliseconds zones = (off + kZoneStep / 2) / kZoneStep * Milliseconds(kZoneStep);
	const bool whole = zones > Milliseconds(0) && zones <= kWidestZones && std::chrono::abs(off - zones) <= kFuture;
	return whole ? std::optional(zones) : std::nullopt;
}

/// @return why what the log reported may not be true now; empty when it may
std::string doubt(NodeState& state)
{
	const Snapshot& snapshot = state.snapshot();
	if (!state.agent.lives() || state.agent.state == AgentState::frozen)
	{
		return state.agent.text;
	}
	const bool young = state.agent.since && state.now - *state.agent.since < kStart;
	if (!state.tail.problem.empty())
	{
		state.starting = young && !state.tail.forbidden;
		return state.tail.problem;
	}
	if (snapshot.process != state.agent.pid)
	{
		state.starting = young;
		state.logStale = !young;
		return "the log's last lines are of process " + std::to_string(snapshot.process) + ", not of the agent (" +
		       std::to_string(state.agent.pid) + ")";
	}
	const Milliseconds age = *state.age(snapshot.lastMessage);
	if (const std::optional<Milliseconds> zones = zonesBetween(state))
	{
		state.otherZone = true;
		return "the log is written in another time zone: its last line is " + spanText(*zones) +
		       (age < Milliseconds(0) ? " ahead of" : " behind") + " its file's time";
	}
	if (age < -kFuture)
	{
		state.logStale = true;
		return "the log's last line is " + spanText(-age) +
		       " in the future: clock or time zone are not those of the agent";
	}
	if (age > state.timing.logPause())
	{
		state.logStale = true;
		return "the agent lives, but nothing was logged for " + spanText(age) + " (" +
		       spanText(state.timing.logPause()) + " at most are usual)";
	}
	return {};
}

template <typename Value> Figure<Value> fromLog(const NodeState& state, const std::optional<Reported<Value>>& reported)
{
	Figure<Value> figure;
	figure.why = state.distrust;
	if (reported)
	{
		figure.reported = reported->value;
		figure.at = reported->at;
		figure.since = reported->since;
	}
	else if (figure.why.empty())
	{
		figure.why = "the log does not tell";
	}
	return figure;
}

void takeRole(NodeState& state)
{
	const std::optional<Reported<Role>>& reported = state.snapshot().role;
	state.role = fromLog(state, reported && reported->value != Role::unknown ? reported : std::nullopt);
	if (state.role.known() && *state.age(state.role) > state.timing.rolePause())
	{
		state.role.why = "the log reported it last " + spanText(*state.age(state.role)) + " ago";
	}
}

/// @return whether the heartbeat is fresh enough to tell how the partner is now.
///         While the service is being started nobody reads heartbeats.
bool heard(const NodeState& state)
{
	return state.heartbeat.known() && !state.snapshot().partnerLost &&
	       (state.snapshot().takeOver || *state.age(state.heartbeat) <= state.timing.heartbeatPause());
}

void takePartner(NodeState& state)
{
	state.heartbeat = fromLog(state, state.snapshot().received);
	state.sent = fromLog(state, state.snapshot().sent);
	const std::optional<Heartbeat>& last = state.heartbeat.reported;
	if (!last && state.distrust.empty())
	{
		state.heartbeat.why = "no heartbeat of it in the part of the log that was read";
	}
	const bool silent = state.heartbeat.known() && !heard(state);
	const auto take = [&](auto& figure, auto of)
	{
		figure.reported = last ? std::optional(std::invoke(of, *last)) : std::nullopt;
		figure.at = state.heartbeat.at;
		figure.why = silent ? "no heartbeat for " + spanText(*state.age(state.heartbeat)) : state.heartbeat.why;
	};
	take(state.partnerRole, [](const Heartbeat& beat) { return beat.master ? Role::master : Role::slave; });
	take(state.partnerAsks, &Heartbeat::asking);
	take(state.partnerRuns, &Heartbeat::running);
}

/// @return when the role began; nothing when the log was not read far enough back
std::optional<Instant> roleSince(const NodeState& state)
{
	const std::optional<Instant>& started = state.agent.since;
	const LastChange& change = state.lastChange;
	if (change.event)
	{
		// Every agent starts as standby, so a start may have ended an earlier one.
		return change.event->to == state.role.reported ? std::max(change.event->time, started.value_or(Instant::min()))
		                                               : std::optional<Instant>();
	}
	const bool whole = started && change.searchedTo && *change.searchedTo <= *started + kStart;
	return whole ? started : std::nullopt;
}

} // namespace

std::string NodeState::setting(const char* name) const
{
	return settings ? settings->text(name).value_or("") : std::string();
}

LogWish NodeState::logWish() const
{
	return {log, now, settings ? commandsOf(*settings) : Commands{}, lastMove};
}

std::optional<Milliseconds> NodeState::age(const std::optional<Instant>& time) const
{
	return time ? std::optional(std::chrono::duration_cast<Milliseconds>(now - *time)) : std::nullopt;
}

NodeState Observer::look(Instant now)
{
	NodeState state;
	state.now = now;
	state.elsewhere = m_paths.elsewhere();
	state.host = state.elsewhere ? std::string() : host::name();
	state.agent = lookForAgent(m_paths);
	readRecord(state, m_paths);
	readSettings(state, m_paths);
	readLog(state, m_paths, m_lastLook);
	state.distrust = doubt(state);
	takeRole(state);
	takePartner(state);
	state.networkOk = fromLog(state, state.snapshot().networkOk);
	state.asking = fromLog(state, state.snapshot().asking);
	askKernel(state, m_paths);
	noteChange(state);
	m_lastLook = now - kStart;
	return state;
}

/// The search far back is made once for each agent; later changes are in the
/// part of the log that is read anyway.
void Observer::noteChange(NodeState& state)
{
	if (state.snapshot().lastRoleChange)
	{
		m_change = {state.snapshot().lastRoleChange, std::nullopt};
		m_process = state.snapshot().process;
	}
	else if (m_search && state.snapshot().role && m_process != state.snapshot().process)
	{
		m_process = state.snapshot().process;
		m_change = findLastChange(state.logWish(), state.snapshot().role->value);
	}
	state.lastChange = m_change;
	state.role.since = roleSince(state);
}

Timing Timing::of(const SettingsFile& settings)
{
	const auto read = [&](const char* name)
	{ return std::chrono::seconds(std::max(0, settings.integer(name).value_or(0))); };
	return {read(key::kInterval), read(key::kReceivingTime), read(key::kCheckCycle), read(key::kWaitingTime)};
}

} // namespace velarix::ctl
