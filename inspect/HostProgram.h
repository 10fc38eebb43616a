/// Running another program to its end, or to the end of its time.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace velarix::inspect::host
{

struct ProgramCall
{
	/// The program first; without a slash it is looked for in PATH.
	std::vector<std::string> arguments;
	/// "NAME=value", beside this program's own environment and in place of the same name there.
	std::vector<std::string> environment{};
	/// What it reads from standard input.
	std::string input{};
	/// Ten seconds by default. After it the program and all that it has left in its process group are killed.
	std::chrono::milliseconds limit{10000};
	/// What it prints goes to our standard error, and is not kept.
	bool shown = false;
};

struct ProgramEnd
{
	static constexpr int kNotStarted = 127;

	/// The exit status; kNotStarted when it could not be started, 128 and the number of the
	/// signal that ended it.
	int status = 0;
	bool inTime = true;
	/// What it has printed, up to 16 MB.
	std::string output;
	/// The same of standard error, up to 4 KB.
	std::string errors;

	bool fine() const { return inTime && status == 0; }
	/// @return why it is not fine, with the last line of its errors: "ended with 1: no such host"
	std::string reason() const;
};

/// The program is the head of a process group of its own. When its time has passed all of
/// the group is killed; what a program that ends in time leaves behind goes on, as a mail
/// program's delivery must. Only for programs of one thread.
ProgramEnd runProgram(const ProgramCall& call);

/// @return what a tool of the system prints; nothing when it fails or takes longer than 10 s
std::string outputOf(const std::vector<std::string>& arguments, const std::string& input = {});

/// From now on SIGTERM ends this process and the process group of the running program.
void endWithProgram();

} // namespace velarix::inspect::host
