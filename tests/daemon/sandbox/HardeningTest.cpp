// The protections of the programs as they are shipped, seen in the linked programs
// and, where a program does not show it, in the commands that compiled them. Builds
// with a sanitizer come without them.

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ToolOutput.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace
{

/// A program that is installed, by its path.
class Hardening : public testing::TestWithParam<std::string>
{
protected:
	static std::string report(const std::string& tool) { return outputOf(tool + " " + GetParam()); }
};

TEST_P(Hardening, ItCanBeLoadedAtAnyAddress)
{
	EXPECT_THAT(report("readelf -hW"), ContainsRegex("Type:[ ]+DYN"));
	EXPECT_THAT(report("readelf -dW"), ContainsRegex("FLAGS_1[^\n]*PIE"));
}

TEST_P(Hardening, TheRelocatedTablesAreReadOnly)
{
	EXPECT_THAT(report("readelf -lW"), HasSubstr("GNU_RELRO"));
}

TEST_P(Hardening, EverySymbolIsBoundBeforeTheStart)
{
	EXPECT_THAT(report("readelf -dW"), ContainsRegex("FLAGS_1[^\n]*NOW"));
}

TEST_P(Hardening, NothingOnTheStackIsExecuted)
{
	EXPECT_THAT(report("readelf -lW"), ContainsRegex("GNU_STACK[^\n]* RW "));
}

TEST_P(Hardening, NoPartIsWrittenAndExecuted)
{
	EXPECT_THAT(report("readelf -lW"), Not(ContainsRegex("LOAD[^\n]* RWE ")));
}

TEST_P(Hardening, TheStackIsGuarded)
{
	EXPECT_THAT(report("readelf --dyn-syms -W"), HasSubstr("__stack_chk_fail"));
}

#if defined(VELARIX_OPTIMISED)
TEST_P(Hardening, TheLibrarysCheckedFunctionsAreUsed)
{
	// The program that releases the service calls none that has a checked form.
	if (!GetParam().ends_with("/release"))
	{
		EXPECT_THAT(report("readelf --dyn-syms -W"), ContainsRegex("__[a-z]+_chk@"));
	}
}
#endif

#if defined(__x86_64__)
TEST_P(Hardening, TheBeginningOfAFunctionIsMarkedForIndirectJumps)
{
	EXPECT_THAT(report("objdump -d --disassemble=main"), ContainsRegex("<main>:\n[^\n]*endbr64"));
}
#endif

std::vector<std::string> programs()
{
	std::istringstream stream(VELARIX_PROGRAMS);
	std::vector<std::string> paths;
	for (std::string path; std::getline(stream, path, ':');)
	{
		paths.push_back(path);
	}
	return paths;
}

std::string nameOf(const testing::TestParamInfo<std::string>& info)
{
	std::string name = info.param.substr(info.param.rfind('/') + 1);
	return name;
}

INSTANTIATE_TEST_SUITE_P(Program, Hardening, testing::ValuesIn(programs()), nameOf);

/// The command that compiles each source file of what is installed.
std::vector<std::string> compileCommands()
{
	std::ifstream stream(VELARIX_COMPILE_COMMANDS);
	std::vector<std::string> commands;
	for (std::string line; std::getline(stream, line);)
	{
		// The tests compile some of the sources once more for themselves.
		const bool installed = line.find(" -o src/") != std::string::npos ||
		                       line.find(" -o inspect/") != std::string::npos ||
		                       line.find(" -o ctl/") != std::string::npos;
		if (installed && line.find("\"command\"") != std::string::npos)
		{
			commands.push_back(line);
		}
	}
	return commands;
}

TEST(HardeningCommands, EverySourceIsCompiledWithAllOfIt)
{
	std::vector<std::string> wanted{" -fPIE ", " -fstack-protector-strong ", " -fstack-clash-protection "};
#if defined(VELARIX_OPTIMISED)
	wanted.emplace_back(" -D_FORTIFY_SOURCE=3 ");
#endif
#if defined(__x86_64__)
	wanted.emplace_back(" -fcf-protection=full ");
#endif
	const std::vector<std::string> commands = compileCommands();
	EXPECT_GT(commands.size(), 25U);
	for (const std::string& command : commands)
	{
		for (const std::string& option : wanted)
		{
			EXPECT_THAT(command, HasSubstr(option));
		}
	}
}

} // namespace
