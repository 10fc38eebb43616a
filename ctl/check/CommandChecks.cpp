// What the texts of the three commands tell without running them.

#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <sstream>
#include <string>

#include "ctl/check/CommandText.h"
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

void pasted(Findings& findings, const CommandRole& role, const std::string& text)
{
	if (withoutPasted(text) != text)
	{
		findings.error(role.key, {"pasted-characters",
		                          std::string(role.key) +
		                              " holds typographic quotes, dashes or blanks, as a web page or a word processor "
		                              "writes them",
		                          std::string("the shell takes them for letters: ") + role.useless,
		                          "write the line anew at the keyboard, with ', \", - and plain blanks"});
	}
}

/// Only some shells know "&>".
void otherShell(Findings& findings, const CommandRole& role, const CommandText& command)
{
	if (command.text().find("&>") != std::string::npos)
	{
		findings.warning(role.key, {"shell-of-its-own", std::string(role.key) + " has \"&>\"",
		                            "the commands are run by /bin/sh, for which it is \"&\", in the background, and "
		                            "then \">\"",
		                            "write >FILE 2>&1"});
	}
}

void otherAddress(Findings& findings, const CommandRole& role, const CommandText& command, bool raising)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	const std::vector<std::string> named = command.addresses(raising);
	if (!isVirtualAddress(address) || named.empty() || std::ranges::find(named, address) != named.end())
	{
		return;
	}
	// Where all commands are for one other address, that is one fault.
	const std::vector<std::string> raised =
	    CommandText(findings.file.text(key::kStartCommand).value_or("")).addresses(true);
	if (!raising && findings.has("another-address-raised", kStartRole.key) && raised.front() == named.front())
	{
		return;
	}
	findings.error(role.key, {raising ? "another-address-raised" : "another-address-dropped",
	                          std::string("the command ") + (raising ? "raises " : "drops ") + named.front() +
	                              ", and VIRTUAL_IP is " + address,
	                          raising ? role.useless : kStopRole.useless, "write the same address in both"});
}

/// The system drops an address only with the prefix that it has. Reported once.
void otherPrefix(Findings& findings, const CommandRole& role, const CommandText& command)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	const CommandText start(findings.file.text(key::kStartCommand).value_or(""));
	const std::optional<int> raised = start.prefixOf(address);
	const std::optional<int> dropped = command.prefixOf(address);
	if (!address.empty() && raised && dropped && *raised != *dropped &&
	    !findings.has("another-prefix-dropped", kStopRole.key))
	{
		findings.error(role.key, {"another-prefix-dropped",
		                          "the command drops " + address + "/" + std::to_string(*dropped) + ", and raised is " +
		                              address + "/" + std::to_string(*raised),
		                          std::string("the system refuses to drop it: ") + kStopRole.useless,
		                          "write the same prefix in both"});
	}
}

/// What is announced, and where, as far as it is written out.
void announced(Findings& findings, const CommandText& command)
{
	const std::string address = findings.file.text(key::kVirtualIP).value_or("");
	const std::vector<std::string> addresses = command.all(R"(\barping\b[^;&|]*\s([0-9]+(?:\.[0-9]+){3})\b)");
	const std::vector<std::string> interfaces = command.all(R"(\barping\b[^;&|]*\s-I\s*([a-z][a-z0-9.]*)\b)");
	const std::vector<std::string> raised = command.all(R"(\badd[^;&|]*\sdev\s+([a-z][a-z0-9.]*)\b)");
	std::string what;
	if (isVirtualAddress(address) && !addresses.empty() && std::ranges::find(addresses, address) == addresses.end() &&
	    !command.matches(R"(\barping\b[^;&|]*\$)"))
	{
		what = "arping announces " + addresses.front() + ", and VIRTUAL_IP is " + address;
	}
	else if (!interfaces.empty() && interfaces.front() != kServiceInterface && !raised.empty() &&
	         std::ranges::find(raised, interfaces.front()) == raised.end())
	{
		what = "arping announces on " + interfaces.front() + ", and the address is raised on " + raised.front();
	}
	if (!what.empty() && !findings.has("another-address-raised", kStartRole.key))
	{
		findings.warning(kStartRole.key,
		                 {"announced-elsewhere", what,
		                  "after a failover the clients go on sending to the other node until their ARP "
		                  "cache entries end: some 45 seconds with Linux",
		                  "give arping the address and the interface of the command that raises it"});
	}
}

