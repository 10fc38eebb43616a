/// The daemon's single log: one file, rotated daily, with a fixed line layout
/// that names the caller's source label and line; some levels also echo to the
/// console.
///
/// States: without a logger (before init, or after an init that failed) and
/// with one. Without a logger no file line is written and the console echo
/// stays, so the daemon goes on. All threads log through the same object; the
/// library's channels serialise the file lines, console lines may interleave.
#pragma once

#include <cstdarg>
#include <string>

namespace Poco
{
class Logger;
}

class VelarixLog
{
public:
	/// Builds the log from "LOG.PATH" and "LOG.PURGEAGE". When the library
	/// refuses (path that cannot be opened, bad purge age) it prints
	/// "initLog fail : " with the reason on standard output and returns with
	/// the logger unset. A missing key ends the daemon.
	void init();

	/// @param format    printf format
	/// @param arguments the started argument list; it is left as it was, so the
	///                  caller ends it
	/// @return the formatted text, of any length
	[[gnu::format(printf, 1, 0)]] static std::string varFormat(const char* format, va_list arguments);

	/// The level operations write one line each. `file` is the caller's source
	/// label and must outlive the call, `line` its fixed number. An exception
	/// of the library (a full disk) leaves debug, warning and critical, and is
	/// printed on standard output by info, notice and error.
	/// The member functions' hidden argument makes the format the 4th.

	/// Echo on standard output: "**DEBUG**(file:line)message".
	[[gnu::format(printf, 4, 5)]] void debug(const char* file, int line, const char* format, ...);
	/// No echo.
	[[gnu::format(printf, 4, 5)]] void info(const char* file, int line, const char* format, ...);
	/// No echo; the file line carries the debug letter.
	[[gnu::format(printf, 4, 5)]] void notice(const char* file, int line, const char* format, ...);
	/// Echo on standard output: "**WARNING**message".
	[[gnu::format(printf, 4, 5)]] void warning(const char* file, int line, const char* format, ...);
	/// Echo on standard error, also when logging threw: "**ERROR**(file:line)message".
	[[gnu::format(printf, 4, 5)]] void error(const char* file, int line, const char* format, ...);
	/// Echo on standard output: "**CRITICAL**message".
	[[gnu::format(printf, 4, 5)]] void critical(const char* file, int line, const char* format, ...);

private:
	Poco::Logger* m_pLogger = nullptr;
};

/// The one log. Set by the start-up code before anything is logged, never deleted.
extern VelarixLog* velarixLog;
