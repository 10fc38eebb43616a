#include "ctl/check/Checks.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <elf.h>
#include <sys/stat.h>

#include "ctl/Keeper.h"
#include "ctl/check/CommandText.h"
#include "inspect/Host.h"
#include "inspect/HostTrial.h"
#include "inspect/Names.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

using namespace inspect;

namespace
{

namespace fs = std::filesystem;
using host::FileFacts;
using host::FileKind;

/// Of a script more than this is not looked at.
constexpr std::size_t kScriptLength = 65536;
constexpr std::size_t kLineLength = 1024;

std::string beginning(const fs::path& file)
{
	std::string text(kScriptLength, '\0');
	std::ifstream stream(file, std::ios::binary);
	stream.read(text.data(), static_cast<std::streamsize>(text.size()));
	text.resize(static_cast<std::size_t>(stream.gcount()));
	return text;
}

/// @return the words of the command with which a shell script ends, without "exec" and
///         what stands behind a separator; empty for none that is plain
std::vector<std::string> lastWords(const std::string& script, bool& execs)
{
	static const Pattern kExec(R"((?:^|[\s;&|])exec\s+([^;&|<>]+))");
	static const Pattern kPlain(
	    R"(^\s*((?:/|(?:nohup|setsid|env|nice|ionice|setpriv|runuser|sudo|chroot|java|python3?|perl|node|ruby)\s)[^;&|<>]*))");
	std::istringstream lines(script);
	std::string text;
	for (std::string line; std::getline(lines, line);)
	{
		const std::string shown = line.substr(0, kLineLength);
		if (shown.find_first_not_of(" \t") == std::string::npos || shown[shown.find_first_not_of(" \t")] == '#')
		{
			continue;
		}
		Pattern::Groups command = kExec.found(shown);
		execs = !command.empty();
		command = execs ? command : kPlain.found(shown);
		text = command.empty() ? "" : command[1];
	}
	std::istringstream words(text);
	return {std::istream_iterator<std::string>(words), {}};
}

/// It begins with the directory in which the program is looked for.
bool hasChroot(const std::vector<std::string>& words)
{
	return std::ranges::find(words, "chroot", baseName) != words.end();
}

/// @return the program among the words: "setpriv --reuid=1 /opt/x/server" runs server
std::string programOf(const std::vector<std::string>& words)
{
	const auto isPath = [](const std::string& word) { return word.starts_with('/'); };
	auto path = std::ranges::find_if(words, isPath);
	if (path != words.end() && hasChroot(words))
	{
		path = std::find_if(path + 1, words.end(), isPath);
	}
	if (path != words.end())
	{
		return *path;
	}
	const auto plain = std::ranges::find_if(words, [](const std::string& word) { return !word.starts_with('-'); });
	return plain == words.end() ? "" : *plain;
}

class ProgramFile
{
public:
	/// @param name what the agent looks for; empty for what the keeper runs, whose name is all the same
	/// @param effect of a program that does not start
	ProgramFile(Findings& findings, const Paths& paths, Place place, std::string name, fs::path file,
	            std::string effect)
	    : m_paths(paths), m_findings(findings), m_place(std::move(place)), m_name(std::move(name)),
	      m_file(std::move(file)), m_effect(std::move(effect))
	{
	}

	void check()
	{
		const FileFacts facts = host::fileFacts(m_file);
		switch (facts.kind)
		{
		case FileKind::notKnown:
			m_findings.notChecked(m_file.string(), "this user may not look there");
			return;
		case FileKind::missing:
			error("missing-program-file", m_file.string() + " is missing", "install the program, or correct the path");
			return;
		case FileKind::directory:
		case FileKind::other:
			error("not-a-program", m_file.string() + " is no ordinary file", "write the program's path");
			return;
		case FileKind::regular:
			break;
		}
		rights(facts);
		content();
	}

private:
	void add(Severity severity, Words words) { m_findings.add(severity, m_place.file, m_place.line, std::move(words)); }

	void error(const std::string& id, const std::string& what, const std::string& remedy)
	{
		add(Severity::error, {id, what, m_effect, remedy});
	}

