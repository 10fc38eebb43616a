#include "ctl/history/KeeperLog.h"

#include <cerrno>
#include <utility>

#include <Poco/DateTime.h>
#include <Poco/DateTimeParser.h>

#include "ctl/history/OperatorLog.h"
#include "inspect/Pattern.h"

namespace velarix::ctl
{

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t kLongest = 4096;
/// More than the package's logrotate keeps.
constexpr int kArchives = 9;

} // namespace

std::optional<KeeperEvent> parseKeeperLine(const std::string& line)
{
	static const Pattern kLine(R"((\S+) (ha-[a-z0-9_-]+|velarixctl)\[(\d{1,9})\] ([a-z-]+): (.*))");
	const Pattern::Groups parts = kLine.matched(line);
	int zone = 0;
	Poco::DateTime date;
	if (parts.empty() || !Poco::DateTimeParser::tryParse("%Y-%m-%dT%H:%M:%S.%i%z", parts[1], date, zone))
	{
		return std::nullopt;
	}
	date.makeUTC(zone);
	return KeeperEvent{Instant(std::chrono::milliseconds(date.timestamp().epochMicroseconds() / 1000)),
	                   std::stol(parts[3]), parts[2], parts[4], parts[5]};
}

bool isMove(const KeeperEvent& event)
{
	return event.program == kOperator && event.word == kSwitchover;
}

KeeperLog::KeeperLog(fs::path path) : m_path(std::move(path))
{
	for (int number = kArchives; number > 0; --number)
	{
		for (const char* suffix : {".gz", ""})
		{
			const fs::path archive = m_path.string() + "." + std::to_string(number) + suffix;
			std::error_code ignored;
			if (fs::exists(archive, ignored))
			{
				m_files.push_back(archive);
			}
		}
	}
	m_files.push_back(m_path);
}

/// @return whether a file is open; an archive that cannot be read is passed over, the file
///         that is being written may be readable again later
bool KeeperLog::open()
{
	while (!m_lines && !m_files.empty())
	{
		const fs::path file = m_files.front();
		std::unique_ptr<ByteSource> bytes = openBytes(file);
		if (bytes != nullptr)
		{
			m_lines = std::make_unique<LineStream>(std::move(bytes), kLongest);
			m_lastError = 0;
			return true;
		}
		const int error = errno;
		const bool stays = file == m_path;
		if (!stays || (error != ENOENT && error != m_lastError))
		{
			m_trouble.push_back({file, error});
		}
		if (stays)
		{
			m_lastError = error;
			return false;
		}
		m_files.erase(m_files.begin());
	}
	return m_lines != nullptr;
}

/// @return whether nothing more comes from the open file: it was replaced (by logrotate) or cut
bool KeeperLog::isOver() const
{
	FileId id;
	std::uint64_t size = 0;
	return lookAt(m_path, id, size) && (!(id == m_lines->id()) || size < m_lines->position());
}

bool KeeperLog::nextLine(RawLine& line)
{
	while (open())
	{
		if (m_lines->next(line))
		{
			return true;
		}
		if (m_files.front() != m_path)
		{
			m_files.erase(m_files.begin());
		}
		else if (!isOver())
		{
			return false;
		}
		else if (m_lines->next(line))
		{
			return true; // written between the look at its end and the rotation
		}
		m_lines.reset();
	}
	return false;
}

std::optional<KeeperEvent> KeeperLog::next(Instant until)
{
	RawLine line;
	while (!m_pending && nextLine(line))
	{
		m_pending = parseKeeperLine(line.text);
	}
	return m_pending && m_pending->time <= until ? std::exchange(m_pending, std::nullopt) : std::nullopt;
}

} // namespace velarix::ctl
