#include "ctl/check/Checks.h"

#include <algorithm>
#include <array>
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

/// The command with which a shell script ends, as far as it is plain.
struct LastCommand
{
	std::vector<std::string> words;
	/// The line that it stands in.
	std::string line;
	/// What separates it from the command before it.
	std::string separator;
	bool inBackground = false;
	/// "wait" follows.
	bool waits = false;
	/// The script's process turns into the program.
	bool execs = false;
};

/// As behind the program that a script is for: "echo $! >pid; exit 0".
bool isTidyingUp(const std::vector<std::string>& words)
{
	constexpr std::array kWords{"exit", "return", "wait", "echo", "printf", "true", ":", "disown"};
	return std::ranges::find(kWords, words.front()) != kWords.end() || std::ranges::all_of(words, isAssignment);
}

LastCommand lastCommand(const std::string& script)
{
	static const Pattern kCommand("([^;&|]+)([;&|]*)");
	std::istringstream lines(script);
	LastCommand last;
	for (std::string line, more; std::getline(lines, line);)
	{
		const std::size_t begin = line.find_first_not_of(" \t");
		if (begin == std::string::npos || line[begin] == '#')
		{
			continue;
		}
		while (line.ends_with('\\') && std::getline(lines, more))
		{
			line.replace(line.size() - 1, 1, more);
		}
		line.resize(std::min(line.size(), kLineLength));
		const std::string plain = CommandText(line).plain();
		if (plain.find_first_not_of(" \t") == std::string::npos)
		{
			last = {}; // the end of a text in quotes
		}
		std::string separator;
		for (const Pattern::Groups& command : kCommand.all(plain))
		{
			std::istringstream text(command.at(1));
			const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
			if (!words.empty() && !isTidyingUp(words))
			{
				const auto first = std::ranges::find_if_not(words, isAssignment);
				last = {words, line, separator, command.at(2) == "&", false, *first == "exec"};
			}
			last.waits = last.waits || (!words.empty() && words.front() == "wait");
			separator = command.at(2);
		}
	}
	return last;
}

