/// From a log call to the bytes of the log file and of the console, and back.
///
/// Input: the level, the format, the source label, padding, a number (four bytes),
/// and three texts with 0xff between them. The message must be what the C library
/// makes of the format, the file line must have its layout, the console
/// what the level prescribes, and velarixctl's reader must find the same message.
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "VelarixLog.h"
#include "inspect/MessageJoiner.h"

#include "Daemon.h"
#include "Target.h"

namespace
{

using velarix::inspect::Instant;
using velarix::inspect::LogLine;

/// A call's arguments, enough for each of the formats.
struct Arguments
{
	std::string first;
	std::string second;
	std::string third;
	int number = 0;
};

/// The shapes of format that the daemon uses; the arguments of each are in the
/// order text, number, text, or as emit says.
constexpr std::array kFormats{"%s",
                              "%s[%s]",
                              "received message: %s",
                              "command(%s) : %s",
                              "szTmp[%s] szPreFix[%s]",
                              "%s(CODE: %d)[%s]",
                              "Server Error: %s[CODE: %d][%s]",
                              "run info file changed:%s(%s)[%s]",
                              "networkResult: %d",
                              " %dprocesses are running at the same time",
                              "m_myStatus[%d]:%s",
                              "100%% of %s"};
constexpr std::array kLabels{"CAgent", "CHeartReciver", "CHeartSender", "Utill", "ProcessChecker", "QuorinINI"};
constexpr std::array kLetters{'D', 'I', 'D', 'W', 'E', 'C'};
constexpr int kNumbered = 10; // "[%d]:%s" begins with the number

int g_file = -1;
off_t g_written = 0;
VelarixLog* g_pWithoutFile = nullptr;

/// Makes the call, and has the C library expand the format on its own.
/// The formats come out of a table, the compiler cannot see them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename... Values>
std::string callLevel(VelarixLog& log, unsigned level, const char* label, int line, const char* format,
                      Values... values)
{
	using Level = void (VelarixLog::*)(const char*, int, const char*, ...);
	constexpr std::array<Level, 6> levels{&VelarixLog::debug,   &VelarixLog::info,  &VelarixLog::notice,
	                                      &VelarixLog::warning, &VelarixLog::error, &VelarixLog::critical};
	(log.*levels.at(level))(label, line, format, values...);
	std::string text(static_cast<std::size_t>(std::snprintf(nullptr, 0, format, values...)) + 1, '\0');
	std::snprintf(text.data(), text.size(), format, values...);
	text.pop_back();
	return text;
}
#pragma GCC diagnostic pop

/// Hands over what the format asks for.
/// @return the message
std::string call(VelarixLog& log, unsigned level, const char* label, int line, unsigned which,
                 const Arguments& arguments)
{
	const char* const format = kFormats.at(which);
	const char* const first = arguments.first.c_str();
	const char* const second = arguments.second.c_str();
	const bool hasNumber = std::strstr(format, "%d") != nullptr;
	if (which == kNumbered)
	{
		return callLevel(log, level, label, line, format, arguments.number, first);
	}
	if (hasNumber && std::strstr(format, "%s") == nullptr)
	{
		return callLevel(log, level, label, line, format, arguments.number);
	}
	if (hasNumber)
	{
		return callLevel(log, level, label, line, format, first, arguments.number, second);
	}
	return callLevel(log, level, label, line, format, first, second, arguments.third.c_str());
}

std::string echo(unsigned level, const std::string& place, const std::string& text)
{
	switch (level)
	{
	case 0:
		return "**DEBUG**(" + place + ")" + text + "\n";
	case 3:
		return "**WARNING**" + text + "\n";
	case 4:
		return "**ERROR**(" + place + ")" + text + "\n";
	case 5:
		return "**CRITICAL**" + text + "\n";
	default:
		return "";
	}
}

/// @return what the call has added to the log file, without the library's remark
std::string addedBytes()
{
	static std::string buffer(1U << 20U, '\0');
	const ssize_t count = ::pread(g_file, buffer.data(), buffer.size(), g_written);
	fuzz::expect("the log file can be read", count >= 0);
	g_written += count;
	if (g_written > (4 << 20))
	{
		fuzz::expect("the log file can be cut", ::ftruncate(g_file, 0) == 0);
		g_written = 0;
	}
	return buffer.substr(0, static_cast<std::size_t>(count));
}

void checkTime(const LogLine& message, Instant before)
{
	fuzz::expect("the file line has a time", message.time.has_value());
	// The machine's clock may be set meanwhile, by a little.
	constexpr std::chrono::seconds setBy(10);
	fuzz::expect("the file line's time is that of the call",
	             *message.time > before - setBy && *message.time <= std::chrono::system_clock::now() + setBy);
}

void checkFileLine(const std::string& bytes, char letter, const std::string& place, const std::string& text,
                   Instant before)
{
	const std::string head = " [" + std::to_string(::getpid()) + ":0][" + place + "] <" + letter + "> ";
	constexpr std::size_t dateSize = 21;
	fuzz::expect("the file line begins with a date", bytes.size() > dateSize, bytes);
	fuzz::expectEqual("the file line behind its date", bytes.substr(dateSize), head + text + "\n");

	velarix::inspect::LogClock clock;
	const std::optional<LogLine> message = velarix::inspect::parseHead(bytes.substr(0, bytes.find('\n')), clock);
	fuzz::expect("velarixctl finds the head", message.has_value(), bytes);
	checkTime(*message, before);
	fuzz::expectEqual("velarixctl's place", message->place(), place);
	fuzz::expectEqual("velarixctl's first line", message->text, text.substr(0, text.find('\n')));
}

/// A text that grows beyond the first buffer without a long input.
std::string padded(std::string text, unsigned padding)
{
	if (padding >= 128)
	{
		text.insert(0, (padding - 128) * 16UL, 'p');
	}
	return text;
}

} // namespace

