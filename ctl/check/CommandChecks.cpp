#include "ctl/check/CommandChecks.h"

#include <algorithm>

#include "ctl/check/CommandOutput.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

using shell::Command;
using shell::Place;

const CommandRole kStartRole{
    key::kStartCommand,
    "the address is not raised: the agent pings it for ever, while its heartbeats already say master and nobody takes "
    "over",
    "the agent waits for its end for ever: no program is started, while its heartbeats already say master and nobody "
    "takes over"};
const CommandRole kStopRole{key::kStopCommand, "the address is never dropped: after a move both nodes hold it",
                            "the agent waits for its end for ever, already at its start"};
const CommandRole kKillRole{key::kKillCommand, "the programs are never killed: after a move they run on both nodes",
                            "the agent waits for its end for ever, already at its start"};

CommandText::CommandText(Findings& findings, const CommandRole& role) : m_findings(findings), m_role(role)
{
	const std::optional<std::string> text = findings.file.text(role.key);
	if (!text)
	{
		return; // told by the check of the keys
	}
	m_text = *text;
	if (m_text.empty())
	{
		findings.error(role.key, {"empty-command", std::string(role.key) + " is empty", emptyEffect(*findKey(role.key)),
		                          "write the command"});
		return;
	}
	m_script = shell::parse(m_text);
	m_usable = m_script.error.empty() && !m_script.commands.empty();
	if (!m_usable)
	{
		const std::string why = m_script.error.empty() ? "nothing but a comment" : m_script.error;
		findings.error(role.key, {"broken-command", std::string(role.key) + " is no shell command: " + why,
		                          role.useless, "try the command in a shell: sh -n -c '...'"});
	}
}

std::vector<shell::AddressAction> CommandText::actions(bool raising) const
{
	std::vector<shell::AddressAction> actions = shell::addressActions(m_script);
	std::erase_if(actions, [&](const shell::AddressAction& action) { return action.adds != raising; });
	return actions;
}

bool CommandText::runsOwnProgram() const
{
	bool found = false;
	shell::forEachSimple(m_script, [&](const Command& command, const Place&)
	                     { found = found || shell::isOwnProgram(shell::programWords(command)); });
	return found;
}

bool CommandText::mentions(const std::string& text) const
{
	return !text.empty() && m_text.find(text) != std::string::npos;
}

bool CommandText::runs(const std::string& program) const
{
	bool found = false;
	shell::forEachSimple(m_script,
	                     [&](const Command& command, const Place&)
	                     {
		                     const std::vector<std::string> words = shell::programWords(command);
		                     found = found || (!words.empty() && shell::baseName(words[0]) == program);
	                     });
	return found;
}

bool CommandText::hasNothingToDoWithAddress() const
{
	return !runsOwnProgram() && !mentions(m_findings.file.text(key::kVirtualIP).value_or("")) && !mentions("flush") &&
	       !runs("ifup") && !runs("ifdown") && !runs("nmcli");
}

void CommandText::general() const
{
	if (m_script.bashRedirection)
	{
		m_findings.warning(m_role.key,
		                   {"shell-of-its-own", std::string(m_role.key) + " has \"&>\"",
		                    "the commands are run by /bin/sh, for which it is \"&\", in the background, and then \">\"",
		                    "write >FILE 2>&1"});
	}
	foreground();
	leftBehind();
}

void CommandText::foreground() const
{
	bool told = false;
	shell::forEachSimple(
	    m_script,
	    [&](const Command& command, const Place& place)
	    {
		    const std::vector<std::string> words = shell::programWords(command);
		    const bool endless = shell::runsForEver(words) || shell::inEndlessLoop(place);
		    if (told || place.background || !endless)
		    {
			    return;
		    }
		    told = true;
		    const std::string what =
		        shell::inEndlessLoop(place) ? "a loop that does not end" : words[0] + " without a limit";
		    m_findings.error(m_role.key,
		                     {"endless-command", std::string(m_role.key) + " runs " + what, m_role.blocked,
		                      "give it a limit (arping -c 3 -w 3), or put it into the background with its output "
		                      "discarded: (... &) >/dev/null 2>&1"});
	    });
}

void CommandText::leftBehind() const
{
	bool told = false;
	shell::forEachSimple(
	    m_script,
	    [&](const Command& command, const Place& place)
	    {
		    if (told || !place.background || place.silenced || command.words.empty())
		    {
			    return;
		    }
		    told = true;
		    const std::vector<std::string> words = shell::programWords(command);
		    const bool lasting = shell::runsForEver(words) || shell::inEndlessLoop(place) ||
		                         shell::outputOf(words) == shell::Output::notKnown;
		    const Words text{
		        "held-output",
		        std::string(m_role.key) + " leaves " + words[0] + " in the background with its output open",
		        lasting ? "the agent reads until the last one has closed the output: " + std::string(m_role.blocked)
		                : "the agent reads until the last one has closed the output, and waits that long",
		        "discard the output of what stays behind: (... &) >/dev/null 2>&1"};
		    lasting ? m_findings.error(m_role.key, text) : m_findings.warning(m_role.key, text);
	    });
}

} // namespace velarix::ctl::checks
