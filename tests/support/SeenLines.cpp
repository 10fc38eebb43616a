#include "SeenLines.h"

#include <cstdlib>
#include <map>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Poco/Message.h>

#include "Events.h"

namespace
{

constexpr int kHighDescriptor = 800; ///< none that a test counts with
constexpr int kMostTexts = 3;        ///< of one place, by one process

int g_file = -1;
std::mutex g_mutex;
std::map<std::string, int> g_written; ///< by label, number and level

/// Keeps the text on one line: the catalogue writes these bytes in the same way.
std::string onOneLine(const std::string& text)
{
	std::string result;
	for (const char c : text)
	{
		result += c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\t' ? "\\t" : std::string(1, c);
	}
	return result;
}

/// One write, so that the lines of several processes do not mix.
void keep(const char* label, int number, const std::string& level, const std::string& text, const char* function = "")
{
	if (g_file == -1)
	{
		return;
	}
	const std::string place = std::string(label) + "\t" + std::to_string(number) + "\t" + level;
	{
		const std::lock_guard lock(g_mutex);
		if (++g_written[place] > kMostTexts)
		{
			return;
		}
	}
	const std::string line = place + "\t" + onOneLine(text) + "\t" + function + "\n";
	[[maybe_unused]] const ssize_t written = ::write(g_file, line.data(), line.size());
}

std::string levelOf(Poco::Message::Priority priority)
{
	static const char* const kNames[] = {"",       "fatal", "critical", "error", "warning",
	                                     "notice", "info",  "debug",    "trace"};
	return kNames[priority];
}

} // namespace

void seenlines::keepFor(const std::string& program)
{
	const char* const folder = std::getenv("VELARIX_SEEN_LINES");
	if (folder == nullptr)
	{
		return;
	}
	::mkdir(folder, 0755);
	const std::string path = std::string(folder) + "/" + program;
	const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
	g_file = ::fcntl(file, F_DUPFD_CLOEXEC, kHighDescriptor);
	::close(file);
}

// Poco::Message::Message(source, text, priority, file, line): the daemon's log makes one for
// each line that it hands to its logger, whatever the logger does with it.
#define MESSAGE(prefix)                                                                                                \
	prefix##_ZN4Poco7MessageC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_NS0_8PriorityEPKci

extern "C" void MESSAGE(__real_)(Poco::Message*, const std::string&, const std::string&, Poco::Message::Priority,
                                 const char*, int);
extern "C" void MESSAGE(__wrap_)(Poco::Message*, const std::string&, const std::string&, Poco::Message::Priority,
                                 const char*, int);
extern "C" void MESSAGE(__wrap_)(Poco::Message* pMessage, const std::string& source, const std::string& text,
                                 Poco::Message::Priority priority, const char* label, int number)
{
	keep(label, number, levelOf(priority), text);
	MESSAGE(__real_)(pMessage, source, text, priority, label, number);
}

// The end of every fatal condition.
extern "C" [[noreturn]] void __real___assert_fail(const char*, const char*, unsigned, const char*);
extern "C" [[noreturn]] void __wrap___assert_fail(const char*, const char*, unsigned, const char*);
extern "C" [[noreturn]] void __wrap___assert_fail(const char* expression, const char* label, unsigned number,
                                                  const char* function)
{
	keep(label, static_cast<int>(number), "fatal", expression, function);
	events::tell();
	__real___assert_fail(expression, label, number, function);
}
