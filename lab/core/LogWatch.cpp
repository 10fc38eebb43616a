#include "lab/core/LogWatch.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

constexpr Millis watchPeriod{20};

} // namespace

std::vector<std::string> LogTail::readNew(const std::filesystem::path& path)
{
	std::vector<std::string> lines;
	const Descriptor file(path.empty() ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	struct stat found
	{
	};
	if (!file || ::fstat(file.get(), &found) != 0)
	{
		return lines;
	}
	if (found.st_size < m_offset)
	{
		m_offset = 0;
		m_rest.clear();
	}
	char buffer[16384];
	for (ssize_t count = 0; (count = ::pread(file.get(), buffer, sizeof buffer, m_offset)) > 0;)
	{
		m_offset += count;
		m_rest.append(buffer, static_cast<std::size_t>(count));
	}
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
	switch (mark)
	{
	case LogMark::workBegins:
		log.seen.starts.push_back(now);
		break;
	case LogMark::passBegins:
		log.seen.passes.push_back(now);
		break;
	case LogMark::probeBegins:
		log.probing = now;
		break;
	case LogMark::probeSilent:
		if (log.probing)
		{
			log.seen.silentProbes.push_back({*log.probing, now});
		}
		log.probing.reset();
		break;
	case LogMark::probeAnswered:
		log.probing.reset();
		break;
	case LogMark::none:
		break;
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