	void rights(const FileFacts& facts)
	{
		if ((facts.mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0)
		{
			error("program-not-executable", m_file.string() + " is not executable", "chmod a+x " + m_file.string());
		}
		if (facts.noExec)
		{
			error("program-on-noexec", m_file.string() + " is on a file system that is mounted \"noexec\"",
			      "move the program, or mount the file system without noexec");
		}
	}

	void content()
	{
		const std::string text = beginning(m_file);
		if (text.empty())
		{
			error("empty-program-file", m_file.string() + " is empty", "install the program again");
		}
		else if (!text.starts_with(ELFMAG))
		{
			script(text);
		}
		else if (isCut(text))
		{
			error("truncated-program", m_file.string() + " is only the beginning of a program",
			      "install the program again");
		}
	}

	/// A program ends in the table of its sections, as the compiler makes it.
	bool isCut(const std::string& text) const
	{
		Elf64_Ehdr header{};
		if (text.size() < sizeof header || text[EI_CLASS] != ELFCLASS64)
		{
			return false;
		}
		std::memcpy(&header, text.data(), sizeof header);
		std::error_code error;
		const std::uintmax_t size = fs::file_size(m_file, error);
		return !error && header.e_shoff + std::uintmax_t{header.e_shnum} * header.e_shentsize > size;
	}

	void script(const std::string& text)
	{
		if (!text.starts_with("#!"))
		{
			add(Severity::error, {"script-without-interpreter", m_file.string() + " is a script without \"#!\"",
			                      m_name.empty() ? m_effect
			                                     : "a shell runs it under the shell's own name, so that it is never "
			                                       "found or killed: the service moves to and fro",
			                      "begin it with #!/bin/sh"});
			return;
		}
		const std::string line = text.substr(2, text.find('\n') - 2);
		if (line.ends_with('\r'))
		{
			error("missing-interpreter",
			      m_file.string() +
			          " has lines that end in CR LF, as Windows writes them: its interpreter is not found",
			      "sed -i 's/\\r$//' " + m_file.string());
			return;
		}
		std::istringstream first(line);
		std::string interpreter;
		first >> interpreter;
		if (!isExecutable(m_paths.belowIfAny(interpreter)))
		{
			error("missing-interpreter", m_file.string() + " is a script for " + interpreter + ", which is not there",
			      "install " + interpreter + ", or correct the first line");
			return;
		}
		const std::string shell = baseName(interpreter);
		if (shell == "sh" || shell == "dash" || shell == "bash")
		{
			shellScript(text, shell);
		}
	}

	void shellScript(const std::string& text, const std::string& shell)
	{
		// Another shell's grammar is not this one's, and half a script is no script.
		const bool judged = shell != "bash" && text.size() < kScriptLength;
		if (const std::string refusal = judged ? host::shellRefusal(text) : ""; !refusal.empty())
		{
			error("broken-script", m_file.string() + " is no shell script: " + refusal,
			      "try it: sh -n " + m_file.string());
			return;
		}
		bool execs = false;
		const std::vector<std::string> words = lastWords(text, execs);
		const std::string program = programOf(words);
		if (execs && program.starts_with('/') && !hasChroot(words) &&
		    program.find_first_of("$*?[\"'`") == std::string::npos &&
		    host::fileFacts(m_paths.belowIfAny(program)).kind == FileKind::missing)
		{
			error("missing-program-file", m_file.string() + " ends in exec " + program + ", which is missing",
			      "install the program, or correct the script");
			return;
		}
		wrapper(words, program, execs);
	}

	/// A script that turns into a program of another name is lost from sight, and one that
	/// waits for such a program is killed without it.
	void wrapper(const std::vector<std::string>& words, const std::string& program, bool execs)
	{
		const bool same = std::ranges::any_of(words, [&](const std::string& word)
		                                      { return baseName(word).find(m_name) != std::string::npos; });
		const std::string shown = baseName(program).substr(0, kProcessNameLength);
		if (shown.empty() || same || program.find_first_of("$\"'`") != std::string::npos)
		{
			return;
		}
		if (execs)
		{
			add(Severity::warning,
			    {"wrapper-of-another-name",
			     m_file.string() + " ends in exec " + program + ", which runs as \"" + shown + "\"",
			     "the agent looks for \"" + m_name + "\" and does not find it: the service moves to and fro",
			     "give the script the program's file name, in another directory"});
			return;
		}
		add(Severity::warning, {"wrapper-without-exec", m_file.string() + " ends in " + program + " without exec",
		                        "the kill command ends \"" + m_name + "\", the script, and \"" + shown +
		                            "\" goes on: after a failover it runs on both nodes",
		                        "write exec before it, and give the script the program's file name"});
	}

	const Paths& m_paths;
	Findings& m_findings;
	Place m_place;
	std::string m_name;
	fs::path m_file;
	std::string m_effect;
};

} // namespace

void programFiles(Findings& findings, const Paths& paths)
{
	int number = 0;
	for (const std::string& program : findings.file.programs())
	{
		++number;
		// What is no plain absolute path is reported by the check of the programs.
		// A missing link to the keeper is reported with keeper.ini; the service makes it. A keeper that
		// cannot run is reported with the commands.
		if (isKeepers(program) && (host::fileFacts(paths.belowIfAny(program)).kind == FileKind::missing ||
		                           !isExecutable(paths.belowIfAny(kKeeper))))
		{
			continue;
		}
		if (program.starts_with('/') && !program.ends_with('/') && program.find_first_of(" \t\"'") == std::string::npos)
		{
			ProgramFile(findings, paths, {findings.file.path(), findings.lineFor(programKey(number))},
			            programName(program), paths.belowIfAny(program),
			            "the program does not start: each node that becomes master gives up again, and the service "
			            "moves to and fro")
			    .check();
		}
	}
}

void serviceProgram(Findings& findings, const Paths& paths, const Place& place, const fs::path& file,
                    const std::string& effect)
{
	ProgramFile(findings, paths, place, "", file, effect).check();
}

} // namespace velarix::ctl::checks
