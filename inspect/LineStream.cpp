#include "inspect/LineStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include <Poco/Exception.h>
#include <Poco/FileStream.h>
#include <Poco/InflatingStream.h>

#include "inspect/InputFile.h"

namespace velarix::inspect
{

namespace
{

FileId idOf(const struct stat& found)
{
	return {found.st_dev, found.st_ino};
}

} // namespace

ByteSource::ByteSource(Descriptor file, const FileId& id, bool packed) : m_file(std::move(file)), m_id(id)
{
	if (packed)
	{
		m_packed = std::make_unique<Poco::FileInputStream>("/proc/self/fd/" + std::to_string(m_file.get()));
		m_plain = std::make_unique<Poco::InflatingInputStream>(*m_packed, Poco::InflatingStreamBuf::STREAM_GZIP);
	}
}

ssize_t ByteSource::read(char* buffer, std::size_t size)
{
	if (!m_plain)
	{
		return ::read(m_file.get(), buffer, size);
	}
	m_plain->read(buffer, static_cast<std::streamsize>(size));
	const std::streamsize count = m_plain->gcount();
	// The library's stream swallows its own exceptions; a packed file that ends
	// well is at its end, a damaged one is not.
	if (count == 0 && m_plain->bad())
	{
		errno = EIO;
		return -1;
	}
	return count;
}

void RawLine::append(const char* bytes, std::size_t size, std::size_t longest)
{
	const std::size_t kept = std::min(size, longest - std::min(longest, text.size()));
	text.append(bytes, kept);
	cut += size - kept;
}

bool lookAt(const std::filesystem::path& path, FileId& id, std::uint64_t& size)
{
	struct stat found
	{
	};
	if (::stat(path.c_str(), &found) != 0)
	{
		return false;
	}
	id = idOf(found);
	size = static_cast<std::uint64_t>(found.st_size);
	return true;
}

std::unique_ptr<ByteSource> openBytes(const std::filesystem::path& path)
{
	Descriptor file = openRegular(path);
	struct stat found
	{
	};
	if (!file || ::fstat(file.get(), &found) != 0)
	{
		return nullptr;
	}
	try
	{
		return std::make_unique<ByteSource>(std::move(file), idOf(found), path.extension() == ".gz");
	}
	catch (const Poco::Exception&)
	{
		errno = EIO;
		return nullptr;
	}
}

LineStream::LineStream(std::unique_ptr<ByteSource> bytes, std::size_t longest, std::size_t atOnce)
    : m_bytes(std::move(bytes)), m_longest(longest), m_buffer(atOnce, '\0')
{
}

bool LineStream::fill()
{
	const ssize_t count = m_bytes->read(m_buffer.data(), m_buffer.size());
	if (count <= 0)
	{
		m_error = count < 0 ? errno : 0;
		return false;
	}
	m_at = 0;
	m_end = static_cast<std::size_t>(count);
	m_position += m_end;
	return true;
}

bool LineStream::next(RawLine& line)
{
	while (m_at < m_end || fill())
	{
		const char* const from = m_buffer.data() + m_at;
		const std::size_t there = m_end - m_at;
		const auto* const end = static_cast<const char*>(std::memchr(from, '\n', there));
		const std::size_t size = end != nullptr ? static_cast<std::size_t>(end - from) : there;
		m_part.append(from, size, m_longest);
		m_at += size;
		if (end != nullptr)
		{
			++m_at;
			// The two swap their memory, so that no line needs new one.
			std::swap(line, m_part);
			m_part.text.clear();
			m_part.cut = 0;
			return true;
		}
	}
	return false;
}

bool LineStream::rest(RawLine& line)
{
	if (!hasRest())
	{
		return false;
	}
	line = std::move(m_part);
	m_part = {};
	return true;
}

} // namespace velarix::inspect
