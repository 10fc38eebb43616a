#include "Daemon.h"

#include <cstring>
#include <sstream>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include "Configuraion.h"
#include "VelarixLog.h"

namespace
{

std::function<void(const std::string&)> g_onLogLine;

class RecordingChannel : public Poco::Channel
{
public:
	void log(const Poco::Message& message) override
	{
		std::ostringstream event;
		static constexpr char kLetters[] = "?FCEWNIDT"; // by priority
		event << "log " << kLetters[message.getPriority()] << ' ' << message.getSourceFile() << ':'
		      << message.getSourceLine() << ' ' << message.getText();
		events::add(event.str());
		if (g_onLogLine)
		{
			g_onLogLine(event.str());
		}
	}
};

void forgetLog()
{
	Poco::Logger::destroy("FileLogger");
	delete velarixLog;
	velarixLog = nullptr;
	g_onLogLine = nullptr;
}

std::string escaped(const std::string& text)
{
	std::string result;
	for (const char c : text)
	{
		if (std::strchr("^$\\.[]|()?*+{}", c) != nullptr)
		{
			result += '\\';
		}
		result += c;
	}
	return result;
}

} // namespace

const char kRunInfo[] = "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 20240101000000\n"
                        "SLAVE_LAST_RUN_TIME = 20240102000000\n";

Settings::Settings()
{
	m_sections["AGENT"] = {{"MODE", "2"},
	                       {"THIS_SERVER_IP", "127.0.0.1"},
	                       {"HEART_BEAT_RECEIVE_PORT", "7001"},
	                       {"PARTNER_IP", "10.0.0.2"},
	                       {"PARTNER_HEART_BEAT_RECEIVE_PORT", "7002"},
	                       {"HEART_BEAT_INTERVAL", "3"},
	                       {"MAX_HEART_BEAT_RECEIING_TIME", "1"},
	                       {"IGNORE_TIME", "10"},
	                       {"GATEWAY_IP", "10.0.0.254"},
	                       {"VIRTUAL_IP", "10.0.1.100"},
	                       {"VIRTUAL_IP_START_COMMAND", "vip-start"},
	                       {"VIRTUAL_IP_STOP_COMMAND", "vip-stop"},
	                       {"WAITING_TIME_BEFORE_PROCESS_RUN", "0"},
	                       {"RELATED_PROCESS", ""}};
	m_sections["PROCESS_CHECK"] = {{"PROCESS_NUM", "1"},
	                               {"PROCESS_PATH1", "/opt/app/bin/noSuchServer"},
	                               {"PROCESS_CHECK_CYCLE", "5"},
	                               {"OBSERVATION_MODE", "1"}};
	m_sections["ADVENCE"] = {{"PROCESS_KILL_COMMAND", "kill-by-name"}, {"KEYWORD", "defunct"}};
	m_sections["LOG"] = {{"PATH", "/usr/velarix/log/velarix.log"}, {"PURGEAGE", "30 days"}};
}

Settings& Settings::set(const std::string& key, const std::string& value)
{
	const std::size_t dot = key.find('.');
	m_sections[key.substr(0, dot)][key.substr(dot + 1)] = value;
	return *this;
}

Settings& Settings::remove(const std::string& key)
{
	const std::size_t dot = key.find('.');
	m_sections[key.substr(0, dot)].erase(key.substr(dot + 1));
	return *this;
}

Settings& Settings::programs(const std::vector<std::string>& paths)
{
	set("PROCESS_CHECK.PROCESS_NUM", std::to_string(paths.size()));
	for (std::size_t i = 0; i < paths.size(); ++i)
	{
		set("PROCESS_CHECK.PROCESS_PATH" + std::to_string(i + 1), paths[i]);
	}
	return *this;
}

void Settings::write() const
{
	std::string text;
	for (const auto& [section, keys] : m_sections)
	{
		text += "[" + section + "]\n";
		for (const auto& [key, value] : keys)
		{
			text += key + " = " + value + "\n";
		}
	}
	sandbox::writeFile(velarix::kSettingsPath, text);
	delete Configuraion::pConf;
	Configuraion::pConf = nullptr;
}

void useRealLogFile()
{
	forgetLog();
	velarixLog = new VelarixLog;
	velarixLog->init();
}

void DaemonTest::useRealLogFileAt(const char* path)
{
	sandbox::writeFile(path, "");
	settings.set("LOG.PATH", path);
	apply();
	useRealLogFile();
}

void useRecordedLog()
{
	useRealLogFile();
	Poco::Logger::get("FileLogger").setChannel(Poco::AutoPtr<Poco::Channel>(new RecordingChannel));
}

void onLogLine(std::function<void(const std::string&)> handler)
{
	g_onLogLine = std::move(handler);
}

void useUnsetLog()
{
	forgetLog();
	velarixLog = new VelarixLog;
}

void DaemonTest::SetUp()
{
	events::clear();
	events::resetFakes();
	velarix::storeShared(g_specialAsking, std::int32_t{0});
	sandbox::cleanDirectories();
	settings.write();
	sandbox::writeFile(velarix::kRunInfoPath, kRunInfo);
	useRecordedLog();
	events::clear();
}

void DaemonTest::TearDown()
{
	events::resetFakes();
	events::clear();
	forgetLog();
}

std::string assertionReport(const std::string& expression, const std::string& source, unsigned line,
                            const std::string& function)
{
	return ": " + source + ":" + std::to_string(line) + ": " + function + ": Assertion `" + expression + "' failed.\n";
}

std::string endOfDaemon(const std::string& errorLine, const std::string& expression, const std::string& source,
                        unsigned line, const std::string& function)
{
	return escaped(errorLine) + "\n[^\n]*" + escaped(assertionReport(expression, source, line, function));
}