void announcement(Findings& findings, const CommandText& command)
{
	const bool asks = command.matches(R"(\barping\b)");
	if (command.matches(R"(\barping\b[^;&|]*\s-[a-zA-Z]*[AUP]|\barpsend\b|\bsend_arp\b)") ||
	    !command.ownPrograms().empty() || command.asksService())
	{
		announced(findings, command);
		return;
	}
	findings.warning(
	    kStartRole.key,
	    {"no-gratuitous-arp",
	     asks ? "arping is called without -A or -U, so that it asks and announces nothing"
	          : "the command sends no gratuitous ARP",
	     "after a failover the clients and the gateway go on sending to the other node until their ARP cache entries "
	     "end: some 45 seconds with Linux",
	     "let it announce the address, in the background and silently: (while ip -4 -o addr show dev eth0 | "
	     "grep -q ADDRESS/; do arping -q -A -c 1 -w 1 -I eth0 ADDRESS; sleep 4; done) &"});
}

/// @return the words of the last simple command, which gets the program's name behind it
std::vector<std::string> lastCommand(const CommandText& command)
{
	const std::string& text = command.plain();
	std::istringstream words(text.substr(text.find_last_of(";&|({") + 1));
	return {std::istream_iterator<std::string>(words), {}};
}

void nameLost(Findings& findings, const CommandText& command)
{
	const std::string& plain = command.plain();
	const std::size_t end = plain.find_last_not_of(" \t");
	const bool separated =
	    end != std::string::npos && std::string_view(";&|").find(plain[end]) != std::string_view::npos;
	const std::string refusal = host::shellRefusal(command.text() + " name");
	std::string where;
	if (command.hasComment())
	{
		where = "becomes a part of the comment";
	}
	else if (separated)
	{
		where = "is run as a command of its own";
	}
	else if (!refusal.empty())
	{
		where = "is no shell command there: " + refusal;
	}
	if (!where.empty())
	{
		findings.error(kKillRole.key,
		               {"program-name-lost", "the program's name, appended behind the command, " + where,
		                kKillRole.useless, "let the command end in the program that kills: killall -q -9"});
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
		findings.error(kKillRole.key, {"kill-by-name", "kill takes process ids, and it gets a program's name",
		                               kKillRole.useless, "use killall -q -9"});
	}
	else if (pkill && hasOption(words, 'f'))
	{
		findings.warning(kKillRole.key,
		                 {"kills-by-command-line", "pkill -f looks at whole command lines",
		                  "everything that has the name in its arguments is killed too, an editor or this very command",
		                  "use killall -q -9, or pkill -9 -x"});
	}
	else if (pkill && !hasOption(words, 'x'))
	{
		findings.warning(kKillRole.key,
		                 {"kills-parts-of-names", "pkill without -x looks for parts of names",
		                  "other programs whose names contain it are killed too", "use killall -q -9, or pkill -9 -x"});
	}
}

/// What holds for each of the three.
/// @return false when there is no command to look into, which has been reported
bool general(Findings& findings, const CommandRole& role, const CommandText& command)
{
	if (command.text().empty())
	{
		findings.error(role.key, {"empty-command", std::string(role.key) + " is empty", emptyEffect(*findKey(role.key)),
		                          "write the command"});
		return false;
	}
	const bool nothing = command.plain().find_first_not_of(" \t") == std::string::npos && command.hasComment();
	const std::string why = nothing ? "nothing but a comment" : host::shellRefusal(command.text());
	if (!why.empty())
	{
		findings.error(role.key, {"broken-command", std::string(role.key) + " is no shell command: " + why,
		                          role.useless, "try the command in a shell: sh -n -c '...'"});
		return false;
	}
	pasted(findings, role, command.text());
	otherShell(findings, role, command);
	return true;
}

} // namespace

void commands(Findings& findings)
{
	for (const CommandRole* role : {&kStartRole, &kStopRole, &kKillRole})
	{
		const std::optional<std::string> text = findings.file.text(role->key);
		const CommandText command(text.value_or(""));
		if (!text || !general(findings, *role, command))
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
