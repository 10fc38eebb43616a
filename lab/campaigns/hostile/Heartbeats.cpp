#include "lab/campaigns/hostile/Heartbeats.h"

#include <string_view>

#include "lab/core/Basics.h"

namespace velarix::lab::hostile
{

namespace
{

constexpr std::string_view headOfMessage = "received message: ";

/// Attackers have start times of their own.
bool isOfAgent(std::string_view message)
{
	constexpr std::string_view prefix = "/process/";
	constexpr std::size_t timeAt = prefix.size() + 4; // behind "R/M/"
	constexpr std::size_t timeSize = 14;
	if (!message.starts_with(prefix) || message.size() <= timeAt + timeSize || message[timeAt + timeSize] != '/')
	{
		return false;
	}
	const std::string_view time = message.substr(timeAt, timeSize);
	return time.find_first_not_of("0123456789") == std::string_view::npos && time != forgedTime && time != randomTime;
}

} // namespace

std::string forgedHeartbeat(const std::string& fields)
{
	if (fields.size() != 5 || fields[1] != '-' || fields[3] != '-')
	{
		throw LabError("\"" + fields + "\" is no heartbeat: ROLE-RUNNING-ASK, for example 2-0-1");
	}
	return std::string("/process/") + fields[2] + "/" + fields[0] + "/" + forgedTime + "/" + fields[4] + "/";
}

ReceivedCounts receivedIn(const std::string& log)
{
	ReceivedCounts counts;
	const std::string_view text = log;
	for (std::size_t at = text.find(headOfMessage); at != std::string_view::npos; at = text.find(headOfMessage, at))
	{
		at += headOfMessage.size();
		++counts.all;
		counts.partner += isOfAgent(text.substr(at, 64)) ? 1 : 0;
	}
	return counts;
}

} // namespace velarix::lab::hostile
