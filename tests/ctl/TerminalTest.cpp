// The program itself on a terminal, and on none: colours and the redrawing.

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace
{

/// The arguments look for the node's files in a directory that has none.
std::vector<std::string> commandLine(const std::vector<std::string>& arguments)
{
	std::vector<std::string> all{VELARIX_CTL_PROGRAM, "--root", std::filesystem::temp_directory_path().string()};
	all.insert(all.end(), arguments.begin(), arguments.end());
	return all;
}

[[noreturn]] void execute(const std::vector<std::string>& arguments, const char* noColour)
{
	noColour == nullptr ? ::unsetenv("NO_COLOR") : ::setenv("NO_COLOR", noColour, 1);
	std::vector<std::string> words = commandLine(arguments);
	std::vector<char*> pointers;
	for (std::string& word : words)
	{
		pointers.push_back(word.data());
	}
	pointers.push_back(nullptr);
	::execv(pointers[0], pointers.data());
	::_exit(127);
}

std::string readToEnd(int descriptor, pid_t child)
{
	std::string text;
	std::array<char, 4096> piece{};
	for (ssize_t count = 0; (count = ::read(descriptor, piece.data(), piece.size())) > 0;)
	{
		text.append(piece.data(), static_cast<std::size_t>(count));
	}
	::close(descriptor);
	::waitpid(child, nullptr, 0);
	return text;
}

/// @param noColour value of NO_COLOR; null: not set
std::string onTerminal(const std::vector<std::string>& arguments, const char* noColour = nullptr)
{
	int terminal = -1;
	const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
	if (child == 0)
	{
		execute(arguments, noColour);
	}
	return readToEnd(terminal, child);
}

std::string intoPipe(const std::vector<std::string>& arguments)
{
	std::array<int, 2> ends{};
	EXPECT_EQ(::pipe(ends.data()), 0);
	const pid_t child = ::fork();
	if (child == 0)
	{
		::dup2(ends[1], STDOUT_FILENO);
		execute(arguments, nullptr);
	}
	::close(ends[1]);
	return readToEnd(ends[0], child);
}

} // namespace

TEST(Terminal, GetsColoursUnlessTheyAreNotWanted)
{
	EXPECT_THAT(onTerminal({"status"}), HasSubstr("role         \033[33mnot known"));
	EXPECT_THAT(onTerminal({"status"}, ""), HasSubstr("\033["));
	EXPECT_THAT(onTerminal({"status"}, "1"), HasSubstr("role         not known"));
	EXPECT_THAT(onTerminal({"status"}, "1"), Not(HasSubstr("\033[")));
}

TEST(Terminal, IsRedrawnAlsoWithoutColours)
{
	EXPECT_THAT(onTerminal({"watch", "--count", "1"}), StartsWith("\033[H"));
	const std::string plain = onTerminal({"watch", "--count", "1"}, "1");
	EXPECT_THAT(plain, StartsWith("\033[H"));
	EXPECT_THAT(plain, Not(HasSubstr("\033[3")));
}

TEST(Terminal, IsNotAssumedBehindAPipe)
{
	EXPECT_THAT(intoPipe({"status"}), Not(HasSubstr("\033")));
	EXPECT_THAT(intoPipe({"watch", "--count", "1"}), Not(HasSubstr("\033")));
}
