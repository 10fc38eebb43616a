#include "ctl/check/Checks.h"

#include <array>
#include <cstring>
#include <fstream>
#include <sstream>
#include <system_error>

#include <elf.h>
#include <sys/stat.h>

#include "ctl/Keeper.h"
#include "inspect/HostTrial.h"
#include "inspect/Names.h"
#include "inspect/Pattern.h"
#include "inspect/SettingsKeys.h"

namespace velarix::ctl::checks
{

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
	return contains(kWords, words.front()) || std::ranges::all_of(words, isAssignment);
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
			const std::vector<std::string> words = wordsOf(command.at(1));
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
		if (facts.kind == FileKind::notKnown)
		{
			m_findings.notChecked(m_file.string(), "this user may not look there");
		}
		else if (facts.kind != FileKind::regular)
		{
			add(facts.kind == FileKind::missing ? "missing-program-file" : "not-a-program");
		}
		else
		{
			addWhen((facts.mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0, "program-not-executable");
			addWhen(facts.noExec, "program-on-noexec");
			content();
		}
	}

private:
	template <typename... Values> void add(const char* entry, const Values&... values)
	{
		m_findings.add(entry, m_place, m_file, m_effect, values...);
	}

	template <typename... Values> void addWhen(bool is, const char* entry, const Values&... values)
	{
		m_findings.addWhen(is, entry, m_place, m_file, m_effect, values...);
	}

	void content()
	{
		const std::string text = beginning(m_file);
		if (text.empty())
		{
			add("empty-program-file");
		}
		else if (!text.starts_with(ELFMAG))
		{
			script(text);
		}
		else if (isCut(text))
		{
			add("truncated-program");
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
			add(m_name.empty() ? "script-without-interpreter" : "script-without-interpreter/named");
			return;
		}
		const std::string line = text.substr(2, text.find('\n') - 2);
		if (line.ends_with('\r'))
		{
			add("missing-interpreter/crlf");
			return;
		}
		const std::string interpreter = interpreterOf(line);
		const bool named = !interpreter.starts_with('/') && line.find("/env") != std::string::npos;
		if (named ? toolPath(m_paths, interpreter).empty() : !isExecutable(m_paths.belowIfAny(interpreter)))
		{
			// The service may have been given another PATH.
			const bool sure = !named || interpreter.find(' ') != std::string::npos;
			m_findings.add(sure ? Severity::error : Severity::warning, "missing-interpreter", m_place, m_file, m_effect,
			               interpreter);
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
		const InnerCommand inner = innerCommand(wordsOf(env.empty() ? line : "env " + env.at(2)));
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
			add("broken-script", refusal, shell);
			return;
		}
		const LastCommand last = lastCommand(text);
		const InnerCommand inner = innerCommand(last.words);
		const std::string program = inner.words.empty() ? "" : inner.words.front();
		if (m_stays && last.inBackground && !last.waits)
		{
			add("wrapper-without-exec/background");
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
			m_findings.add(sure ? Severity::error : Severity::warning, "missing-program-file/script", m_place, m_file,
			               m_effect, program);
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
			add("wrapper-of-another-name", program, shown, m_name);
			return;
		}
		addWhen(isService(last, program), "wrapper-without-exec", program, m_name, shown);
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
	for (const Program& program : programsOf(findings))
	{
		// What is no plain absolute path is reported by the check of the programs.
		const fs::path file = paths.belowIfAny(program.path);
		// The service makes the link to the keeper unless something that can be run is there. A keeper that
		// cannot run is reported with the commands.
		if (isKeepers(program.path) && !isExecutable(file) && host::fileFacts(file).kind != FileKind::directory)
		{
			continue;
		}
		if (isKeepers(program.path) && !isKeeper(file, paths.belowIfAny(kKeeper)))
		{
			findings.add("keeper-foreign-program/link", program.key, program.path);
		}
		else if (program.isPlain())
		{
			ProgramFile(findings, paths, findings.at(program.key), program.name, file,
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
