// What the texts of the three commands and of the programs' paths tell without running them.

#include <array>
#include <set>

#include "ctl/check/Checks.h"
#include "inspect/HostTrial.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

namespace
{

void otherAddress(Findings& findings, const CommandRole& role, const CommandText& command, bool raising)
{
	const std::string address = findings.valueOf(key::kVirtualIP);
	const std::vector<std::string> named = command.addresses(raising);
	// Where all commands are for one other address, that is one fault.
	if (isVirtualAddress(address) && !named.empty() && !contains(named, address) &&
	    (raising || !findings.has("another-address-raised", kStartRole.key) ||
	     commandOf(findings, key::kStartCommand).addresses(true).front() != named.front()))
	{
		findings.add(raising ? "another-address-raised" : "another-address-dropped", role.key, named.front(), address);
	}
}

/// The system drops an address only with the prefix that it has. Reported once.
void otherPrefix(Findings& findings, const CommandRole& role, const CommandText& command)
{
	const std::string address = findings.valueOf(key::kVirtualIP);
	const int raised = commandOf(findings, key::kStartCommand).prefixOf(address).value_or(-1);
	const int dropped = command.prefixOf(address).value_or(-1);
	findings.addWhen(!address.empty() && raised >= 0 && dropped >= 0 && raised != dropped &&
	                     !findings.has("another-prefix-dropped", kStopRole.key),
	                 "another-prefix-dropped", role.key, address, dropped, raised);
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
		findings.add("announced-elsewhere", kStartRole.key, addresses.front(), "VIRTUAL_IP is " + address);
	}
	else if (!interfaces.empty() && interfaces.front() != kServiceInterface && !raised.empty() &&
	         !contains(raised, interfaces.front()))
	{
		findings.add("announced-elsewhere", kStartRole.key, "on " + interfaces.front(),
		             "the address is raised on " + raised.front());
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
	findings.add("no-gratuitous-arp", kStartRole.key,
	             command.matches(R"(\barping\b)")
	                 ? "arping is called without -A or -U, so that it asks and announces nothing"
	                 : "the command sends no gratuitous ARP");
}

void nameLost(Findings& findings, const CommandText& command)
{
	const std::string& plain = command.plain;
	const std::size_t end = plain.find_last_not_of(" \t");
	std::string lost;
	if (command.hasComment)
	{
		lost = "becomes a part of the comment";
	}
	else if (end != std::string::npos && std::string_view(";&|").find(plain[end]) != std::string_view::npos)
	{
		lost = "is run as a command of its own";
	}
	else if (const std::string refusal = host::shellRefusal(command.text + " name"); !refusal.empty())
	{
		lost = "is no shell command there: " + refusal;
	}
	findings.addWhen(!lost.empty(), "program-name-lost", kKillRole.key, lost);
}

/// "-9f" and "-f"
bool hasOption(const std::vector<std::string>& words, char option)
{
	return std::ranges::any_of(words, [&](const std::string& word)
	                           { return word.size() > 1 && word[0] == '-' && word.find(option) != std::string::npos; });
}

void killer(Findings& findings, const CommandText& command)
{
	// The last simple command gets the program's name behind it.
	const std::string& text = command.plain;
	const std::vector<std::string> words = innerCommand(wordsOf(text.substr(text.find_last_of(";&|({") + 1))).words;
	const auto calls = [&](const char* name) { return !words.empty() && programName(words.front()) == name; };
	const bool whole = calls("pkill") && hasOption(words, 'f');
	findings.addWhen(calls("kill") && (words.front() == "kill" || words.front().ends_with("/bin/kill")), "kill-by-name",
	                 kKillRole.key);
	findings.addWhen(whole, "kills-by-command-line", kKillRole.key);
	findings.addWhen(calls("pkill") && !whole && !hasOption(words, 'x'), "kills-parts-of-names", kKillRole.key);
}

/// What holds for each of the three.
/// @return false when there is no command to look into, which has been reported
bool general(Findings& findings, const CommandRole& role, const CommandText& command)
{
	if (command.text.empty())
	{
		findings.add("empty-command", role.key, emptyEffect(*findKey(role.key)));
		return false;
	}
	const bool nothing = command.plain.find_first_not_of(" \t") == std::string::npos && command.hasComment;
	const std::string why = nothing ? "nothing but a comment" : host::shellRefusal(command.text);
	if (!why.empty())
	{
		findings.add("broken-command", role.key, why, role.useless);
		return false;
	}
	findings.addWhen(withoutPasted(command.text) != command.text, "pasted-characters/command", role.key, role.useless);
	// Only some shells know it.
	findings.addWhen(command.text.find("&>") != std::string::npos, "shell-of-its-own", role.key);
	return true;
}

/// What stands before the name in the line that the agent searches.
constexpr std::string_view kStatusFront = "Name:\t";

/// Whose processes are everywhere.
constexpr std::array kInterpreters{"sh", "bash", "dash", "perl", "python", "python3", "java", "node", "ruby", "php"};

bool hasBlank(const std::string& text)
{
	return text.find_first_of(" \t") != std::string::npos;
}

void path(Findings& findings, const Program& program)
{
	const bool bare = program.path.find('/') == std::string::npos;
	findings.addWhen(program.path.front() != '/', bare ? "program-without-directory" : "relative-program", program.key,
	                 program.path);
	if (const std::size_t at = program.path.find_first_of("$`\"'\\|&;<>()*?[]{}~!#"); at != std::string::npos)
	{
		findings.add("shell-character-in-program", program.key, program.path.substr(at, 1));
	}
}

/// @return what is wrong with the name that the agent looks for; null for nothing
const char* nameFault(const std::string& name)
{
	return name.size() > kProcessNameLength                    ? "long-program-name"
	       : kStatusFront.find(name) != std::string_view::npos ? "name-in-every-process"
	       : contains(kInterpreters, name)                     ? "name-of-an-interpreter"
	       : kAgentName.find(name) != std::string_view::npos   ? "name-of-the-agent"
	                                                           : nullptr;
}

/// The start command leaves a shell and what it calls behind.
std::set<std::string> helpersOf(const Findings& findings)
{
	std::set<std::string> helpers{"sh"};
	for (const std::string& called : commandOf(findings, key::kStartCommand).programs())
	{
		helpers.insert(programName(called).substr(0, kProcessNameLength));
	}
	return helpers;
}

void one(Findings& findings, const Program& program, const std::set<std::string>& helpers)
{
	if (program.name.empty())
	{
		program.path.empty() ? findings.add("empty-program", program.key, emptyEffect(*findKey(program.key)))
		                     : findings.add("program-is-a-directory", program.key);
		return;
	}
	if (hasBlank(program.path))
	{
		// "cd DIRECTORY" and "PROGRAM &" are what the run script gets.
		const std::string directory = program.path.substr(0, program.path.rfind('/') + 1);
		const std::string script = programName(program.path.substr(0, program.path.find_first_of(" \t")));
		findings.add(hasBlank(directory) ? "argument-with-slash" : "program-with-arguments", program.key, program.name,
		             script, directory);
		return;
	}
	path(findings, program);
	const char* fault = nameFault(program.name);
	const auto helper = std::ranges::find_if(helpers, [&](const std::string& name)
	                                         { return name.find(program.name) != std::string::npos; });
	if (fault != nullptr)
	{
		findings.add(fault, program.key, program.name, program.name.size());
	}
	if (helper != helpers.end() && !findings.has("name-of-an-interpreter", program.key))
	{
		findings.add("name-of-a-helper", program.key, program.name, *helper);
	}
}

/// One program's process counts once for every configured name that it contains.
void within(Findings& findings, const Program& inner, const Program& outer)
{
	findings.addWhen(!inner.name.empty() && !hasBlank(inner.path) && outer.name.find(inner.name) != std::string::npos,
	                 inner.name == outer.name ? "same-name" : "name-within-a-name", inner.key, outer.key, inner.name,
	                 outer.name);
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

std::vector<Program> programsOf(const Findings& findings)
{
	std::vector<Program> result;
	for (const std::string& path : findings.file.programs())
	{
		result.push_back({programKey(static_cast<int>(result.size()) + 1), path, programName(path)});
	}
	return result;
}

void programs(Findings& findings)
{
	const std::vector<Program> all = programsOf(findings);
	const std::set<std::string> helpers = helpersOf(findings);
	for (auto left = all.begin(); left != all.end(); ++left)
	{
		one(findings, *left, helpers);
		for (auto right = left + 1; right != all.end(); ++right)
		{
			const bool inOrder = left->name.size() <= right->name.size();
			within(findings, inOrder ? *left : *right, inOrder ? *right : *left);
		}
	}
}

} // namespace velarix::ctl::checks
