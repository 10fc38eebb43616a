#include "ctl/check/Checks.h"

#include <array>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/stat.h>

#include "ctl/check/ShellCommand.h"
#include "inspect/Host.h"
#include "inspect/Names.h"
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

std::string beginning(const fs::path& file)
{
	std::string text(kScriptLength, '\0');
	std::ifstream stream(file, std::ios::binary);
	stream.read(text.data(), static_cast<std::streamsize>(text.size()));
	text.resize(static_cast<std::size_t>(stream.gcount()));
	return text;
}

/// @return the program that a script turns into at its end; empty when it does not
std::string execOf(const std::string& script)
{
	std::istringstream lines(script);
	std::string program;
	for (std::string line; std::getline(lines, line);)
	{
		const shell::Script parsed = shell::parse(line);
		shell::forEachSimple(parsed,
		                     [&](const shell::Command& command, const shell::Place&)
		                     {
			                     if (command.words.size() > 1 && command.words[0] == "exec" &&
			                         !command.words[1].starts_with('-'))
			                     {
				                     program = command.words[1];
			                     }
		                     });
	}
	return program;
}

class ProgramFile
{
public:
	ProgramFile(Findings& findings, std::string key, const std::string& configured, fs::path file)
	    : m_findings(findings), m_key(std::move(key)), m_name(programName(configured)), m_file(std::move(file))
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
	void error(const std::string& id, const std::string& what, const std::string& remedy)
	{
		m_findings.error(m_key, {id, what,
		                         "the program does not start: each node that becomes master gives up again, and the "
		                         "service moves to and fro",
		                         remedy});
	}

	void rights(const FileFacts& facts)
	{
		if ((facts.mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0)
		{
			error("program-not-executable", m_file.string() + " is not executable", "chmod a+x " + m_file.string());
		}
		if ((facts.mode & S_IWOTH) != 0)
		{
			m_findings.warning(m_key,
			                   {"writable-program", "everybody may write " + m_file.string(),
			                    "it is run as root: whoever may write it is root", "chmod go-w " + m_file.string()});
		}
	}

	void content()
	{
		const std::string text = beginning(m_file);
		if (text.empty() || text.starts_with("\x7f"
		                                     "ELF"))
		{
			return;
		}
		if (!text.starts_with("#!"))
		{
			m_findings.error(
			    m_key, {"script-without-interpreter", m_file.string() + " is a script without \"#!\"",
			            "a shell runs it under the shell's own name, so that it is never found or killed: the service "
			            "moves to and fro",
			            "begin it with #!/bin/sh"});
			return;
		}
		wrapper(execOf(text));
	}

	/// A script that turns into a program of another name is lost from sight.
	void wrapper(const std::string& program)
	{
		const std::string shown = shell::baseName(program).substr(0, kProcessNameLength);
		if (shown.empty() || shown.find_first_of("$\"'`") != std::string::npos ||
		    shown.find(m_name) != std::string::npos)
		{
			return;
		}
		m_findings.warning(m_key,
		                   {"wrapper-of-another-name",
		                    m_file.string() + " ends in exec " + program + ", which runs as \"" + shown + "\"",
		                    "the agent looks for \"" + m_name + "\" and does not find it: the service moves to and fro",
		                    "give the script the program's file name, in another directory"});
	}

	Findings& m_findings;
	std::string m_key;
	std::string m_name;
	fs::path m_file;
};

} // namespace

void programFiles(Findings& findings, const Paths& paths)
{
	int number = 0;
	for (const std::string& program : findings.file.programs())
	{
		++number;
		// What is no plain absolute path is told by the check of the programs.
		if (program.starts_with('/') && !program.ends_with('/') && program.find_first_of(" \t\"'") == std::string::npos)
		{
			ProgramFile(findings, programKey(number), program, paths.below(program)).check();
		}
	}
}

} // namespace velarix::ctl::checks
