/// The editor of the run-info record.
///
/// Input: one byte that says whether opening fails, the key, 0xff, the value, 0xff,
/// the bytes of the file. The editor's own fopen (which one depends on the library's
/// flags) ends in a text of this program, so that no run needs the kernel. The
/// rewritten bytes must be those of a reference model with whole texts instead of buffers; a failed open is reported
/// and changes only what it must.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "QuorinINI.h"
#include "VelarixLog.h"

#include "Target.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped call.
extern "C" std::FILE* __real_fopen64(const char* path, const char* how);
extern "C" std::FILE* __wrap_fopen64(const char* path, const char* how);
extern "C" std::FILE* __real_fopen(const char* path, const char* how);
extern "C" std::FILE* __wrap_fopen(const char* path, const char* how);
// NOLINTEND(bugprone-reserved-identifier)

namespace
{

/// The file that the editor sees.
struct File
{
	std::string path;
	std::string bytes;
	std::size_t at = 0;
	bool readFails = false;
	bool writeFails = false;
};

File g_file;
initialization* g_pRecord = nullptr;

ssize_t readFile(void* /*cookie*/, char* buffer, std::size_t size)
{
	const std::size_t count = std::min(size, g_file.bytes.size() - g_file.at);
	std::memcpy(buffer, g_file.bytes.data() + g_file.at, count);
	g_file.at += count;
	return static_cast<ssize_t>(count);
}

ssize_t writeFile(void* /*cookie*/, const char* buffer, std::size_t size)
{
	g_file.bytes.append(buffer, size);
	return static_cast<ssize_t>(size);
}

std::FILE* openFile(bool writing)
{
	if (writing ? g_file.writeFails : g_file.readFails)
	{
		errno = EACCES;
		return nullptr;
	}
	if (writing)
	{
		g_file.bytes.clear();
	}
	g_file.at = 0;
	cookie_io_functions_t calls{};
	calls.read = writing ? nullptr : readFile;
	calls.write = writing ? writeFile : nullptr;
	return ::fopencookie(nullptr, writing ? "w" : "r", calls);
}

constexpr std::size_t kLongestPiece = 199;
constexpr std::size_t kLongestKey = 99;

/// @return the length of the piece that begins at `begin`: a line with its line
///         feed, or the first 199 bytes of a longer one
std::size_t pieceAt(const std::string& file, std::size_t begin)
{
	const std::size_t feed = file.find('\n', begin);
	const std::size_t end = feed == std::string::npos ? file.size() : feed + 1;
	return std::min(end - begin, kLongestPiece);
}

/// @return the beginning of the text up to the first of the stops
std::string until(const std::string& text, const char* stops)
{
	return text.substr(0, text.find_first_of(stops));
}

/// @return `front` written over the beginning of `behind`
std::string over(const std::string& front, const std::string& behind)
{
	return front.size() < behind.size() ? front + behind.substr(front.size()) : front;
}

/// @param key "SECTION.NAME"
/// @return the file with every line of that key replaced; the file itself when the
///         key has a hundred characters or more
std::string iniAfterChange(const std::string& file, const std::string& key, const std::string& value)
{
	if (key.size() > kLongestKey)
	{
		return file;
	}
	const std::string section = until(key, ".");
	std::string name = key.substr(section.size());
	name.erase(std::remove(name.begin(), name.end(), '.'), name.end());

	std::string result;
	bool inside = false;
	for (std::size_t at = 0; at < file.size();)
	{
		const std::string piece = file.substr(at, pieceAt(file, at));
		at += piece.size();
		// Nothing behind a zero byte is compared.
		const std::string line = piece.substr(0, piece.find('\0'));
		std::string header;
		if (!line.empty() && line.front() == '[')
		{
			header = until(line.substr(1), "]");
			inside = header == section;
		}
		const bool match = inside && over(until(line, " ="), header) == name;
		result += match ? name + " = " + value + "\n" : piece;
	}
	return result;
}

} // namespace

extern "C" std::FILE* __wrap_fopen64(const char* path, const char* how)
{
	return g_file.path == path ? openFile(how[0] == 'w') : __real_fopen64(path, how);
}

extern "C" std::FILE* __wrap_fopen(const char* path, const char* how)
{
	return g_file.path == path ? openFile(how[0] == 'w') : __real_fopen(path, how);
}

void fuzz::prepare()
{
	fuzz::captureConsole();
	velarixLog = new VelarixLog;
	g_file.path = fuzz::memoryFile("[TRACE]\n");
	g_pRecord = new initialization;
	g_pRecord->loadFile(g_file.path);
}

void fuzz::run(Input& input)
{
	const unsigned failure = input.byte();
	const std::string key = input.field();
	const std::string value = input.field();
	const std::string before = input.rest();
	g_file.bytes = before;
	g_file.readFails = failure == 'r';
	g_file.writeFails = failure == 'w';
	fuzz::console().str("");

	const bool changed = g_pRecord->changeINI(key, value);

	const bool refused = key.size() > 99;
	const bool failed = !refused && (g_file.readFails || g_file.writeFails);
	fuzz::expectEqual("the editor's answer", changed, !refused && !failed);
	fuzz::expectEqual("what the editor tells", fuzz::console().str(), failed ? "ini File fopen fail.\n" : "");
	fuzz::expectEqual("the rewritten file", g_file.bytes, failed ? before : iniAfterChange(before, key, value));
}
