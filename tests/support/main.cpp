// The entry of every test program that needs /usr/velarix: it runs in a sandbox.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include <unistd.h>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "SeenLines.h"

namespace
{

class SkipWithoutSandbox : public testing::Environment
{
	void SetUp() override
	{
		if (!sandbox::isOne())
		{
			GTEST_SKIP() << "namespaces unavailable, see above";
		}
	}
};

pid_t g_unfinished = 0;

/// The daemon's own exit with status 0 must not pass for the end of the tests.
void failWhenUnfinished()
{
	if (g_unfinished == ::getpid())
	{
		::_exit(97);
	}
}

} // namespace

int main(int argc, char** argv)
{
	const std::string program = std::filesystem::path(argv[0]).filename();
	const bool isListing =
	    std::any_of(argv, argv + argc, [](const char* word) { return std::string_view(word) == "--gtest_list_tests"; });
	if (!isListing)
	{
		sandbox::enter(argv);
		seenlines::keepFor(program);
	}
	if (sandbox::isOne())
	{
		sandbox::cleanDirectories();
	}
	testing::InitGoogleTest(&argc, argv);
	testing::AddGlobalTestEnvironment(new SkipWithoutSandbox);
	g_unfinished = ::getpid();
	std::atexit(failWhenUnfinished);
	const int result = RUN_ALL_TESTS();
	g_unfinished = 0;
	return result;
}