void fuzz::prepare()
{
	::setenv("TZ", "UTC", 1);
	fuzz::captureConsole();
	const std::string path = fuzz::memoryFile("");
	fuzz::useSettings("[LOG]\nPATH = " + path + "\nPURGEAGE = 7 days\n");
	velarixLog = new VelarixLog;
	velarixLog->init();
	fuzz::expectEqual("the log begins", fuzz::console(), "");
	g_pWithoutFile = new VelarixLog;
	g_file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
	velarixLog->info("HAmain", 1, "%s", "the remark of the library comes before this");
	addedBytes();
}

void fuzz::run(Input& input)
{
	const unsigned level = input.byte();
	const auto which = static_cast<unsigned>(input.byte() % kFormats.size());
	const char* const label = kLabels.at(input.byte() % kLabels.size());
	const unsigned padding = input.byte();
	Arguments arguments;
	for (int i = 0; i < 4; ++i)
	{
		arguments.number = static_cast<int>((static_cast<unsigned>(arguments.number) << 8U) | input.byte());
	}
	arguments.first = padded(input.field(), padding);
	arguments.second = input.field();
	arguments.third = input.rest();
	const bool withFile = level < 240;
	VelarixLog& log = withFile ? *velarixLog : *g_pWithoutFile;
	const std::string place = std::string(label) + ":249";
	fuzz::console().clear();
	const Instant before = std::chrono::system_clock::now();

	const std::string text = call(log, level % 6, label, 249, which, arguments);

	fuzz::expectEqual("the console's line", fuzz::console(), echo(level % 6, place, text));
	const std::string bytes = addedBytes();
	if (withFile)
	{
		checkFileLine(bytes, kLetters.at(level % 6), place, text, before);
	}
	else
	{
		fuzz::expectEqual("a log without its file writes none", bytes, "");
	}
}
