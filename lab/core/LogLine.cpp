#include "lab/core/LogLine.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string_view>
#include <utility>

namespace velarix::lab
{

namespace
{

/// The first row that fits decides. Rows with a role name each place where the
/// agent's role changes and, for a lab that looks on later, the two lines with
/// which every pass of the receiver tells its role.
constexpr std::array<LogMeaning, 25> meanings{{
    {"CAgent", "stop virtual ip, process", nullptr, "starts clean: drops the address, kills the programs"},
    {"CAgent", "Slave CAgent()", "slave", nullptr},
    {"CHeartReciver", "networkStatus : MASTER", "master", nullptr},
    {"CHeartReciver", "networkStatus : SLAVE 1", "slave", "partner and service address are silent"},
    {"CHeartReciver", "networkStatus : SLAVE", "slave", nullptr},
    {"CHeartReciver", "my comunication IP is not OK (1)", nullptr, "the gateway does not answer"},
    {"CHeartReciver", "my service IP is not OK (2)", nullptr, "the service address does not answer"},
    {"CHeartReciver", "my service LanCard is not OK (3)", nullptr, "the service card has no carrier"},
    {"CHeartReciver", "master -> slave  process kill", "slave", "gives up the master role, kills the programs"},
    {"CHeartReciver", "slave -> master  process run", "master", "takes over: both addresses silent"},
    {"CHeartReciver", "processStatus : ERROR", nullptr, "the managed programs do not run"},
    {"CHeartReciver", "stop virtual IP", "slave", "gives up the master role, asks the partner"},
    {"CHeartReciver", "Reciver : no received message", nullptr, "third silence in a row"},
    {"CHeartReciver", "Reciver : Partner IP and Service IP", nullptr, "partner silent but reachable: stays standby"},
    {"CHeartReciver", "COMUNICATION LAN CARD ERROR", nullptr, "no carrier on the communication card: not counted"},
    {"CHeartReciver", "special ask: slave -> master", "master", "takes over: the partner asks"},
    {"CHeartReciver", "try to process run", "master", "runs the programs as master"},
    {"CHeartReciver", "MASTER kill", "master", "kills the programs to run them again"},
    {"CHeartReciver", "SLAVE kill", "slave", "returns to the standby role, kills the programs"},
    {"CHeartReciver", "My NetWork Status: OK MY:MASTER PARTNER:MASTER", nullptr,
     "both are master: back to what is set"},
    {"CHeartReciver", "My NetWork Status: NOT OK MY:MASTER PARTNER:MASTER", nullptr,
     "both are master: back to what is set"},
    {"Utill", "try to start virtual ip", nullptr, "raises the address"},
    {"Utill", "set virtual ip...", nullptr, "waits for the address to answer"},
    {"Utill", "set virtual ip failed", nullptr, "the address cannot be pinged"},
    {"Utill", "try to run processes", nullptr, "starts the programs"},
}};

/// The agent probes its partner, its gateway and the service address.
constexpr std::array<std::pair<const char*, ProbeMark>, 9> probeTexts{{
    {"partnerComunicationIPcheck : partnerIP", ProbeMark::begins},
    {"partnerComunicationIPcheck : true", ProbeMark::answered},
    {"partnerComunicationIPcheck : false", ProbeMark::silent},
    {"myComunicationIPcheck : START", ProbeMark::begins},
    {"myComunicationIPcheck : TRUE", ProbeMark::answered},
    {"myComunicationIPcheck : FALSE", ProbeMark::silent},
    {"serviceIPcheck : START", ProbeMark::begins},
    {"serviceIP[", ProbeMark::answered},
    {"serviceIPcheck : false", ProbeMark::silent},
}};

/// The C library keeps the time zone in memory that all threads share.
std::chrono::system_clock::time_point localTime(std::tm& date)
{
	static std::mutex timeZone;
	const std::lock_guard lock(timeZone);
	return std::chrono::system_clock::from_time_t(std::mktime(&date));
}

} // namespace

std::optional<LogLine> parseLogLine(const std::string& text)
{
	std::tm date{};
	int tenths = 0;
	int textAt = -1;
	char source[64] = "";
	LogLine line;
	const int fields =
	    std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%1d [%ld:%ld][%63[^]:]:%d] <%c>%n", &date.tm_year,
	                &date.tm_mon, &date.tm_mday, &date.tm_hour, &date.tm_min, &date.tm_sec, &tenths, &line.process,
	                &line.thread, source, &line.line, &line.priority, &textAt);
	if (fields != 12 || textAt < 0 || static_cast<std::size_t>(textAt) >= text.size())
	{
		return std::nullopt;
	}
	date.tm_year -= 1900;
	date.tm_mon -= 1;
	date.tm_isdst = -1;
	line.time = localTime(date) + std::chrono::milliseconds(100 * tenths);
	line.source = source;
	line.text = text.substr(static_cast<std::size_t>(textAt) + 1);
	return line;
}

bool beginsPass(const LogLine& line)
{
	return line.source == "CHeartReciver" && line.text == "Reciver while start";
}

bool beginsWork(const LogLine& line)
{
	return line.source == "CAgent" && line.text.starts_with("stop virtual ip, process");
}

ProbeMark probeMarkOf(const LogLine& line)
{
	if (line.source == "Utill")
	{
		for (const auto& [text, mark] : probeTexts)
		{
			if (line.text.starts_with(text))
			{
				return mark;
			}
		}
	}
	return ProbeMark::none;
}

const LogMeaning* meaningOf(const LogLine& line)
{
	for (const LogMeaning& meaning : meanings)
	{
		if (line.source == meaning.source && line.text.starts_with(meaning.text))
		{
			return &meaning;
		}
	}
	return nullptr;
}

} // namespace velarix::lab
