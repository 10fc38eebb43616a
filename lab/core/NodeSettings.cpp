#include "lab/core/NodeSettings.h"

#include <algorithm>
#include <map>

#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

using plan::SetCommand;

const std::string sharedAddress = plan::virtualAddress;
const std::string addressAndLength = sharedAddress + "/" + std::to_string(plan::prefixLength);
const std::string sharedInterface = plan::serviceInterface;

/// What a command of the settings begins with.
std::string hookGuard(SetCommand command)
{
	return "[ ! -e " + plan::hookPath(command) + " ] || . " + plan::hookPath(command) + "; ";
}

/// The label makes the address show up in ifconfig, where the agent looks for
/// it. The announcements go on as long as the address is held, in the background
/// with no pipe open, so that neighbours learn of the move.
std::string startCommand()
{
	return hookGuard(SetCommand::start) + "(ip addr add " + addressAndLength + " dev " + sharedInterface + " label " +
	       sharedInterface + ":ha; (while ip -4 -o addr show dev " + sharedInterface + " | grep -q " + sharedAddress +
	       "/; do arping -q -A -c 1 -w 1 -I " + sharedInterface + " " + sharedAddress +
	       "; sleep 4; done) &) >/dev/null 2>&1";
}

std::string dropCommand()
{
	return "ip addr del " + addressAndLength + " dev " + sharedInterface + " >/dev/null 2>&1";
}

void setPlain(NodeSettings& settings)
{
	settings.set("AGENT.VIRTUAL_IP_START_COMMAND", startCommand())
	    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", hookGuard(SetCommand::stop) + dropCommand())
	    .set("PROCESS_CHECK.PROCESS_NUM", 1)
	    .set("PROCESS_CHECK.PROCESS_PATH1", plan::serviceProgram)
	    .set("ADVENCE.PROCESS_KILL_COMMAND", hookGuard(SetCommand::kill) + dropCommand() + "; killall -q -9");
}

void setKeeper(NodeSettings& settings)
{
	const std::string keeper = plan::keeperProgram;
	settings.set("AGENT.GATEWAY_IP", plan::reachAddress)
	    .set("AGENT.VIRTUAL_IP_START_COMMAND", hookGuard(SetCommand::start) + keeper + " raise")
	    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", hookGuard(SetCommand::stop) + keeper + " drop")
	    .set("PROCESS_CHECK.PROCESS_NUM", 2)
	    .set("PROCESS_CHECK.PROCESS_PATH1", plan::addressLink)
	    .set("PROCESS_CHECK.PROCESS_PATH2", plan::serviceLink)
	    .set("ADVENCE.PROCESS_KILL_COMMAND", hookGuard(SetCommand::kill) + keeper + " stop");
}

/// The check fetches the page without any program but bash.
std::string keeperText(HostId node, const std::string& own, const std::string& partner)
{
	return "[address]\naddress = " + sharedAddress + "\ninterface = " + sharedInterface +
	       "\non_conflict = " + (node == HostId::a ? "defend" : "yield") +
	       "\n\n[service web]\ncommand = " + plan::serviceProgram + "\ncheck = bash -c \"exec 3<>/dev/tcp/" +
	       sharedAddress + "/" + std::to_string(plan::servicePort) +
	       " && echo 'GET / HTTP/1.0' >&3 && read -r -u 3 line\"\n\n[reachability]\naddress = " + plan::reachAddress +
	       "\ntargets = " + plan::addressOf(HostId::gateway, Network::communication) + " " +
	       plan::addressOf(HostId::gateway, Network::service) + "\nown = " + own + "\npartner = " + partner +
	       "\nport = " + std::to_string(plan::heartbeatPort) + "\n";
}

} // namespace

const char* nameOf(Profile profile)
{
	return profile == Profile::keeper ? "keeper" : "plain";
}

std::string toText(const PairSettings& times)
{
	return std::string(nameOf(times.profile)) + " settings, interval " + std::to_string(times.interval) +
	       " s, receiving time " + std::to_string(times.receivingTime) + " s, waiting time " +
	       std::to_string(times.waitingTime) + " s" + (times.wireguard ? ", WireGuard" : "");
}

NodeSettings NodeSettings::standard(HostId node, const PairSettings& pair)
{
	const auto address = [&pair](HostId host)
	{ return pair.wireguard ? plan::tunnelAddressOf(host) : plan::addressOf(host, Network::communication); };
	NodeSettings settings;
	settings.set("AGENT.MODE", node == HostId::a ? 1 : 2)
	    .set("AGENT.THIS_SERVER_IP", address(node))
	    .set("AGENT.HEART_BEAT_RECEIVE_PORT", plan::heartbeatPort)
	    .set("AGENT.PARTNER_IP", address(otherNode(node)))
	    .set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", plan::heartbeatPort)
	    .set("AGENT.HEART_BEAT_INTERVAL", pair.interval)
	    .set("AGENT.MAX_HEART_BEAT_RECEIING_TIME", pair.receivingTime)
	    .set("AGENT.IGNORE_TIME", 5)
	    .set("AGENT.GATEWAY_IP", plan::addressOf(HostId::gateway, Network::communication))
	    .set("AGENT.VIRTUAL_IP", sharedAddress)
	    .set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", pair.waitingTime)
	    .set("AGENT.RELATED_PROCESS", "")
	    .set("PROCESS_CHECK.PROCESS_CHECK_CYCLE", 1)
	    .set("PROCESS_CHECK.OBSERVATION_MODE", 1)
	    .set("ADVENCE.KEYWORD", "defunct")
	    .set("LOG.PATH", plan::logFile)
	    .set("LOG.PURGEAGE", "7 days");
	if (pair.profile == Profile::keeper)
	{
		setKeeper(settings);
		settings.m_keeperIni = keeperText(node, address(node), address(otherNode(node)));
	}
	else
	{
		setPlain(settings);
	}
	return settings;
}

NodeSettings& NodeSettings::set(const std::string& key, const std::string& value)
{
	const auto found = std::ranges::find(m_values, key, &Entry::first);
	found != m_values.end() ? void(found->second = value) : void(m_values.emplace_back(key, value));
	return *this;
}

NodeSettings& NodeSettings::remove(const std::string& key)
{
	std::erase_if(m_values, [&](const auto& entry) { return entry.first == key; });
	return *this;
}

std::string NodeSettings::get(const std::string& key) const
{
	const auto found = std::ranges::find(m_values, key, &Entry::first);
	return found != m_values.end() ? found->second : std::string();
}

bool NodeSettings::usesTunnel() const
{
	return get("AGENT.THIS_SERVER_IP").starts_with("169.254.");
}

std::string NodeSettings::ini() const
{
	std::map<std::string, std::string> sections;
	for (const auto& [name, value] : m_values)
	{
		const std::size_t dot = name.find('.');
		sections[name.substr(0, dot)] += name.substr(dot + 1) + " = " + value + "\n";
	}
	std::string text;
	for (const auto& [section, lines] : sections)
	{
		text += "[" + section + "]\n" + lines + "\n";
	}
	return text;
}

} // namespace velarix::lab
