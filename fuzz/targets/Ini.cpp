/// The editor of the run-info record.
///
/// Input: one byte that says whether opening fails, the key, 0xff, the value, 0xff,
/// the bytes of the file. The editor's own fopen (which one depends on the library's
/// flags) ends in a text of this program, so that no run needs the kernel. The
/// rewritten bytes must be those of IniModel; a failed open is reported and changes
/// only what it must.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "QuorinINI.h"
#include "VelarixLog.h"

#include "Daemon.h"
#include "IniModel.h"
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
	fuzz::console().clear();

	const bool changed = g_pRecord->changeINI(key, value);

	const bool refused = key.size() > 99;
	const bool failed = !refused && (g_file.readFails || g_file.writeFails);
	fuzz::expectEqual("the editor's answer", changed, !refused && !failed);
	fuzz::expectEqual("what the editor tells", fuzz::console(), failed ? "ini File fopen fail.\n" : "");
	fuzz::expectEqual("the rewritten file", g_file.bytes, failed ? before : fuzz::iniAfterChange(before, key, value));
}
