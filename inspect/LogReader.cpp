#include "inspect/LogReader.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <set>
#include <utility>

#include "inspect/LineStream.h"
#include "inspect/MessageJoiner.h"

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

/// The files one after the other. The one that is being written stays open until
/// another one has its name.
class LogReader::Source
{
public:
	Source(std::filesystem::path path, std::optional<Instant> since) : m_path(std::move(path))
	{
		list([&](const LogFile& file) { return !since || !file.rotated || *file.rotated >= *since; });
	}

	bool next(LogLine& line)
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

	bool last(LogLine& line)
	{
		if (m_stream != nullptr && m_stream->rest(m_raw))
		{
			m_joiner.add(m_raw);
		}
		m_joiner.finish();
		return m_joiner.take(line);
	}

	const std::vector<LogTrouble>& trouble() const { return m_trouble; }

private:
	enum class Fate
	{
		growing,
		cutDown,
		replaced
	};

	const std::filesystem::path m_path;
	std::deque<LogFile> m_queue;
	/// The archives that have been read, are in the queue, or are older than that.
	std::set<std::filesystem::path> m_known;
	std::unique_ptr<LineStream> m_stream;
	std::filesystem::path m_opened;
	bool m_writtenTo = false;
	bool m_leaving = false;
	RawLine m_raw;
	MessageJoiner m_joiner;
	std::vector<LogTrouble> m_trouble;

	/// Queues the files that are wanted, the one that is being written last.
	template <typename Wanted> void list(const Wanted& wanted)
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

	void tell(const std::filesystem::path& path, int error)
	{
		const auto told =
		    std::find_if(m_trouble.begin(), m_trouble.end(), [&](const LogTrouble& one) { return one.path == path; });
		if (told == m_trouble.end())
		{
			m_trouble.push_back({path, error});
		}
	}

	/// @return false when the file that is being written cannot be opened (yet)
	bool openNext()
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
	bool goOn()
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
		switch (fate())
		{
		case Fate::replaced:
			// What was written between the last read and the rotation is still there.
			m_leaving = true;
			return true;
		case Fate::cutDown:
			leave();
			m_queue.push_front({m_path, std::nullopt});
			return true;
		case Fate::growing:
			break;
		}
		if (!m_stream->hasRest())
		{
			m_joiner.finish();
		}
		return false;
	}

	Fate fate() const
	{
		FileId id;
		std::uint64_t size = 0;
		if (!lookAt(m_path, id, size))
		{
			return Fate::growing; // between the two steps of a rotation
		}
		if (id != m_stream->id())
		{
			return Fate::replaced;
		}
		return size < m_stream->position() ? Fate::cutDown : Fate::growing;
	}

	/// No message goes on in another file.
	void leave()
	{
		if (m_stream->rest(m_raw))
		{
			m_joiner.add(m_raw);
		}
		m_joiner.finish();
		m_stream.reset();
	}

	/// The open file has become an archive: those made since then follow, and the
	/// file that is written now.
	void followRotation()
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
};

LogReader::LogReader(std::filesystem::path path, std::optional<Instant> since)
    : m_source(std::make_unique<Source>(std::move(path), since))
{
}

LogReader::~LogReader() = default;

bool LogReader::next(LogLine& line)
{
	return m_source->next(line);
}

bool LogReader::last(LogLine& line)
{
	return m_source->last(line);
}

const std::vector<LogTrouble>& LogReader::trouble() const
{
	return m_source->trouble();
}

} // namespace velarix::inspect
