#include "ctl/init/PairSettings.h"

#include <functional>
#include <map>
#include <sstream>
#include <string_view>

#include "inspect/SettingsKeys.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

constexpr std::size_t kLineLength = 80;

/// The text in lines that begin with "; ".
std::string comment(const std::string& text)
{
	std::istringstream words(text);
	std::string result;
	std::string line = ";";
	for (std::string word; words >> word;)
	{
		if (line.size() + 1 + word.size() > kLineLength)
		{
			result += line + "\n";
			line = ";";
		}
		line += " " + word;
	}
	return result + line + "\n";
}

std::string bareAddress(const Answers& answers)
{
	return answers.virtualIP.substr(0, answers.virtualIP.find('/'));
}

std::string dropCommand(const Answers& answers)
{
	return "ip addr del " + answers.virtualIP + " dev eth0 >/dev/null 2>&1";
}

/// Silent; with a label, for "ifconfig" to list the address; announced as long
/// as it is held, in the background and without an open output.
std::string raiseCommand(const Answers& answers)
{
	const std::string address = bareAddress(answers);
	return "(ip addr add " + answers.virtualIP +
	       " dev eth0 label eth0:ha; (while ip -4 -o addr show dev eth0 | grep -q " + address +
	       "/; do arping -q -A -c 1 -w 1 -I eth0 " + address + "; sleep 4; done) &) >/dev/null 2>&1";
}

using Values = std::map<std::string_view, std::string>;

Values commonValues(const Answers& answers)
{
	const std::string port = std::to_string(answers.port);
	return {
	    {key::kReceivePort, port},
	    {key::kPartnerPort, port},
	    {key::kInterval, std::to_string(answers.interval)},
	    {key::kReceivingTime, std::to_string(answers.receivingTime)},
	    {key::kGatewayIP, answers.gateway},
	    {key::kVirtualIP, bareAddress(answers)},
	    {key::kStartCommand, raiseCommand(answers)},
	    {key::kStopCommand, dropCommand(answers)},
	    {key::kWaitingTime, std::to_string(answers.waitingTime)},
	    {key::kProcessNumber, std::to_string(answers.programs.size())},
	    {key::kCheckCycle, std::to_string(answers.checkCycle)},
	    {key::kKillCommand, dropCommand(answers) + "; killall -q -9"},
	    {key::kLogPath, answers.log},
	    {key::kPurgeAge, answers.purgeAge},
	};
}

Values valuesOf(const Answers& answers, NodeName node)
{
	const bool first = node == NodeName::a;
	Values values = commonValues(answers);
	values[key::kMode] = node == answers.master ? "1" : "2";
	values[key::kThisServerIP] = first ? answers.addressA : answers.addressB;
	values[key::kPartnerIP] = first ? answers.addressB : answers.addressA;
	return values;
}

std::string bareName(std::string_view key)
{
	return std::string(key.substr(key.find('.') + 1));
}

std::string line(const std::string& name, const std::string& value)
{
	return name + (value.empty() ? " =" : " = " + value) + "\n";
}

std::string entry(const KeyInfo& info, const Values& values, const Answers& answers)
{
	std::string text =
	    comment(std::string(info.meaning) + (info.unit.empty() ? "" : " (" + std::string(info.unit) + ")"));
	if (info.name == key::kProcessPath)
	{
		for (std::size_t i = 0; i < answers.programs.size(); ++i)
		{
			text += line(bareName(info.name) + std::to_string(i + 1), answers.programs[i]);
		}
		return text;
	}
	const auto value = values.find(info.name);
	return text + line(bareName(info.name), value == values.end() ? std::string(info.example) : value->second);
}

} // namespace

std::string settingsText(const Answers& answers, NodeName node)
{
	const Values values = valuesOf(answers, node);
	std::string text =
	    comment("Settings of node " + std::string(textOf(node)) +
	            " of the pair. The agent reads them once, at its start; every key is needed. \";\" begins "
	            "a comment at the beginning of a line only. The commands run as root: keep this file "
	            "writable by root alone. The partner's file is the mirror of this one: after a change, "
	            "\"velarixctl check --partner FILE\" tells whether the two still fit.");
	std::string section;
	for (const KeyInfo& info : settingsKeys())
	{
		const std::string of(info.name.substr(0, info.name.find('.')));
		if (of != section)
		{
			section = of;
			text += "\n[" + section + "]\n";
		}
		text += entry(info, values, answers);
	}
	return text;
}

} // namespace velarix::ctl
