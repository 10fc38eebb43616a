#include "LogFileChannel.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/DateTimeParser.h>
#include <Poco/File.h>

#include "velarix/velarix.h"

namespace
{

/// Its destructor would free the file a second time.
void keepForEver(LogFileChannel* channel)
{
	static auto* const kept = new std::vector<Poco::AutoPtr<LogFileChannel>>;
	kept->emplace_back(channel, true);
}

/// @return whether the library would throw at the file's first line. A terminal has none,
///         and would be waited for.
bool hasUnreadableDate(const std::string& path)
{
	constexpr std::string_view remark = "# Log file created/rotated ";
	std::error_code error;
	if (!std::filesystem::is_regular_file(path, error))
	{
		return false;
	}
	std::array<char, 128> beginning{};
	std::ifstream file(path, std::ios::binary);
	file.read(beginning.data(), beginning.size());
	std::string line(beginning.data(), static_cast<std::size_t>(file.gcount()));
	line.resize(std::min(line.find('\n'), line.size()));
	if (!line.starts_with(remark))
	{
		return false;
	}
	try
	{
		int zone = 0;
		[[maybe_unused]] const Poco::DateTime date =
		    Poco::DateTimeParser::parse(Poco::DateTimeFormat::RFC1036_FORMAT, line.substr(remark.size()), zone);
		return false;
	}
	catch (const Poco::Exception&)
	{
		return true;
	}
}

/// Under a name as the library gives it.
void archive(const std::string& path)
{
	Poco::File(path).renameTo(path + "." + Poco::DateTimeFormatter::format(Poco::DateTime(), "%Y%m%d%H%M%S%i"));
}

} // namespace

void LogFileChannel::open()
{
	if (!m_isBegun)
	{
		m_isBegun = true;
		const std::string path = getProperty("path");
		if (hasUnreadableDate(path))
		{
			archive(path);
		}
	}
	Poco::FileChannel::open();
}

void LogFileChannel::log(const Poco::Message& message)
{
	const std::lock_guard<std::mutex> lock(m_mutex);
	if (m_lost)
	{
		m_lost->rethrow();
	}
	// Nothing is lost by a file that cannot be opened: the next line tries again.
	open();
	try
	{
		Poco::FileChannel::log(message);
	}
	catch (const Poco::WriteFileException&)
	{
		// The file is still there; whether it takes the next line is its own affair.
		throw;
	}
	catch (const Poco::Exception& exc)
	{
		m_lost.reset(exc.clone());
		keepForEver(this);
		throw;
	}
}
