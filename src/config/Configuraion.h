/// The one read-only view of the settings file.
///
/// Created at the first getInstance (the start of the log, on the main thread,
/// before any worker exists) and kept for the whole run; the file is read that
/// once. There are no defaults: a key that is missing or cannot be converted
/// ends the daemon, since half a configuration must not guard a service.
#pragma once

#include <string>

#include <Poco/AutoPtr.h>
#include <Poco/Util/IniFileConfiguration.h>

class Configuraion
{
public:
	/// Loads `path`; ends the daemon (assertion "0", line 50, nothing logged: the
	/// log is configured from this very file) when it cannot be read or parsed.
	explicit Configuraion(const std::string& path);

	/// @return the one instance. The first call creates it from `path`, later
	///         ones ignore `path`. Not safe against a concurrent first call.
	static Configuraion* getInstance(const std::string& path);

	/// Parses `path` and keeps the result in place of the previous one.
	/// @return true; never returns when the file cannot be parsed
	bool loadFile(const std::string& path);

	/// The getters take "SECTION.KEY" (not case-sensitive). A missing key or a
	/// value that the library cannot convert is logged at error level and ends
	/// the daemon with the assertion "0".
	std::string getString(const std::string& key);
	int getInt(const std::string& key);
	bool getBool(const std::string& key); ///< Not called by the daemon.

	/// Set a value in memory only; the file is never written. Not called by the daemon.
	void setInt(const std::string& key, int value);
	void setString(const std::string& key, std::string& value);

	/// The single instance; null until the first getInstance.
	static Configuraion* pConf;

private:
	Poco::AutoPtr<Poco::Util::IniFileConfiguration> m_pFile;
};
