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
		const std::string plain = CommandText(line).plain;
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

struct FileCheck
{
	Findings& findings;
	const Paths& paths;
	const ProgramFile& target;

	void check() const
	{
		const FileFacts facts = host::fileFacts(target.file);
		if (facts.kind == FileKind::notKnown)
		{
			findings.notChecked(target.file.string(), "this user may not look there");
		}
		else if (facts.kind != FileKind::regular)
		{
			add(facts.kind == FileKind::missing ? "missing-program-file" : "not-a-program");
		}
		else
		{
			findings.addWhen(!isExecutable(target.file), "program-not-executable", target.place, target.file,
			                 target.effect);
			findings.addWhen(facts.noExec, "program-on-noexec", target.place, target.file, target.effect);
			content();
		}
	}

	template <typename... Values>
	void add(std::optional<Severity> severity, const char* entry, const Values&... values) const
	{
		findings.add(severity, entry, target.place, target.file, target.effect, values...);
	}

	template <typename... Values> void add(const char* entry, const Values&... values) const
	{
		add(std::nullopt, entry, values...);
	}

	void content() const
	{
		const std::string text = beginning(target.file);
		if (text.empty())
		{
			add("empty-program-file", "empty");
		}
		else if (!text.starts_with(ELFMAG))
		{
			script(text);
		}
		else if (isCut(text))
		{
			add("truncated-program", "only the beginning of a program");
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
		const std::uintmax_t size = fs::file_size(target.file, error);
		return !error && header.e_shoff + std::uintmax_t{header.e_shnum} * header.e_shentsize > size;
	}

	void script(const std::string& text) const
	{
		if (!text.starts_with("#!"))
		{
			add(target.name.empty() ? "script-without-interpreter" : "script-without-interpreter/named");
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
		if (named ? toolPath(paths, interpreter).empty() : !isExecutable(paths.belowIfAny(interpreter)))
		{
			// The service may have been given another PATH.
			const bool sure = !named || interpreter.find(' ') != std::string::npos;
			add(sure ? Severity::error : Severity::warning, "missing-interpreter", interpreter);
			return;
		}
		const std::string shell = programName(interpreter);
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

	void shellScript(const std::string& text, const std::string& shell) const
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
		if (target.stays && last.inBackground && !last.waits)
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
		if (last.execs && !inner.elsewhere && isLacking(program))
		{
			const bool sure =
			    program.starts_with('/') && last.separator != "||" && text.find("mount") == std::string::npos;
			add(sure ? Severity::error : Severity::warning, "missing-program-file/script", program);
			return;
		}
		wrapper(last, program);
	}

	/// A name alone is looked up where the service looks; the script may have a PATH of its own.
	bool isLacking(const std::string& program) const
	{
		return program.starts_with('/') ? isMissing(paths.belowIfAny(program))
		                                : program.find('/') == std::string::npos && toolPath(paths, program).empty();
	}

	/// A script that turns into a program of another name is lost from sight, and one that
	/// waits for such a program is killed without it.
	void wrapper(const LastCommand& last, const std::string& program) const
	{
		const std::string shown = programName(program).substr(0, kProcessNameLength);
		const auto isNamed = [&](const std::string& word)
		{ return programName(word).find(target.name) != std::string::npos; };
		if (std::ranges::any_of(last.words, isNamed))
		{
			return;
		}
		if (last.execs)
		{
			add("wrapper-of-another-name", program, shown, target.name);
			return;
		}
		if (isService(last, program))
		{
			add("wrapper-without-exec", program, target.name, shown);
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
		        program.find('/') == std::string::npos && !toolPath(paths, program).empty());
	}
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
			programFile(findings, paths,
			            {.file = file,
			             .place = findings.at(program.key),
			             .effect = "the program does not start: each node that becomes master gives up again, and the "
			                       "service moves to and fro",
			             .name = program.name});
		}
	}
}

void programFile(Findings& findings, const Paths& paths, const ProgramFile& program)
{
	FileCheck{findings, paths, program}.check();
}

} // namespace velarix::ctl::checks
