#include "Daemon.h"

#include <cerrno>
#include <sstream>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include "Configuraion.h"
#include "VelarixLog.h"

namespace
{

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
	}
};

void forgetLog()
{
	Poco::Logger::destroy("FileLogger");
	delete velarixLog;
	velarixLog = nullptr;
}

} // namespace

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
	write();
	return *this;
}

Settings& Settings::remove(const std::string& key)
{
	const std::size_t dot = key.find('.');
	m_sections[key.substr(0, dot)].erase(key.substr(dot + 1));
	write();
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
	useUnsetLog();
	velarixLog->init();
}

void DaemonTest::useRealLogFileAt(const char* path)
{
	sandbox::writeFile(path, "");
	settings.set("LOG.PATH", path);
	useRealLogFile();
}

void useUnsetLog()
{
	forgetLog();
	velarixLog = new VelarixLog;
}

DaemonTest::DaemonTest()
{
	events::reset();
	velarix::storeShared(g_specialAsking, std::int32_t{0});
	sandbox::cleanDirectories();
	settings.write();
	sandbox::writeFile(velarix::kRunInfoPath, kRunInfo);
	useRealLogFile();
	Poco::Logger::get("FileLogger").setChannel(Poco::AutoPtr<Poco::Channel>(new RecordingChannel));
}

DaemonTest::~DaemonTest()
{
	EXPECT_THAT(events::reset(), IsEmpty()) << "did not come";
	forgetLog();
}

std::string Report::text() const
{
	return std::string(source) + ":" + std::to_string(line) + ": " + function + ": Assertion `" + expression +
	       "' failed.\n";
}

testing::Matcher<const std::string&> endOfDaemon(const events::List& before, const Report& report)
{
	std::string text = events::kTold;
	for (const std::string& event : before)
	{
		text += event + "\n";
	}
	return HasSubstr(text + program_invocation_short_name + ": " + report.text());
}
