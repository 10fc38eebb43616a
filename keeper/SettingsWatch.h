/// Whether keeper.ini, or the key that the two nodes share, has changed since it was read.
#pragma once

#include <array>
#include <filesystem>

#include "keeper/Runtime.h"
#include "keeper/Settings.h"

namespace velarix::keeper
{

class SettingsWatch
{
public:
	/// @param read the settings in use. Their key has to be read after this
	explicit SettingsWatch(const Settings& read);

	/// @param journal where changed settings that cannot be used are reported, once
	/// @return whether there are other settings, which can be used
	bool changed(Journal& journal);

private:
	/// Of the settings and of the key; the smallest time for a missing one.
	using FileTimes = std::array<std::filesystem::file_time_type, 2>;
	static FileTimes times();

	FileTimes m_read;
	FileTimes m_refused{}; ///< could not be used, as reported
};

} // namespace velarix::keeper
