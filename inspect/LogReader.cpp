#include "inspect/LogReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <tuple>
#include <utility>

#include "inspect/Pattern.h"

namespace velarix::inspect
{

namespace
{

/// An archive stays the same one when it is packed.
std::filesystem::path unpacked(const std::filesystem::path& path)
{
	return path.extension() == ".gz" ? path.parent_path() / path.stem() : path;
}

/// In the order in which they were rotated away. Two of one instant: the library numbers all but the newest,
/// the oldest has the highest number (here the lowest).
using Archives = std::set<std::tuple<Instant, int, std::filesystem::path>>;

/// @param suffix what follows the log's name and a dot: "20261121090705123" (UTC), that with ".0" or ".gz"
void takeArchive(Archives& archives, const std::filesystem::path& path, const std::string& suffix)
{
	static const Pattern kSuffix(R"((\d{14})(\d{3})(?:\.(\d{1,9}))?(?:\.gz)?)");
	constexpr char kStamp[] = "%Y%m%d%H%M%S";
	const Pattern::Groups parts = kSuffix.matched(suffix);
	std::tm date{};
	if (parts.empty() || ::strptime(parts[1].c_str(), kStamp, &date) == nullptr)
	{
		return;
	}
	// Makes another date of one that does not exist.
	const std::time_t seconds = ::timegm(&date);
	std::array<char, 16> stamp{};
	std::strftime(stamp.data(), stamp.size(), kStamp, &date);
	const int year = date.tm_year + 1900;
	if (parts[1] == stamp.data() && year >= kFirstYear && year <= kLastYear)
	{
		archives.emplace(std::chrono::system_clock::from_time_t(seconds) +
		                     std::chrono::milliseconds(std::stoi(parts[2])),
		                 parts[3].empty() ? 1 : -std::stoi(parts[3]), path);
	}
}

/// Appends a further line to a message.
void appendLine(LogLine& message, std::string_view line, std::uint64_t cut)
{
	RawLine text{std::move(message.text), message.cut + cut};
	text.append("\n", 1, kLongestText);
	text.append(line.data(), line.size(), kLongestText);
	message.text = std::move(text.text);
	message.cut = text.cut;
}

} // namespace

std::vector<LogFile> logFiles(const std::filesystem::path& path, std::vector<LogTrouble>& trouble)
{
	const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
	const std::string prefix = path.filename().string() + ".";
	Archives archives;
	std::error_code error;
	std::filesystem::directory_iterator entry(directory, error);
	for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
	{
		const std::string name = entry->path().filename().string();
		// The library makes no links; one that is there leads to something else.
		std::error_code ignored;
		if (name.starts_with(prefix) && !entry->is_symlink(ignored))
		{
			takeArchive(archives, entry->path(), name.substr(prefix.size()));
		}
	}
	if (error)
	{
		trouble.push_back({directory, error.value()});
	}
	std::vector<LogFile> files;
	for (const auto& [rotated, number, archive] : archives)
	{
		files.push_back({archive, rotated});
	}
	files.push_back({path, std::nullopt});
	return files;
}

std::vector<std::string_view> piecesOf(std::string_view line)
{
	std::vector<std::string_view> pieces;
	const std::size_t behindZeros = line.find_first_not_of('\0');
	if (behindZeros != 0 && behindZeros != std::string_view::npos)
	{
		pieces.push_back(line.substr(0, behindZeros));
		line.remove_prefix(behindZeros);
	}
	for (std::size_t head = headInside(line); head != std::string_view::npos; head = headInside(line))
	{
		pieces.push_back(line.substr(0, head));
		line.remove_prefix(head);
	}
	pieces.push_back(line);
	return pieces;
}

void MessageJoiner::add(const RawLine& line)
{
	const std::vector<std::string_view> pieces = piecesOf(line.text);
	for (std::size_t at = 0; at < pieces.size(); ++at)
	{
		addPiece(pieces[at], at + 1 == pieces.size() ? line.cut : 0);
	}
}

void MessageJoiner::addPiece(std::string_view piece, std::uint64_t cut)
{
	std::optional<LogLine> message = parseHead(piece, m_clock);
	if (!message && m_begun)
	{
		appendLine(*m_begun, piece, cut);
		return;
	}
	finish();
	if (!message)
	{
		message.emplace().text = piece;
	}
	message->cut = cut;
	m_begun = std::move(message);
}

void MessageJoiner::finish()
{
	if (m_begun)
	{
		m_whole.push_back(*std::exchange(m_begun, std::nullopt));
	}
}

bool MessageJoiner::take(LogLine& message)
{
	if (m_whole.empty())
	{
		return false;
	}
	message = std::move(m_whole.front());
	m_whole.pop_front();
	return true;
}

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
