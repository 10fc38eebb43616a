// What the linked programs need from the system that they are installed on, and their
// protections as they are shipped, seen in the programs and, where a program does not show it,
// in the commands that compiled them. Builds with a sanitizer come without the protections.

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace
{

/// @return what the command prints
std::string outputOf(const std::string& command)
{
	std::FILE* const pipe = ::popen(command.c_str(), "r");
	std::string output;
	for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;)
	{
		output += static_cast<char>(c);
	}
	EXPECT_EQ(pipe == nullptr ? -1 : ::pclose(pipe), 0) << command;
	return output;
}

/// What is in a tool's report about a program, or is not.
struct Property
{
	const char* tool;
	const char* pattern;
	bool there;
};

void expect(const std::string& program, const Property& property)
{
	const std::string command = std::string(property.tool) + " " + program;
	const auto matches = testing::ContainsRegex(property.pattern);
	EXPECT_EQ(testing::Matches(matches)(outputOf(command)), property.there) << command << ": " << property.pattern;
}

/// The secure-socket library is needed though the daemon calls nothing of it.
TEST(Binary, FindsWhatItNeedsOutsideTheBuildDirectory)
{
	for (const Property& property : {Property{"readelf -dW", "NEEDED[^\n]*\\[libPocoNetSSL\\.so", true},
	                                 {"ldd", "libPocoFoundation.so", true},
	                                 {"ldd", "libPocoNetSSL.so", true},
	                                 {"ldd", "not found", false},
	                                 {"readelf -dW", "RPATH|RUNPATH", false}})
	{
		expect(VELARIX_BINARY, property);
	}
}

#if defined(VELARIX_PROGRAMS)
TEST(Binary, IsHardenedAsEveryProgram)
{
	const std::vector<Property> properties
	{
		{"readelf -hW", "Type:[ ]+DYN", true}, // can be loaded at any address
		    {"readelf -dW", "FLAGS_1[^\n]*PIE", true},
		    {"readelf -lW", "GNU_RELRO", true},        // the relocated tables are read-only
		    {"readelf -dW", "FLAGS_1[^\n]*NOW", true}, // every symbol is bound before the start
		    {"readelf -lW", "GNU_STACK[^\n]* RW ", true}, {"readelf -lW", "LOAD[^\n]* RWE ", false},
		    {"readelf --dyn-syms -W", "__stack_chk_fail", true},
#if defined(__x86_64__)
		    {"objdump -d --disassemble=main", "<main>:\n[^\n]*endbr64", true},
#endif
	};
	std::istringstream programs(VELARIX_PROGRAMS);
	for (std::string program; std::getline(programs, program, ':');)
	{
		for (const Property& property : properties)
		{
			expect(program, property);
		}
#if defined(VELARIX_OPTIMISED)
		// The program that releases the service calls no function that has a checked form.
		if (!program.ends_with("/release"))
		{
			expect(program, {"readelf --dyn-syms -W", "__[a-z]+_chk@", true});
		}
#endif
	}
}

TEST(Binary, IsCompiledWithAllOfIt)
{
	std::vector<std::string> wanted{" -fPIE ", " -fstack-protector-strong ", " -fstack-clash-protection "};
#if defined(VELARIX_OPTIMISED)
	wanted.emplace_back(" -D_FORTIFY_SOURCE=3 ");
#endif
#if defined(__x86_64__)
	wanted.emplace_back(" -fcf-protection=full ");
#endif
	std::ifstream commands(VELARIX_COMPILE_COMMANDS);
	int installed = 0;
	for (std::string line; std::getline(commands, line);)
	{
		// The tests compile some of the sources once more for themselves.
		const bool isInstalled = line.find(" -o src/") != std::string::npos ||
		                         line.find(" -o inspect/") != std::string::npos ||
		                         line.find(" -o ctl/") != std::string::npos;
		if (isInstalled && line.find("\"command\"") != std::string::npos)
		{
			++installed;
			for (const std::string& option : wanted)
			{
				EXPECT_THAT(line, HasSubstr(option));
			}
		}
	}
	EXPECT_GT(installed, 25);
}
#endif

} // namespace
