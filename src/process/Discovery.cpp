#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <Poco/Exception.h>
#include <Poco/StringTokenizer.h>

#include "Configuraion.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"

namespace
{

constexpr char kSource[] = "Utill";
constexpr std::size_t kStatusLineSize = 128;

struct CloseDirectory
{
	void operator()(DIR* pDirectory) const { ::closedir(pDirectory); }
};

/// Closes a file at the end of its scope.
class Closer
{
public:
	explicit Closer(int file) : m_file(file) {}
	~Closer() { ::close(m_file); }
	Closer(const Closer&) = delete;
	Closer& operator=(const Closer&) = delete;

private:
	int m_file;
};

/// Process directories begin with a digit. The test is coarse: whatever sorts
/// below '9' passes, and so does a byte of 128 or more, negative as a signed char.
bool isProcessDirectory(const dirent& entry)
{
	return entry.d_type == DT_DIR && entry.d_name[0] != '.' && static_cast<signed char>(entry.d_name[0]) <= '9';
}

/// Reads a line of at most 127 bytes, its line feed included, as far as a NUL. With a
/// stream of the C library the whole check would take nearly a tenth longer.
/// @return false when there is nothing to read or the reading fails
bool readFirstLine(int file, std::string& line)
{
	std::array<char, kStatusLineSize> buffer{};
	std::size_t size = 0;
	while (size < buffer.size() - 1 && std::memchr(buffer.data(), '\n', size) == nullptr)
	{
		const ssize_t got = ::read(file, buffer.data() + size, buffer.size() - 1 - size);
		if (got == -1)
		{
			return false;
		}
		if (got == 0)
		{
			break;
		}
		size += static_cast<std::size_t>(got);
	}
	const std::string_view text(buffer.data());
	const std::size_t end = text.find('\n');
	line = text.substr(0, end == std::string_view::npos ? end : end + 1);
	return size > 0;
}

/// Reads the first line of a status file, which carries the short command name.
/// @return false when the file gives none, as when the process has just gone
bool readStatusLine(const char* directory, std::string& line)
{
	std::array<char, kStatusLineSize + sizeof(dirent::d_name)> path{};
	std::snprintf(path.data(), path.size(), "/proc/%s/status", directory);
	const int file = ::open(path.data(), O_RDONLY | O_CLOEXEC);
	if (file == -1)
	{
		velarixLog->error(kSource, 216, "Can't read file [%s]", path.data());
		return false;
	}
	const Closer closer(file);
	return readFirstLine(file, line);
}

/// @return how many of the configured programs' names the line contains
std::size_t countNames(std::string& line, std::vector<std::string>& paths)
{
	std::size_t count = 0;
	for (std::string& path : paths)
	{
		std::string name = getProcessName(path);
		if (stringFinder(line, name))
		{
			++count;
		}
	}
	return count;
}

} // namespace

std::vector<std::string> Utill::getProcessList()
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	const int number = pConf->getInt("PROCESS_CHECK.PROCESS_NUM");
	std::vector<std::string> paths;
	for (int i = 1; i <= number; ++i)
	{
		paths.push_back(pConf->getString("PROCESS_CHECK.PROCESS_PATH" + intToString(i)));
	}
	return paths;
}

std::string getProcessName(std::string& path)
{
	// What stands before the last "/" cannot change the last token, and to split it too,
	// for each program and each process, would cost some five percent of the check. Behind a
	// "/" at the very end there is no text: such a path goes to the tokenizer whole.
	const bool named = !path.empty() && path.back() != '/';
	try
	{
		const Poco::StringTokenizer tokens(named ? path.substr(path.rfind('/') + 1) : path, "/");
		return tokens[tokens.count() - 1];
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 178, "%s", exc.displayText().c_str());
		return "";
	}
}

// "Running" means at least N matches in total, not each program at least once:
// two instances of one program and none of another still count as running.
// Operators with several workers per program depend on it. Pinned by
// ProcDirectory.TheNumberOfMatchesDecides.
bool Utill::isProcessRunning(OBSERVATION_MODE /*mode*/)
{
	std::vector<std::string> paths = getProcessList();
	const std::unique_ptr<DIR, CloseDirectory> directory(::opendir("/proc"));
	if (directory == nullptr)
	{
		velarixLog->error(kSource, 204, "%s", "NO_DIR(/proc)");
		return false;
	}
	std::size_t count = 0;
	std::string line;
	while (const dirent* entry = ::readdir(directory.get()))
	{
		if (isProcessDirectory(*entry) && readStatusLine(entry->d_name, line))
		{
			count += countNames(line, paths);
		}
	}
	if (count > paths.size())
	{
		velarixLog->debug(kSource, 241, " %dprocesses are running at the same time", static_cast<int>(count));
	}
	return count >= paths.size();
}

// A placeholder: the run-script launcher yields no handles to check. It fails
// rather than answer, so that nobody builds on an invented answer.
bool Utill::isProcessRunning(std::vector<Poco::ProcessHandle*>** /*ppHandles*/)
{
	velarix::fatal("1 == 0", kSource, 254, "static bool Utill::isProcessRunning(std::vector<Poco::ProcessHandle*>**)");
}

OBSERVATION_MODE Utill::getObservationMode()
{
	const int mode = Configuraion::getInstance(velarix::kSettingsPath)->getInt("PROCESS_CHECK.OBSERVATION_MODE");
	return mode == 1 ? OBSERVATION_MODE_1 : OBSERVATION_MODE_2;
}
