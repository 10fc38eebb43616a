#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "inspect/InputFile.h"
#include "inspect/LineStream.h"
#include "inspect/LogReader.h"

namespace velarix::inspect
{

namespace
{

constexpr std::size_t kBlock = 64UL * 1024UL;

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

/// @return where the first line with a head begins, behind the text's first line feed
std::optional<std::size_t> firstHead(std::string_view text)
{
	for (std::size_t at = text.find('\n'); at < text.size(); at = text.find('\n', at))
	{
		++at;
		if (parseHead(text.substr(at, text.find('\n', at) - at)))
		{
			return at;
		}
	}
	return std::nullopt;
}

/// Messages from the newest to the oldest: each piece of a file that begins with a head is
/// read forwards.
class BackwardMessages
{
public:
	BackwardMessages(Instant near, const std::function<bool(const LogLine&)>& take) : m_near(near), m_take(take) {}

	/// @param unfinished whether a last line without an end counts
	/// @return false when no more is wanted
	bool readFile(const Descriptor& file, bool unfinished, int& error)
	{
		std::string text;
		bool ended = unfinished;
		for (off_t from = ::lseek(file.get(), 0, SEEK_END); from > 0;)
		{
			// Twice as much each time while no message begins in it.
			const off_t size = std::min(from, static_cast<off_t>(std::max(kBlock, text.size())));
			from -= size;
			error = text.size() > kLongestLine ? EFBIG : putInFront(text, file, from, static_cast<std::size_t>(size));
			if (error != 0)
			{
				return true;
			}
			if (!ended)
			{
				const std::size_t end = text.rfind('\n');
				ended = end != std::string::npos;
				text.resize(ended ? end + 1 : text.size());
			}
			// Lines before the first head of the file are one message.
			const std::optional<std::size_t> begin = from == 0 ? 0 : firstHead(text);
			if (ended && begin)
			{
				if (!give(std::string_view(text).substr(*begin)))
				{
					return false;
				}
				text.resize(*begin);
			}
		}
		return true;
	}

private:
	Instant m_near;
	const std::function<bool(const LogLine&)>& m_take;

	/// @return errno
	static int putInFront(std::string& text, const Descriptor& file, off_t from, std::size_t size)
	{
		std::string block(size, '\0');
		const ssize_t count = ::pread(file.get(), block.data(), size, from);
		text.insert(0, block);
		return count == static_cast<ssize_t>(size) ? 0 : count < 0 ? errno : EIO;
	}

	/// @return false when no more is wanted
	bool give(std::string_view text)
	{
		MessageJoiner joiner{LogClock(m_near)};
		while (!text.empty())
		{
			const std::size_t end = std::min(text.find('\n'), text.size());
			RawLine line;
			line.append(text.data(), end, kLongestText);
			joiner.add(line);
			text.remove_prefix(std::min(end + 1, text.size()));
		}
		joiner.finish();
		std::vector<LogLine> messages;
		for (LogLine message; joiner.take(message);)
		{
			messages.push_back(std::move(message));
		}
		m_near = messages.empty() ? m_near : messages.front().time.value_or(m_near);
		return std::all_of(messages.rbegin(), messages.rend(), std::cref(m_take));
	}
};

} // namespace

void readBackwards(const std::filesystem::path& path, Instant near, const std::function<bool(const LogLine&)>& take,
                   std::vector<LogTrouble>& trouble)
{
	BackwardMessages messages(near, take);
	// Opened before the archives are listed: a rotation between the two makes this
	// file an archive, and nothing is missed.
	const Descriptor written = openFile(path);
	int error = written ? 0 : errno;
	FileId writtenId;
	std::uint64_t ignored = 0;
	lookAt("/proc/self/fd/" + std::to_string(written.get()), writtenId, ignored);
	bool more = !written || messages.readFile(written, false, error);
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
		FileId id;
		const bool isWritten = written && lookAt(archive->path, id, ignored) && id == writtenId;
		const Descriptor file = openFile(archive->path);
		if (!file)
		{
			trouble.push_back({archive->path, errno});
		}
		else if (!isWritten)
		{
			more = messages.readFile(file, true, error);
			if (error != 0)
			{
				trouble.push_back({archive->path, error});
			}
		}
	}
}

} // namespace velarix::inspect
