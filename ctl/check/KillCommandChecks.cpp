// The command that kills programs.

#include "ctl/check/Checks.h"

#include "ctl/check/CommandChecks.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

using shell::Command;
using shell::Place;

/// Stands for a program's name behind the kill command.
constexpr char kNameBehind[] = "VELARIX_PROGRAM_NAME";

/// The simple command that gets the program's name, and where in it.
struct Killer
{
	std::vector<std::string> words;
	std::size_t at = 0;
};

std::optional<Killer> killerOf(const shell::Script& script)
{
	std::optional<Killer> killer;
	shell::forEachSimple(script,
	                     [&](const Command& command, const Place&)
	                     {
		                     const std::vector<std::string> words = shell::programWords(command);
		                     for (std::size_t i = 0; i < words.size(); ++i)
		                     {
			                     if (words[i] == kNameBehind)
			                     {
				                     killer = Killer{words, i};
			                     }
		                     }
	                     });
	return killer;
}

void killer(Findings& findings)
{
	const std::string text = findings.file.text(key::kKillCommand).value_or("");
	const std::optional<Killer> killer = killerOf(shell::parse(text + " " + kNameBehind));
	if (!killer || killer->at == 0)
	{
		findings.error(kKillRole.key,
		               {"program-name-lost",
		                std::string("the program's name, appended behind the command, ") +
		                    (killer ? "is run as a command of its own" : "does not reach any program"),
		                kKillRole.useless, "let the command end in the program that kills: killall -q -9"});
		return;
	}
	const std::string program = shell::baseName(killer->words[0]);
	if (program == "kill")
	{
		findings.error(kKillRole.key, {"kill-by-name", "kill takes process ids, and it gets a program's name",
		                               kKillRole.useless, "use killall -q -9"});
	}
	else if (program == "pkill" && shell::hasOption(killer->words, 'f'))
	{
		findings.warning(kKillRole.key,
		                 {"kills-by-command-line", "pkill -f looks at whole command lines",
		                  "everything that has the name in its arguments is killed too, an editor or this very command",
		                  "use killall -q -9, or pkill -9 -x"});
	}
	else if (program == "pkill" && !shell::hasOption(killer->words, 'x'))
	{
		findings.warning(kKillRole.key,
		                 {"kills-parts-of-names", "pkill without -x looks for parts of names",
		                  "other programs whose names contain it are killed too", "use killall -q -9, or pkill -9 -x"});
	}
}

} // namespace

void killCommand(Findings& findings)
{
	const CommandText text(findings, kKillRole);
	if (!text.usable())
	{
		return;
	}
	text.general();
	killer(findings);
	droppedAddress(findings, kKillRole, text);
	if (text.actions(false).empty() && text.hasNothingToDoWithAddress())
	{
		findings.warning(
		    kKillRole.key,
		    {"kill-keeps-address", "the kill command leaves the virtual IP in place",
		     "a master that gives up because its pings fail does not drop the address otherwise: both nodes "
		     "hold it until someone drops it by hand",
		     "put the stop command and \";\" in front of it; every start raises the address again"});
	}
}

} // namespace velarix::ctl::checks
