#include "lab/core/NodeSettings.h"

#include <algorithm>

#include "lab/core/Plan.h"
#include "lab/core/SetCommand.h"

namespace velarix::lab
{

namespace
{

const std::string sharedAddress = plan::virtualAddress;
const std::string addressAndLength = sharedAddress + "/" + std::to_string(plan::prefixLength);
const std::string sharedCard = plan::serviceCard;

/// The label makes the address show up in ifconfig, where the agent looks for
/// it. The announcements go on as long as the address is held, in the background
/// with no pipe open, so that neighbours learn of the move.
std::string startCommand()
{
	return hookGuard(SetCommand::start) + "(ip addr add " + addressAndLength + " dev " + sharedCard + " label " +
	       sharedCard + ":ha; (while ip -4 -o addr show dev " + sharedCard + " | grep -q " + sharedAddress +
	       "/; do arping -q -A -c 1 -w 1 -I " + sharedCard + " " + sharedAddress +
	       "; sleep 4; done) &) >/dev/null 2>&1";
}

std::string dropCommand()
{
	return "ip addr del " + addressAndLength + " dev " + sharedCard + " >/dev/null 2>&1";
}

} // namespace

std::string toText(const PairTimes& times)
{
	return "interval " + std::to_string(times.interval) + " s, receiving time " + std::to_string(times.receivingTime) +
	       " s, waiting time " + std::to_string(times.waitingTime) + " s";
}

NodeSettings NodeSettings::standard(HostId node, const PairTimes& times)
{
	const HostId partner = otherNode(node);
	NodeSettings settings;
	settings.set("AGENT.MODE", node == HostId::a ? 1 : 2)
	    .set("AGENT.THIS_SERVER_IP", plan::addressOf(node, Network::communication))
	    .set("AGENT.HEART_BEAT_RECEIVE_PORT", plan::heartbeatPort)
	    .set("AGENT.PARTNER_IP", plan::addressOf(partner, Network::communication))
	    .set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", plan::heartbeatPort)
	    .set("AGENT.HEART_BEAT_INTERVAL", times.interval)
	    .set("AGENT.MAX_HEART_BEAT_RECEIING_TIME", times.receivingTime)
	    .set("AGENT.IGNORE_TIME", 5)
	    .set("AGENT.GATEWAY_IP", plan::addressOf(HostId::gateway, Network::communication))
	    .set("AGENT.VIRTUAL_IP", sharedAddress)
	    .set("AGENT.VIRTUAL_IP_START_COMMAND", startCommand())
	    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", hookGuard(SetCommand::stop) + dropCommand())
	    .set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", times.waitingTime)
	    .set("AGENT.RELATED_PROCESS", "")
	    .set("PROCESS_CHECK.PROCESS_NUM", 1)
	    .set("PROCESS_CHECK.PROCESS_PATH1", plan::serviceProgram)
	    .set("PROCESS_CHECK.PROCESS_CHECK_CYCLE", 1)
	    .set("PROCESS_CHECK.OBSERVATION_MODE", 1)
	    .set("ADVENCE.PROCESS_KILL_COMMAND", hookGuard(SetCommand::kill) + dropCommand() + "; killall -q -9")
	    .set("ADVENCE.KEYWORD", "defunct")
	    .set("LOG.PATH", plan::logFile)
	    .set("LOG.PURGEAGE", "7 days");
	return settings;
}

NodeSettings& NodeSettings::set(const std::string& key, const std::string& value)
{
	const auto found =
	    std::find_if(m_values.begin(), m_values.end(), [&](const auto& entry) { return entry.first == key; });
	if (found != m_values.end())
	{
		found->second = value;
	}
	else
	{
		m_values.emplace_back(key, value);
	}
	return *this;
}

NodeSettings& NodeSettings::remove(const std::string& key)
{
	std::erase_if(m_values, [&](const auto& entry) { return entry.first == key; });
	return *this;
}

std::string NodeSettings::get(const std::string& key) const
{
	for (const auto& [name, value] : m_values)
	{
		if (name == key)
		{
			return value;
		}
	}
	return {};
}

std::string NodeSettings::ini() const
{
	std::string text;
	std::vector<std::string> sections;
	for (const auto& [name, value] : m_values)
	{
		const std::string section = name.substr(0, name.find('.'));
		if (std::find(sections.begin(), sections.end(), section) == sections.end())
		{
			sections.push_back(section);
		}
	}
	for (const std::string& section : sections)
	{
		text += "[" + section + "]\n";
		for (const auto& [name, value] : m_values)
		{
			if (name.starts_with(section + "."))
			{
				text += name.substr(section.size() + 1) + " = " + value + "\n";
			}
		}
		text += "\n";
	}
	return text;
}

} // namespace velarix::lab
