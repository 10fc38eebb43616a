/// The agent's log as one stream: the archives of the rotation and the file that
/// is being written, oldest message first.
///
/// Memory does not grow with the log. A message longer than kLongestText is cut
/// and says by how much. Nothing here writes, locks or needs more than the right
/// to read.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/LineStream.h"
#include "inspect/LogLine.h"

namespace velarix::inspect
{

/// Bytes of one message that are kept.
inline constexpr std::size_t kLongestText = 64UL * 1024UL;
/// Bytes in which a message that is read backwards must begin: no agent writes such
/// ones, and a file of garbage would hold up every look at the node.
inline constexpr std::uint64_t kLongestLine = 16UL * 1024UL * 1024UL;

/// A line, cut where a head begins in its middle (what an agent wrote behind the
/// unfinished last line of the one before) and behind the zero bytes that a
/// power failure leaves. One piece for every line that is in order.
std::vector<std::string_view> piecesOf(std::string_view line);

/// Puts lines together to messages.
class MessageJoiner
{
public:
	explicit MessageJoiner(LogClock clock = {}) : m_clock(std::move(clock)) {}

	void add(const RawLine& line);
	/// The message begun last is whole: the file ends here, or nothing more of it
	/// is awaited.
	void finish();
	/// @return false when there is no whole message
	bool take(LogLine& message);

private:
	LogClock m_clock;
	std::optional<LogLine> m_begun;
	std::deque<LogLine> m_whole;

	void addPiece(std::string_view piece, std::uint64_t cut);
};

/// One file of the log.
struct LogFile
{
	std::filesystem::path path;
	/// When it was rotated away, from its name (stamped in UTC by the library);
	/// every message in it is older. Empty for the file that is being written.
	std::optional<Instant> rotated;
};

/// A file or directory that could not be read, for the diagnostics.
struct LogTrouble
{
	std::filesystem::path path;
	/// errno
	int error = 0;
};

/// The files of the log `path`, oldest first, the file itself last. Other files
/// beside it are not taken for archives.
/// @param trouble gets the directory when it cannot be listed
std::vector<LogFile> logFiles(const std::filesystem::path& path, std::vector<LogTrouble>& trouble);

/// Reads a log from its oldest message on and, when asked again, what was
/// written meanwhile: across a rotation (also several at a time) and when the
/// file was cut down or replaced.
class LogReader
{
public:
	/// @param since archives that were rotated away before it are not opened
	explicit LogReader(std::filesystem::path path, std::optional<Instant> since = std::nullopt);

	/// The next message. A message whose last line is still being written is
	/// held back until it is whole.
	/// @return false at the end of what is there; ask again later to go on
	bool next(LogLine& line);

	/// The rest of a line that never got its end. Call it when no more is awaited.
	/// @return false when there is none
	bool last(LogLine& line);

	/// What could not be read so far; each file is reported once.
	const std::vector<LogTrouble>& trouble() const { return m_trouble; }

private:
	const std::filesystem::path m_path;
	std::deque<LogFile> m_queue;
	/// The archives that have been read, are in the queue, or are older than that.
	std::set<std::filesystem::path> m_known;
	/// The file that is being read; the one that is being written stays open until
	/// another one has its name.
	std::unique_ptr<LineStream> m_stream;
	std::filesystem::path m_opened;
	bool m_writtenTo = false;
	bool m_leaving = false;
	RawLine m_raw;
	MessageJoiner m_joiner;
	std::vector<LogTrouble> m_trouble;

	void list(const std::function<bool(const LogFile&)>& wanted);
	void tell(const std::filesystem::path& path, int error);
	bool openNext();
	bool goOn();
	bool followFile();
	void finish();
	void leave();
	void followRotation();
};

/// Reads a log backwards, newest message first, until `take` returns false. Only
/// the part that is asked for is read; archives follow the file. kLongestLine bytes
/// without a head end the reading of its file with EFBIG.
/// @param near    about when the newest message was written (now, mostly); tells
///                apart the two hours when the clocks are set back
/// @param trouble gets what could not be read
void readBackwards(const std::filesystem::path& path, Instant near, const std::function<bool(const LogLine&)>& take,
                   std::vector<LogTrouble>& trouble);

} // namespace velarix::inspect
