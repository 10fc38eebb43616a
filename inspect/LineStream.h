/// The lines of one file, in a memory that does not grow with them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <memory>
#include <string>

#include <sys/types.h>

#include "inspect/Descriptor.h"

namespace velarix::inspect
{

struct RawLine
{
	/// Without the line feed.
	std::string text;
	/// Bytes at its end that were left out.
	std::uint64_t cut = 0;

	/// Appends what fits into `longest` bytes and counts the rest.
	void append(const char* bytes, std::size_t size, std::size_t longest);
};

/// Which file it is, whatever its name becomes.
struct FileId
{
	dev_t device = 0;
	ino_t inode = 0;

	bool operator==(const FileId&) const = default;
};

/// @return the file's id and size; false when there is no such file (errno)
bool lookAt(const std::filesystem::path& path, FileId& id, std::uint64_t& size);

/// The bytes of an open file, whatever has its name meanwhile.
class ByteSource
{
public:
	/// @param packed unpacks it while it is read
	ByteSource(Descriptor file, const FileId& id, bool packed);

	/// @return how many bytes came, 0 at the end, -1 with errno
	ssize_t read(char* buffer, std::size_t size);
	FileId id() const { return m_id; }

private:
	Descriptor m_file;
	FileId m_id;
	std::unique_ptr<std::istream> m_packed;
	std::unique_ptr<std::istream> m_plain;
};

/// Opens a file; one whose name ends in ".gz" is unpacked while it is read.
/// @return null with errno
std::unique_ptr<ByteSource> openBytes(const std::filesystem::path& path);

class LineStream
{
public:
	/// @param longest bytes of a line that are kept
	/// @param atOnce bytes that are read at a time
	LineStream(std::unique_ptr<ByteSource> bytes, std::size_t longest, std::size_t atOnce = 256UL * 1024UL);

	/// The next line that has its end. At the end of the file ask again later.
	/// @return false at the end; error() tells whether reading failed
	bool next(RawLine& line);

	/// The line at the end of the file that has no end yet.
	/// @return false when there is none
	bool rest(RawLine& line);
	bool hasRest() const { return !m_part.text.empty() || m_part.cut != 0; }

	/// errno of a read that failed, else 0
	int error() const { return m_error; }
	FileId id() const { return m_bytes->id(); }
	/// Bytes read so far.
	std::uint64_t position() const { return m_position; }

private:
	std::unique_ptr<ByteSource> m_bytes;
	std::size_t m_longest;
	std::string m_buffer;
	std::size_t m_at = 0;
	std::size_t m_end = 0;
	RawLine m_part;
	std::uint64_t m_position = 0;
	int m_error = 0;

	bool fill();
};

} // namespace velarix::inspect
