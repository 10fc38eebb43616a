#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "inspect/LineStream.h"
#include "inspect/LogReader.h"
#include "inspect/MessageJoiner.h"

namespace velarix::inspect
{

namespace
{

constexpr std::size_t kBlock = 64UL * 1024UL;

/// @return which file it is and how long; zeros when that is not known
struct stat statusOf(const Descriptor& file)
{
	struct stat found
	{
	};
	::fstat(file.get(), &found);
	return found;
}

FileId idOf(const Descriptor& file)
{
	const struct stat found = statusOf(file);
	return {found.st_dev, found.st_ino};
}

/// Unpacks a file into one without a name, since packed bytes cannot be read
/// from their end.
Descriptor unpack(const std::filesystem::path& path)
{
	const std::unique_ptr<ByteSource> bytes = openBytes(path);
	std::FILE* const plain = bytes != nullptr ? std::tmpfile() : nullptr;
	if (plain == nullptr)
	{
		return Descriptor(-1);
	}
	Descriptor file(::dup(::fileno(plain)));
	std::string buffer(kBlock, '\0');
	ssize_t count = 0;
	while ((count = bytes->read(buffer.data(), buffer.size())) > 0)
	{
		if (std::fwrite(buffer.data(), 1, static_cast<std::size_t>(count), plain) != static_cast<std::size_t>(count))
		{
			count = -1;
			break;
		}
	}
	const int error = errno;
	const bool written = std::fclose(plain) == 0 && count == 0;
	errno = error;
	return written ? std::move(file) : Descriptor(-1);
}

Descriptor openFile(const std::filesystem::path& path)
{
	return path.extension() == ".gz" ? unpack(path) : openRegular(path);
}

/// The lines of a file from the last to the first.
class BackwardLines
{
public:
	/// @param unfinished whether a last line without an end counts
	BackwardLines(const Descriptor& file, bool unfinished)
	    : m_file(file.get()), m_offset(statusOf(file).st_size), m_first(!unfinished)
	{
	}

	bool next(RawLine& line)
	{
		for (;;)
		{
			const std::size_t end = lineFeed();
			if (end == std::string::npos && m_offset > 0)
			{
				fill();
				continue;
			}
			if (end == std::string::npos && m_done)
			{
				return false;
			}
			line.text = end == std::string::npos ? m_text : m_text.substr(end + 1);
			line.cut = std::exchange(m_cut, 0);
			cutToLongest(line);
			m_done = end == std::string::npos;
			m_text.resize(m_done ? 0 : end);
			m_unsearched = m_text.size();
			// What is behind the last line feed is no line yet, or nothing.
			const bool noLine = std::exchange(m_behindEnd, false) && (m_first || line.text.empty());
			if (!noLine)
			{
				return true;
			}
		}
	}

	int error() const { return m_error; }

private:
	int m_file;
	off_t m_offset;
	bool m_first;
	bool m_behindEnd = true;
	bool m_done = false;
	std::string m_text;
	/// The front of the text, in which no line feed was looked for yet.
	std::size_t m_unsearched = 0;
	std::uint64_t m_cut = 0;
	int m_error = 0;

	std::size_t lineFeed()
	{
		const void* const found = ::memrchr(m_text.data(), '\n', std::exchange(m_unsearched, 0));
		return found == nullptr ? std::string::npos
		                        : static_cast<std::size_t>(static_cast<const char*>(found) - m_text.data());
	}

	/// A line is kept as far as it is read forwards.
	static void cutToLongest(RawLine& line)
	{
		if (line.text.size() > kLongestText)
		{
			line.cut += line.text.size() - kLongestText;
			line.text.resize(kLongestText);
		}
	}

