#include "VelarixLog.h"

#include <cstdio>
#include <iostream>
#include <memory>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>

#include "Configuraion.h"
#include "LogFileChannel.h"
#include "velarix/paths.h"
#include "velarix/velarix.h"

VelarixLog* velarixLog = nullptr;

namespace
{

constexpr std::size_t kFirstBufferSize = 1024;

/// Writes one file line, or nothing while there is no logger.
void writeLine(Poco::Logger* pLogger, const std::string& text, Poco::Message::Priority priority, const char* file,
               int line)
{
	if (pLogger != nullptr)
	{
		pLogger->log(Poco::Message(pLogger->name(), text, priority, file, line));
	}
}

/// As writeLine, with an exception of the library turned into a console line.
void writeLineGuarded(Poco::Logger* pLogger, const std::string& text, Poco::Message::Priority priority,
                      const char* file, int line)
{
	try
	{
		writeLine(pLogger, text, priority, file, line);
	}
	catch (const Poco::Exception& exc)
	{
		std::cout << exc.displayText() << std::endl;
	}
}

} // namespace

void VelarixLog::init()
{
	Configuraion* pConf = Configuraion::getInstance(velarix::kSettingsPath);
	const std::string path = pConf->getString("LOG.PATH");
	const std::string purgeAge = pConf->getString("LOG.PURGEAGE");
	try
	{
		Poco::AutoPtr<Poco::PatternFormatter> pFormatter(
		    new Poco::PatternFormatter("%Y-%m-%d %H:%M:%S.%c [%P:%I][%U:%u] <%q> %t"));
		pFormatter->setProperty("times", "local");
		Poco::AutoPtr<Poco::FormattingChannel> pFormatting(new Poco::FormattingChannel(pFormatter));
		Poco::AutoPtr<LogFileChannel> pFile(new LogFileChannel);
		pFile->setProperty("path", path);
		pFile->setProperty("rotation", "daily");
		pFile->setProperty("purgeAge", purgeAge);
		pFile->setProperty("archive", "timestamp");
		pFormatting->setChannel(pFile);
		pFormatting->open();
		m_pLogger = &Poco::Logger::create("FileLogger", pFormatting, Poco::Message::PRIO_DEBUG);
	}
	catch (const Poco::Exception& exc)
	{
		std::cout << "initLog fail : " << exc.displayText() << std::endl;
	}
}

std::string VelarixLog::varFormat(const char* format, va_list arguments)
{
	for (std::size_t size = kFirstBufferSize;;)
	{
		const std::unique_ptr<char[]> buffer(new char[size]);
		va_list attempt;
		va_copy(attempt, arguments);
		// The analyser does not see that va_copy started the list.
		const int n =
		    std::vsnprintf(buffer.get(), size, format, attempt); // NOLINT(clang-analyzer-valist.Uninitialized)
		va_end(attempt);
		if (n >= 0 && static_cast<std::size_t>(n) < size)
		{
			return std::string(buffer.get());
		}
		size = n >= 0 ? static_cast<std::size_t>(n) + 1 : size * 2;
	}
}

void VelarixLog::debug(const char* file, int line, const char* format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = varFormat(format, arguments);
	va_end(arguments);
	writeLine(m_pLogger, text, Poco::Message::PRIO_DEBUG, file, line);
	std::cout << "**DEBUG**(" << file << ":" << line << ")" << text << std::endl;
}

void VelarixLog::info(const char* file, int line, const char* format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = varFormat(format, arguments);
	va_end(arguments);
	writeLineGuarded(m_pLogger, text, Poco::Message::PRIO_INFORMATION, file, line);
}

// Goes out with the debug letter: operators filter the checker's line, written
// every cycle, together with the debug lines. Pinned by VelarixLogLevels.
void VelarixLog::notice(const char* file, int line, const char* format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = varFormat(format, arguments);
	va_end(arguments);
	writeLineGuarded(m_pLogger, text, Poco::Message::PRIO_DEBUG, file, line);
}

void VelarixLog::warning(const char* file, int line, const char* format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = varFormat(format, arguments);
	va_end(arguments);
	writeLine(m_pLogger, text, Poco::Message::PRIO_WARNING, file, line);
	std::cout << "**WARNING**" << text << std::endl;
}

void VelarixLog::error(const char* file, int line, const char* format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = varFormat(format, arguments);
	va_end(arguments);
	writeLineGuarded(m_pLogger, text, Poco::Message::PRIO_ERROR, file, line);
	std::cerr << "**ERROR**(" << file << ":" << line << ")" << text << std::endl;
}

void VelarixLog::critical(const char* file, int line, const char* format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	const std::string text = varFormat(format, arguments);
	va_end(arguments);
	writeLine(m_pLogger, text, Poco::Message::PRIO_CRITICAL, file, line);
	std::cout << "**CRITICAL**" << text << std::endl;
}
