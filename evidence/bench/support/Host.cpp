#include "Host.h"

#include <fstream>
#include <stdexcept>

#include "Configuraion.h"
#include "Sandbox.h"
#include "VelarixLog.h"
#include "velarix/paths.h"

namespace
{

constexpr char kSettings[] = "[AGENT]\n"
                             "MODE = 2\n"
                             "THIS_SERVER_IP = 127.0.0.1\n"
                             "HEART_BEAT_RECEIVE_PORT = 7001\n"
                             "PARTNER_IP = 127.0.0.1\n"
                             "PARTNER_HEART_BEAT_RECEIVE_PORT = 7001\n"
                             "HEART_BEAT_INTERVAL = 1\n"
                             "MAX_HEART_BEAT_RECEIING_TIME = 2\n"
                             "IGNORE_TIME = 10\n"
                             "GATEWAY_IP = 127.0.0.1\n"
                             "VIRTUAL_IP = 127.0.0.1\n"
                             "VIRTUAL_IP_START_COMMAND = true\n"
                             "VIRTUAL_IP_STOP_COMMAND = true\n"
                             "WAITING_TIME_BEFORE_PROCESS_RUN = 0\n"
                             "RELATED_PROCESS =\n"
                             "[ADVENCE]\n"
                             "PROCESS_KILL_COMMAND = true\n"
                             "KEYWORD = defunct\n"
                             "[LOG]\n"
                             "PATH = /usr/velarix/log/velarix.log\n"
                             "PURGEAGE = 30 days\n"
                             "[PROCESS_CHECK]\n"
                             "PROCESS_CHECK_CYCLE = 5\n"
                             "OBSERVATION_MODE = 1\n";

constexpr char kRunInfo[] = "[TRACE]\nLAST_RUN_TIME = 20240131235959\nMASTER_LAST_RUN_TIME = 20240101000000\n"
                            "SLAVE_LAST_RUN_TIME = 20240102000000\n";

void write(const char* path, const std::string& text)
{
	std::ofstream file(path, std::ios::binary | std::ios::trunc);
	file << text << std::flush;
	if (!file.good())
	{
		throw std::runtime_error(std::string("cannot write ") + path);
	}
}

} // namespace

void bench::furnishHost(const std::vector<std::string>& programs)
{
	if (!sandbox::whyUnavailable().empty())
	{
		throw std::runtime_error("no namespaces: " + sandbox::whyUnavailable());
	}
	std::string settings = kSettings;
	settings += "PROCESS_NUM = " + std::to_string(programs.size()) + "\n";
	for (std::size_t i = 0; i < programs.size(); ++i)
	{
		settings += "PROCESS_PATH" + std::to_string(i + 1) + " = /opt/application/bin/" + programs[i] + "\n";
	}
	write(velarix::kSettingsPath, settings);
	write(velarix::kRunInfoPath, kRunInfo);
	velarixLog = new VelarixLog;
	velarixLog->init();
}

void bench::configurePrograms(int number)
{
	Configuraion::getInstance(velarix::kSettingsPath)->setInt("PROCESS_CHECK.PROCESS_NUM", number);
}