	/// Puts the block before in front. Of a line longer than is kept only its
	/// beginning counts.
	void fill()
	{
		if (m_cut > kLongestLine)
		{
			m_error = EFBIG;
			m_offset = 0;
			return;
		}
		const auto size = static_cast<std::size_t>(std::min<off_t>(m_offset, kBlock));
		m_offset -= static_cast<off_t>(size);
		std::string block(size, '\0');
		const ssize_t count = ::pread(m_file, block.data(), size, m_offset);
		if (count != static_cast<ssize_t>(size))
		{
			m_error = count < 0 ? errno : EIO;
			m_offset = 0;
			return;
		}
		if (m_text.size() > kLongestText)
		{
			m_cut += m_text.size() - kLongestText;
			m_text.resize(kLongestText);
		}
		m_text.insert(0, block);
		m_unsearched = size;
	}
};

/// Messages from lines that come backwards: further lines before their head.
class BackwardMessages
{
public:
	BackwardMessages(Instant near, const std::function<bool(const LogLine&)>& take) : m_clock(near), m_take(take) {}

	/// @return false when no more is wanted
	bool add(const RawLine& line)
	{
		const std::vector<std::string_view> pieces = piecesOf(line.text);
		for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece)
		{
			if (!addPiece(*piece, piece == pieces.rbegin() ? line.cut : 0))
			{
				return false;
			}
		}
		return true;
	}

	/// The beginning of the file: lines before its first head are one message.
	bool finish()
	{
		if (m_further.empty())
		{
			return true;
		}
		LogLine message;
		std::swap(message.cut, m_cut);
		message.text = std::move(m_further.back());
		m_further.pop_back();
		return give(std::move(message));
	}

private:
	LogClock m_clock;
	const std::function<bool(const LogLine&)>& m_take;
	/// The lines behind the head to come, the last one first.
	std::deque<std::string> m_further;
	std::size_t m_size = 0;
	std::uint64_t m_cut = 0;

	bool addPiece(std::string_view piece, std::uint64_t cut)
	{
		if (std::optional<LogLine> message = parseHead(piece, m_clock))
		{
			message->cut = cut + std::exchange(m_cut, 0);
			return give(std::move(*message));
		}
		m_further.emplace_back(piece);
		m_size += piece.size() + 1;
		m_cut += cut;
		// The beginning of a message is kept, so its end goes.
		while (m_size > 2 * kLongestText)
		{
			m_size -= m_further.front().size() + 1;
			m_cut += m_further.front().size() + 1;
			m_further.pop_front();
		}
		return true;
	}

	bool give(LogLine message)
	{
		RawLine text{std::move(message.text), message.cut};
		for (auto line = m_further.rbegin(); line != m_further.rend(); ++line)
		{
			text.append("\n", 1, kLongestText);
			text.append(line->data(), line->size(), kLongestText);
		}
		m_further.clear();
		m_size = 0;
		message.text = std::move(text.text);
		message.cut = text.cut;
		return m_take(message);
	}
};

/// @return false when no more is wanted
bool readFile(const Descriptor& file, bool beingWritten, BackwardMessages& messages, int& error)
{
	BackwardLines lines(file, !beingWritten);
	RawLine line;
	bool more = true;
	while (more && lines.next(line))
	{
		more = messages.add(line);
	}
	error = lines.error();
	return more && messages.finish();
}

} // namespace

void readBackwards(const std::filesystem::path& path, Instant near, const std::function<bool(const LogLine&)>& take,
                   std::vector<LogTrouble>& trouble)
{
	BackwardMessages messages(near, take);
	// Opened before the archives are listed: a rotation between the two makes this
	// file an archive, and nothing is missed.
	const Descriptor written = openFile(path);
	int error = written ? 0 : errno;
	bool more = !written || readFile(written, true, messages, error);
	if (error != 0)
	{
		trouble.push_back({path, error});
	}
	const std::vector<LogFile> files = more ? logFiles(path, trouble) : std::vector<LogFile>();
	for (auto archive = files.rbegin(); more && archive != files.rend(); ++archive)
	{
		if (!archive->rotated)
		{
			continue;
		}
		const Descriptor file = openFile(archive->path);
		if (!file)
		{
			trouble.push_back({archive->path, errno});
		}
		else if (!written || idOf(file) != idOf(written))
		{
			more = readFile(file, false, messages, error);
			if (error != 0)
			{
				trouble.push_back({archive->path, error});
			}
		}
	}
}

} // namespace velarix::inspect
