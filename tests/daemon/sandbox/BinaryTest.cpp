// The protections of the programs as they are compiled; what of them shows in the programs, and
// what these need, tests/package looks at. Builds with a sanitizer come without.

#include <fstream>

#include "Daemon.h"

TEST(Binary, IsCompiledWithEveryProtection)
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
	EXPECT_GT(installed, 20);
}
