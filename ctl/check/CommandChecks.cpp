// What the texts of the three commands tell without running them.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <string>

#include "inspect/HostTrial.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

const CommandRole kStartRole{
    key::kStartCommand,
    "the address is not raised: the agent pings it for ever, while its heartbeats already say master and nobody takes "
    "over",
    "the agent waits for its end for ever: no program is started, while its heartbeats already say master and nobody "
    "takes over"};
const CommandRole kStopRole{key::kStopCommand,
                            "the address is never dropped: after a failover both nodes hold it (split-brain)",
                            "the agent waits for its end for ever, already at its start"};
const CommandRole kKillRole{key::kKillCommand,
                            "the programs are never killed: after a failover they run on both nodes (split-brain)",
                            "the agent waits for its end for ever, already at its start"};

namespace
{

void otherAddress(Findings& findings, const CommandRole& role, const CommandText& command, bool raising)
{
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::vector<std::string> named = command.addresses(raising);
	if (!isVirtualAddress(address) || named.empty() || contains(named, address))
	{
		return;
	}
	// Where all commands are for one other address, that is one fault.
	if (raising || !findings.has("another-address-raised", kStartRole.key) ||
	    commandOf(findings, key::kStartCommand).addresses(true).front() != named.front())
	{
		findings.add(raising ? "another-address-raised" : "another-address-dropped", role.key, named.front(), address);
	}
}

/// The system drops an address only with the prefix that it has. Reported once.
void otherPrefix(Findings& findings, const CommandRole& role, const CommandText& command)
{
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::optional<int> raised = commandOf(findings, key::kStartCommand).prefixOf(address);
	const std::optional<int> dropped = command.prefixOf(address);
	if (!address.empty() && raised && dropped && *raised != *dropped &&
	    !findings.has("another-prefix-dropped", kStopRole.key))
	{
		findings.add("another-prefix-dropped", role.key, address, *dropped, *raised);
	}
}

/// What is announced, and where, as far as it is written out.
void announced(Findings& findings, const CommandText& command)
{
	if (findings.has("another-address-raised", kStartRole.key))
	{
		return;
	}
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::vector<std::string> addresses = command.all(R"(\barping\b[^;&|]*\s([0-9]+(?:\.[0-9]+){3})\b)");
	const std::vector<std::string> interfaces = command.all(R"(\barping\b[^;&|]*\s-I\s*([a-z][a-z0-9.]*)\b)");
	const std::vector<std::string> raised = command.all(R"(\badd[^;&|]*\sdev\s+([a-z][a-z0-9.]*)\b)");
	if (isVirtualAddress(address) && !addresses.empty() && !contains(addresses, address) &&
	    !command.matches(R"(\barping\b[^;&|]*\$)"))
	{
		findings.add("announced-elsewhere", kStartRole.key, addresses.front(), address);
	}
	else if (!interfaces.empty() && interfaces.front() != kServiceInterface && !raised.empty() &&
	         !contains(raised, interfaces.front()))
	{
		findings.add("announced-elsewhere/interface", kStartRole.key, interfaces.front(), raised.front());
	}
}

void announcement(Findings& findings, const CommandText& command)
{
	if (command.matches(R"(\barping\b[^;&|]*\s-[a-zA-Z]*[AUP]|\barpsend\b|\bsend_arp\b)") ||
	    !command.ownPrograms().empty() || command.asksService())
	{
		announced(findings, command);
		return;
	}
	const bool asks = command.matches(R"(\barping\b)");
	findings.add(asks ? "no-gratuitous-arp/asks" : "no-gratuitous-arp", kStartRole.key);
}

/// @return the words of the last simple command, which gets the program's name behind it
std::vector<std::string> lastCommand(const CommandText& command)
{
	const std::string& text = command.plain();
	return wordsOf(text.substr(text.find_last_of(";&|({") + 1));
}

void nameLost(Findings& findings, const CommandText& command)
{
	const std::string& plain = command.plain();
	const std::size_t end = plain.find_last_not_of(" \t");
	const std::string refusal = host::shellRefusal(command.text() + " name");
	if (command.hasComment())
	{
		findings.add("program-name-lost/comment", kKillRole.key);
	}
	else if (end != std::string::npos && std::string_view(";&|").find(plain[end]) != std::string_view::npos)
	{
		findings.add("program-name-lost/separated", kKillRole.key);
	}
	else if (!refusal.empty())
	{
		findings.add("program-name-lost", kKillRole.key, refusal);
	}
}

/// "-9f" and "-f"
bool hasOption(const std::vector<std::string>& words, char option)
{
	return std::ranges::any_of(words, [&](const std::string& word)
	                           { return word.size() > 1 && word[0] == '-' && word.find(option) != std::string::npos; });
}

void killer(Findings& findings, const CommandText& command)
{
	const std::vector<std::string> words = innerCommand(lastCommand(command)).words;
	const auto calls = [&](const char* name) { return !words.empty() && baseName(words.front()) == name; };
	const bool pkill = calls("pkill");
	if (calls("kill") && (words.front() == "kill" || words.front().ends_with("/bin/kill")))
	{
		findings.add("kill-by-name", kKillRole.key);
	}
	else if (pkill && hasOption(words, 'f'))
	{
		findings.add("kills-by-command-line", kKillRole.key);
	}
	else if (pkill && !hasOption(words, 'x'))
	{
		findings.add("kills-parts-of-names", kKillRole.key);
	}
}

/// What holds for each of the three.
/// @return false when there is no command to look into, which has been reported
bool general(Findings& findings, const CommandRole& role, const CommandText& command)
{
	if (command.text().empty())
	{
		findings.add("empty-command", role.key, emptyEffect(*findKey(role.key)));
		return false;
	}
	const bool nothing = command.plain().find_first_not_of(" \t") == std::string::npos && command.hasComment();
	const std::string why = nothing ? "nothing but a comment" : host::shellRefusal(command.text());
	if (!why.empty())
	{
		findings.add("broken-command", role.key, why, role.useless);
		return false;
	}
	if (withoutPasted(command.text()) != command.text())
	{
		findings.add("pasted-characters/command", role.key, role.useless);
	}
	// Only some shells know it.
	if (command.text().find("&>") != std::string::npos)
	{
		findings.add("shell-of-its-own", role.key);
	}
	return true;
}

} // namespace

void commands(Findings& findings)
{
	for (const CommandRole* role : {&kStartRole, &kStopRole, &kKillRole})
	{
		const CommandText command = commandOf(findings, role->key);
		if (!findings.file.text(role->key) || !general(findings, *role, command))
		{
			continue;
		}
		const bool raising = role == &kStartRole;
		otherAddress(findings, *role, command, raising);
		if (raising)
		{
			announcement(findings, command);
			continue;
		}
		otherPrefix(findings, *role, command);
		if (role == &kKillRole)
		{
			nameLost(findings, command);
			killer(findings, command);
		}
	}
}

} // namespace velarix::ctl::checks
