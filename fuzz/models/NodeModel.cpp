#include "NodeModel.h"

#include <array>

namespace fuzz
{

namespace
{

/// Positions behind the first five slashes; a field exists when its slash does and
/// something follows it.
struct Fields
{
	bool whole = false;
	std::array<std::string_view, 6> text;
};

Fields fieldsOf(std::string_view message)
{
	Fields fields;
	std::size_t number = 0;
	std::size_t begin = 0;
	for (std::size_t at = 0; at < message.size() && number < 6; ++at)
	{
		if (message[at] == '/')
		{
			fields.text[number++] = message.substr(begin, at - begin);
			begin = at + 1;
		}
	}
	if (number < 6 && begin < message.size())
	{
		fields.text[number++] = message.substr(begin);
	}
	fields.whole = number == 6;
	return fields;
}

/// What printf shows of a text: nothing from a zero byte on.
std::string shown(std::string_view text)
{
	return std::string(text.substr(0, text.find('\0')));
}

} // namespace

void NodeModel::tell(int line, const std::string& text)
{
	story += "**DEBUG**(CHeartReciver:" + std::to_string(line) + ")" + text + "\n";
}

void NodeModel::tellError(int line, const std::string& text)
{
	story += "**ERROR**(CHeartReciver:" + std::to_string(line) + ")" + text + "\n";
}

void NodeModel::act(const char* action)
{
	story += std::string(action) + ", role " + std::to_string(role) + "\n";
}

void NodeModel::hear(std::string_view message)
{
	const Fields fields = fieldsOf(message);
	if (!fields.whole)
	{
		tellError(246, "Out of range");
		return;
	}
	const std::string_view prefix = fields.text[1];
	tell(249, "szTmp[process] szPreFix[" + shown(prefix) + "]");
	if (prefix.substr(0, 7) != "process")
	{
		tell(252, "preFix unknown: [" + shown(prefix) + "]");
		return;
	}
	decide(fields.text[3] == "1", fields.text[5]);
}

void NodeModel::decide(bool partnerIsMaster, std::string_view ask)
{
	const bool fine = status == 1;
	if (role != 1 && role != 2)
	{
		fine ? tell(297, "My NetWork Status: OK UNKNOW") : tell(339, "My NetWork Status: NOT OK UNKNOW");
	}
	else if (role == 2)
	{
		partnerIsMaster ? slaveHearsMaster(ask) : slaveHearsSlave(ask);
	}
	else if (partnerIsMaster)
	{
		fine ? tell(282, "My NetWork Status: OK MY:MASTER PARTNER:MASTER OK")
		     : tell(324, "My NetWork Status: NOT OK MY:MASTER PARTNER:MASTER RESET");
		reset();
	}
	else if (fine)
	{
		tell(278, "My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK");
	}
	else
	{
		act("look for programs");
		if (!programsRun)
		{
			tellError(319, "m_myStatus[" + std::to_string(status) + "]:ERRRRREEEEEEERRRRRRR");
		}
		status = programsRun ? 1 : status;
	}
}

void NodeModel::slaveHearsMaster(std::string_view ask)
{
	const bool fine = status == 1;
	const bool asked = ask.substr(0, 1) == "1";
	fine ? tell(287, "My NetWork Status: OK MY:SLAVE PARTNER:MASTER OK")
	     : tell(329, "My NetWork Status: NOT OK MY:SLAVE PARTNER:MASTER OK");
	status = 1;
	tell(fine ? 350 : 376, "szTmp[1] szPartnerProcessRunning[" + shown(ask) + "]");
	if (!asked)
	{
		asking = fine ? 0 : asking;
		return;
	}
	if (asking != 1)
	{
		return;
	}
	const bool answered = ++count > 3;
	std::string text = fine ? "My NetWork Status: OK MY:SLAVE PARTNER:MASTER Special ask <-- answer "
	                        : "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer ";
	text += answered ? "OK [" : "wait [";
	text += std::to_string(count) + (fine && answered ? "/4]" : "/3]");
	tell(fine ? (answered ? 368 : 363) : (answered ? 389 : 384), text);
	if (answered)
	{
		count = 0;
		asking = 0;
	}
}

/// @return true when the own ask is still waited for
bool NodeModel::stillWaiting()
{
	if (asking != 1)
	{
		return false;
	}
	++count;
	const std::string number = "[" + std::to_string(count) + "/3]";
	const bool waiting = count <= 3;
	if (status == 1 && waiting)
	{
		tell(403, "My NetWork Status: OK  MY:SLAVE PARTNER:SLAVE Special ask <-- waiting result " + number);
	}
	if (status != 1)
	{
		tell(waiting ? 429 : 434, "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Special ask <-- answer " +
		                              std::string(waiting ? "wait " : "OK ") + number);
	}
	if (!waiting)
	{
		count = 0;
		asking = 0;
	}
	return waiting;
}

void NodeModel::slaveHearsSlave(std::string_view ask)
{
	if (stillWaiting())
	{
		return;
	}
	const bool fine = status == 1;
	tell(fine ? 411 : 440, "szTmp[1] specialAsk[" + shown(ask) + "]");
	if (ask.substr(0, 1) == "1")
	{
		tell(fine ? 414 : 443, "special ask: slave -> master");
		role = 1;
		act("start address");
		act("run programs");
		return;
	}
	fine ? tell(418, "My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK")
	     : tell(447, "My NetWork Status: NOT OK MY:SLAVE PARTNER:SLAVE Reset");
	reset();
}

void NodeModel::reset()
{
	role = configuredMaster ? 1 : 2;
	act("look for programs");
	if (programsRun)
	{
		tell(configuredMaster ? 470 : 480, configuredMaster ? "MASTER kill" : "SLAVE kill");
		act("kill programs");
	}
	if (configuredMaster)
	{
		tell(473, "try to process run");
		act("run programs");
	}
	else if (programsRun)
	{
		act("stop address");
	}
}

} // namespace fuzz
