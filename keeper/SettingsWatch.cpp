#include "keeper/SettingsWatch.h"

#include <utility>

#include "keeper/PartnerLink.h"

namespace velarix::keeper
{

SettingsWatch::FileTimes SettingsWatch::times()
{
	std::error_code ignored;
	return {std::filesystem::last_write_time(kSettingsFile, ignored),
	        std::filesystem::last_write_time(kKeyFile, ignored)};
}

SettingsWatch::SettingsWatch(const Settings& read) : m_read(times())
{
	// It may have been written again since it was read.
	m_read.front() = read.written;
}

bool SettingsWatch::changed(Journal& journal)
{
	const FileTimes files = times();
	if (files == m_read)
	{
		return false;
	}
	std::string error;
	const ParsedSettings parsed = readSettings();
	if (parsed.error() == nullptr && parsed.settings.reach.line != 0 && readKey(kKeyFile, error))
	{
		return true;
	}
	journal.eventIf(files != std::exchange(m_refused, files), "failed",
	                "keeper.ini or its key was changed, and the former settings stay: " +
	                    (error.empty() ? "see keeper check" : error));
	return false;
}

} // namespace velarix::keeper
