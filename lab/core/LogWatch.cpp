#include "lab/core/LogWatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>

namespace velarix::lab
{

namespace
{

constexpr const char* giveUp = "gives up the master role, kills the programs";
constexpr const char* bothMasters = "both are master: back to what is set";
constexpr const char* partnerAsks = "takes over: the partner asks";
constexpr const char* runPrograms = "runs the programs as master";

/// Rows with a role are each place where the agent's role changes and, for a lab that
/// looks on later, the lines with which every pass of the receiver tells its role.
constexpr std::array<LogMeaning, 40> meanings{{
    {"CAgent", 25, nullptr, "starts clean: drops the address, kills the programs", LogMark::workBegins},
    {"CAgent", 38, "slave", nullptr},
    {"CHeartReciver", 94, nullptr, nullptr, LogMark::passBegins},
    {"CHeartReciver", 106, "slave", "gives up the master role, asks the partner"},
    {"CHeartReciver", 182, nullptr, "no carrier on the communication interface: not counted"},
    {"CHeartReciver", 192, nullptr, "third silence in a row"},
    {"CHeartReciver", 201, nullptr, "partner silent but reachable: stays standby"},
    {"CHeartReciver", 218, "master", runPrograms},
    {"CHeartReciver", 282, nullptr, bothMasters},
    {"CHeartReciver", 324, nullptr, bothMasters},
    {"CHeartReciver", 414, "master", partnerAsks},
    {"CHeartReciver", 443, "master", partnerAsks},
    {"CHeartReciver", 470, "master", "kills the programs to run them again"},
    {"CHeartReciver", 473, "master", runPrograms},
    {"CHeartReciver", 480, "slave", "returns to the standby role, kills the programs"},
    {"CHeartReciver", 505, "master", nullptr},
    {"CHeartReciver", 508, nullptr, "the gateway does not answer"},
    {"CHeartReciver", 509, "slave", giveUp},
    {"CHeartReciver", 516, nullptr, "the service address does not answer"},
    {"CHeartReciver", 517, "slave", giveUp},
    {"CHeartReciver", 524, nullptr, "the service interface has no carrier"},
    {"CHeartReciver", 525, "slave", giveUp},
    {"CHeartReciver", 538, "slave", nullptr},
    {"CHeartReciver", 543, "slave", "partner and service address are silent"},
    {"CHeartReciver", 549, "master", "takes over: both addresses silent"},
    {"CHeartReciver", 567, nullptr, "the managed programs do not run"},
    {"CHeartReciver", 601, "master", runPrograms},
    {"Utill", 48, nullptr, "raises the address"},
    {"Utill", 62, nullptr, "starts the programs"},
    {"Utill", 490, nullptr, "waits for the address to answer"},
    {"Utill", 504, nullptr, "the address cannot be pinged"},
    // The partner's address, the gateway and the service address are probed.
    {"Utill", 756, nullptr, nullptr, LogMark::probeBegins},
    {"Utill", 760, nullptr, nullptr, LogMark::probeAnswered},
    {"Utill", 768, nullptr, nullptr, LogMark::probeSilent},
    {"Utill", 774, nullptr, nullptr, LogMark::probeBegins},
    {"Utill", 783, nullptr, nullptr, LogMark::probeAnswered},
    {"Utill", 791, nullptr, nullptr, LogMark::probeSilent},
    {"Utill", 797, nullptr, nullptr, LogMark::probeBegins},
    {"Utill", 807, nullptr, nullptr, LogMark::probeAnswered},
    {"Utill", 817, nullptr, nullptr, LogMark::probeSilent},
}};

} // namespace

const LogMeaning* meaningOf(const inspect::LogLine& line)
{
	const auto* found = std::find_if(meanings.begin(), meanings.end(),
	                                 [&](const LogMeaning& meaning) { return line.is(meaning.label, meaning.number); });
	return found == meanings.end() ? nullptr : found;
}

namespace
{

constexpr Millis watchPeriod{20};

} // namespace

std::vector<std::string> LogTail::readNew(const std::filesystem::path& path)
{
	std::vector<std::string> lines;
	std::error_code failure;
	const std::uintmax_t size = std::filesystem::file_size(path, failure);
	if (failure)
	{
		return lines;
	}
	if (size < m_offset)
	{
		m_offset = 0;
		m_rest.clear();
	}
	std::ifstream stream(path, std::ios::binary);
	stream.seekg(static_cast<std::streamoff>(m_offset));
	const std::string more(std::istreambuf_iterator<char>(stream), {});
	m_offset += more.size();
	m_rest += more;
	std::size_t begin = 0;
	for (std::size_t end = 0; (end = m_rest.find('\n', begin)) != std::string::npos; begin = end + 1)
	{
		lines.push_back(m_rest.substr(begin, end - begin));
	}
	m_rest.erase(0, begin);
	return lines;
}

LogWatch::LogWatch(Timeline& timeline, const LabClock& clock) : m_timeline(timeline), m_clock(clock)
{
	m_thread = std::jthread([this](const std::stop_token& stop) { loop(stop); });
}

void LogWatch::follow(HostId node, const std::filesystem::path& log)
{
	const std::lock_guard lock(m_mutex);
	watched(node).log = log;
}

void LogWatch::catchUp(HostId node)
{
	const std::lock_guard lock(m_mutex);
	readLog(node);
}

LogSeen LogWatch::seen(HostId node) const
{
	const std::lock_guard lock(m_mutex);
	return m_watched[indexOf(node)].seen;
}

void LogWatch::agentRuns(HostId node, pid_t agent)
{
	const std::lock_guard lock(m_mutex);
	watched(node).agent = agent;
}

void LogWatch::loop(const std::stop_token& stop)
{
	while (!stop.stop_requested())
	{
		{
			const std::lock_guard lock(m_mutex);
			for (const HostId node : nodes)
			{
				readLog(node);
				checkAgent(node);
			}
		}
		std::this_thread::sleep_for(watchPeriod);
	}
}

void LogWatch::readLog(HostId node)
{
	Watched& log = watched(node);
	for (const std::string& text : log.tail.readNew(log.log))
	{
		const std::optional<inspect::LogLine> line = inspect::parseHead(text, log.clock);
		const LogMeaning* meaning = line ? meaningOf(*line) : nullptr;
		if (meaning == nullptr)
		{
			continue;
		}
		const Millis now = m_clock.now();
		keepMark(log, meaning->mark, now);
		if (meaning->action != nullptr && log.lastAction != meaning->action)
		{
			log.lastAction = meaning->action;
			m_timeline.add({now, EventKind::action, node, meaning->action});
		}
		if (meaning->role != nullptr)
		{
			m_timeline.change(roleTrack(node), now, meaning->role);
		}
	}
}

void LogWatch::keepMark(Watched& log, LogMark mark, Millis now)
{
	if (mark == LogMark::workBegins)
	{
		log.seen.starts.push_back(now);
	}
	else if (mark == LogMark::passBegins)
	{
		log.seen.passes.push_back(now);
	}
	else if (mark == LogMark::probeBegins)
	{
		log.probing = now;
	}
	else if (mark != LogMark::none)
	{
		if (log.probing && mark == LogMark::probeSilent)
		{
			log.seen.silentProbes.push_back({*log.probing, now});
		}
		log.probing.reset();
	}
}

void LogWatch::checkAgent(HostId node)
{
	Watched& log = watched(node);
	if (log.agent > 0 && ::kill(log.agent, 0) != 0 && errno == ESRCH)
	{
		log.agent = -1;
		m_timeline.add({m_clock.now(), EventKind::action, node, "the agent has ended by itself"});
		m_timeline.change(roleTrack(node), m_clock.now(), "no agent");
	}
}

} // namespace velarix::lab
