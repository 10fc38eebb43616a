#include "inspect/LogReader.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace velarix::inspect
{

namespace
{

/// An archive stays the same one when it is packed.
std::filesystem::path unpacked(const std::filesystem::path& path)
{
	return path.extension() == ".gz" ? path.parent_path() / path.stem() : path;
}

} // namespace

LogReader::LogReader(std::filesystem::path path, std::optional<Instant> since) : m_path(std::move(path))
{
	list([&](const LogFile& file) { return !since || !file.rotated || *file.rotated >= *since; });
}

bool LogReader::next(LogLine& line)
{
	for (;;)
	{
		if (m_joiner.take(line))
		{
			return true;
		}
		if (m_stream == nullptr && !openNext())
		{
			return false;
		}
		if (m_stream->next(m_raw))
		{
			m_joiner.add(m_raw);
		}
		else if (!goOn())
		{
			return m_joiner.take(line);
		}
	}
}

bool LogReader::last(LogLine& line)
{
	finish();
	return m_joiner.take(line);
}

/// What was read so far is all of its message.
void LogReader::finish()
{
	if (m_stream != nullptr && m_stream->rest(m_raw))
	{
		m_joiner.add(m_raw);
	}
	m_joiner.finish();
}

/// Queues the files that are wanted, the one that is being written last.
void LogReader::list(const std::function<bool(const LogFile&)>& wanted)
{
	std::vector<LogTrouble> trouble;
	for (LogFile& file : logFiles(m_path, trouble))
	{
		const bool wantIt = wanted(file);
		if (file.rotated)
		{
			m_known.insert(unpacked(file.path));
		}
		if (wantIt)
		{
			m_queue.push_back(std::move(file));
		}
	}
	for (const LogTrouble& one : trouble)
	{
		tell(one.path, one.error);
	}
}

void LogReader::tell(const std::filesystem::path& path, int error)
{
	if (std::ranges::find(m_trouble, path, &LogTrouble::path) == m_trouble.end())
	{
		m_trouble.push_back({path, error});
	}
}

/// @return false when the file that is being written cannot be opened (yet)
bool LogReader::openNext()
{
	while (!m_queue.empty())
	{
		const LogFile& file = m_queue.front();
		std::unique_ptr<ByteSource> bytes = openBytes(file.path);
		m_writtenTo = !file.rotated;
		m_opened = file.path;
		if (bytes == nullptr)
		{
			tell(file.path, errno);
			if (m_writtenTo)
			{
				return false;
			}
		}
		else
		{
			m_stream = std::make_unique<LineStream>(std::move(bytes), kLongestText);
		}
		m_queue.pop_front();
		if (m_stream != nullptr)
		{
			return true;
		}
	}
	return false;
}

/// At the end of the open file.
/// @return false when nothing more is there at present
bool LogReader::goOn()
{
	if (m_stream->error() != 0)
	{
		tell(m_opened, m_stream->error());
	}
	if (!m_writtenTo)
	{
		leave();
		return true;
	}
	if (m_leaving)
	{
		followRotation();
		return true;
	}
	return followFile();
}

/// At the end of the file that is being written.
/// @return false when nothing more is there at present
bool LogReader::followFile()
{
	FileId id;
	std::uint64_t size = 0;
	// Between the two steps of a rotation there is no file.
	const bool there = lookAt(m_path, id, size);
	if (there && id != m_stream->id())
	{
		// What was written between the last read and the rotation is still there.
		m_leaving = true;
		return true;
	}
	if (there && size < m_stream->position())
	{
		leave();
		m_queue.push_front({m_path, std::nullopt});
		return true;
	}
	if (!m_stream->hasRest())
	{
		m_joiner.finish();
	}
	return false;
}

/// No message goes on in another file.
void LogReader::leave()
{
	finish();
	m_stream.reset();
}

/// The open file has become an archive: those made since then follow, and the
/// file that is written now.
void LogReader::followRotation()
{
	const FileId read = m_stream->id();
	leave();
	m_leaving = false;
	list(
	    [&](const LogFile& file)
	    {
		    FileId id;
		    std::uint64_t size = 0;
		    return !file.rotated ||
		           (!m_known.contains(unpacked(file.path)) && !(lookAt(file.path, id, size) && id == read));
	    });
}

} // namespace velarix::inspect