class ProgramFile
{
public:
	/// @param name what the agent looks for; empty for what the keeper runs, whose name is all the same
	/// @param effect of a program that does not start
	/// @param stays the keeper takes its end for the service's
	ProgramFile(Findings& findings, const Paths& paths, Place place, std::string name, fs::path file,
	            std::string effect, bool stays = false)
	    : m_paths(paths), m_findings(findings), m_place(std::move(place)), m_name(std::move(name)),
	      m_file(std::move(file)), m_effect(std::move(effect)), m_stays(stays)
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
		const std::string interpreter = interpreterOf(line);
		const bool named = !interpreter.starts_with('/') && line.find("/env") != std::string::npos;
		if (named ? toolPath(m_paths, interpreter).empty() : !isExecutable(m_paths.belowIfAny(interpreter)))
		{
			// The service may have been given another PATH.
			const bool sure = !named || interpreter.find(' ') != std::string::npos;
			add(sure ? Severity::error : Severity::warning,
			    {"missing-interpreter", m_file.string() + " is a script for " + interpreter + ", which is not there",
			     m_effect, "install " + interpreter + ", or correct the first line (env needs -S before arguments)"});
			return;
		}
		const std::string shell = baseName(interpreter);
		if (shell == "sh" || shell == "dash" || shell == "bash")
		{
			shellScript(text, shell);
		}
	}

	/// @param line what stands behind "#!"; behind env, all of the rest is one name unless -S splits it
	static std::string interpreterOf(const std::string& line)
	{
		static const Pattern kEnv(R"(\s*\S*/env\s+(-\S*S)?\s*([^-\s].*?)\s*)");
		const Pattern::Groups env = kEnv.matched(line);
		if (!env.empty() && env.at(1).empty())
		{
			return env.at(2);
		}
		std::istringstream text(env.empty() ? line : "env " + env.at(2));
		const InnerCommand inner = innerCommand({std::istream_iterator<std::string>(text), {}});
		return inner.words.empty() ? "/usr/bin/env" : inner.words.front();
	}

	void shellScript(const std::string& text, const std::string& shell)
	{
		// Half a script is no script, and patterns that need an option of bash are read at the run alone.
		const bool judged = text.size() < kScriptLength && text.find("extglob") == std::string::npos;
		if (const std::string refusal =
		        judged ? host::shellRefusal(text, shell == "bash" ? "/bin/bash" : "/bin/sh") : "";
		    !refusal.empty())
		{
			error("broken-script", m_file.string() + " is no shell script: " + refusal,
			      "try it: " + shell + " -n " + m_file.string());
			return;
		}
		const LastCommand last = lastCommand(text);
		const InnerCommand inner = innerCommand(last.words);
		const std::string program = inner.words.empty() ? "" : inner.words.front();
		if (m_stays && last.inBackground && !last.waits)
		{
			add(Severity::warning,
			    {"wrapper-without-exec", m_file.string() + " leaves its program in the background and ends",
			     "the end counts as the service's: it is started again, fails here and moves on, and what it left "
			     "may go on",
			     "let the script end in \"exec PROGRAM ARGUMENTS\", with the option that keeps it in the foreground"});
			return;
		}
		// A word that is not in the line was put together of variables and quotes.
		if (program.empty() || last.line.find(program) == std::string::npos ||
		    program.find_first_of("$*?[\"'`") != std::string::npos)
		{
			return;
		}
		if (last.execs && !inner.elsewhere && isMissing(program))
		{
			const bool sure =
			    program.starts_with('/') && last.separator != "||" && text.find("mount") == std::string::npos;
			add(sure ? Severity::error : Severity::warning,
			    {"missing-program-file", m_file.string() + " ends in exec " + program + ", which is missing", m_effect,
			     "install the program, or correct the script"});
			return;
		}
		wrapper(last, program);
	}

	/// A name alone is looked up where the service looks; the script may have a PATH of its own.
	bool isMissing(const std::string& program) const
	{
		return program.starts_with('/') ? host::fileFacts(m_paths.belowIfAny(program)).kind == FileKind::missing
		                                : program.find('/') == std::string::npos && toolPath(m_paths, program).empty();
	}

	/// A script that turns into a program of another name is lost from sight, and one that
	/// waits for such a program is killed without it.
	void wrapper(const LastCommand& last, const std::string& program)
	{
		const std::string shown = baseName(program).substr(0, kProcessNameLength);
		const auto isNamed = [&](const std::string& word) { return baseName(word).find(m_name) != std::string::npos; };
		if (std::ranges::any_of(last.words, isNamed))
		{
			return;
		}
		if (last.execs)
		{
			add(Severity::warning,
			    {"wrapper-of-another-name",
			     m_file.string() + " ends in exec " + program + ", which runs as \"" + shown + "\"",
			     "the agent looks for \"" + m_name + "\" and does not find it: the service moves to and fro",
			     "give the script the program's file name, in another directory"});
			return;
		}
		if (isService(last, program))
		{
			add(Severity::warning, {"wrapper-without-exec", m_file.string() + " ends in " + program + " without exec",
			                        "the kill command ends \"" + m_name + "\", the script, and \"" + shown +
			                            "\" goes on: after a failover it runs on both nodes",
			                        "write exec before it, and give the script the program's file name"});
		}
	}

	/// It is no word of the shell, and no everyday tool.
	bool isService(const LastCommand& last, const std::string& program) const
	{
		static const Pattern kInterpreter("java|python[0-9.]*|perl|node|ruby|php");
		static const Pattern kEveryday("awk|cat|chmod|chown|cp|date|grep|ip|killall|ln|logger|mkdir|mv|pkill|rm|sed|sh|"
		                               "sleep|sync|sysctl|systemctl|tee|touch|umount");
		return program.starts_with('/') || last.words.front() != program || !kInterpreter.matched(program).empty() ||
		       (kEveryday.matched(program).empty() && CommandText(program).programs().size() == 1 &&
		        program.find('/') == std::string::npos && !toolPath(m_paths, program).empty());
	}

	const Paths& m_paths;
	Findings& m_findings;
	Place m_place;
	std::string m_name;
	fs::path m_file;
	std::string m_effect;
	bool m_stays;
};

/// The keeper's copy acts by its name as well.
bool isKeeper(const fs::path& program, const fs::path& keeper)
{
	std::error_code error;
	return fs::equivalent(program, keeper, error) ||
	       (!fs::is_directory(program, error) && fs::file_size(program, error) == fs::file_size(keeper, error));
}

} // namespace

void programFiles(Findings& findings, const Paths& paths)
{
	int number = 0;
	for (const std::string& program : findings.file.programs())
	{
		++number;
		// What is no plain absolute path is reported by the check of the programs.
		const fs::path file = paths.belowIfAny(program);
		// The service makes the link to the keeper unless something that can be run is there. A keeper that
		// cannot run is reported with the commands.
		if (isKeepers(program) && !isExecutable(file) && host::fileFacts(file).kind != FileKind::directory)
		{
			continue;
		}
		if (isKeepers(program) && !isKeeper(file, paths.belowIfAny(kKeeper)))
		{
			findings.error(programKey(number), {"keeper-foreign-program", program + " is no link to the keeper",
			                                    "it runs in place of the service, without its user, checks and limits",
			                                    "remove it: the service makes the link at its start"});
			continue;
		}
		if (program.starts_with('/') && !program.ends_with('/') && program.find_first_of(" \t\"'") == std::string::npos)
		{
			ProgramFile(findings, paths, {findings.file.path(), findings.lineFor(programKey(number))},
			            programName(program), file,
			            "the program does not start: each node that becomes master gives up again, and the service "
			            "moves to and fro")
			    .check();
		}
	}
}

void serviceProgram(Findings& findings, const Paths& paths, const Place& place, const fs::path& file,
                    const std::string& effect, bool stays)
{
	ProgramFile(findings, paths, place, "", file, effect, stays).check();
}

} // namespace velarix::ctl::checks
