// The entry of every test program that needs /usr/velarix: it runs in a sandbox.

#include <cstdio>
#include <cstdlib>
#include <cstring>

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
		if (!sandbox::whyUnavailable().empty())
		{
			GTEST_SKIP() << "namespaces unavailable: " << sandbox::whyUnavailable();
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

int runTests(int argc, char** argv)
{
	testing::InitGoogleTest(&argc, argv);
	testing::AddGlobalTestEnvironment(new SkipWithoutSandbox);
	g_unfinished = ::getpid();
	std::atexit(failWhenUnfinished);
	const int result = RUN_ALL_TESTS();
	g_unfinished = 0;
	return result;
}

} // namespace

int main(int argc, char** argv)
{
	for (int i = 1; i < argc; ++i)
	{
		if (std::strcmp(argv[i], "--gtest_list_tests") == 0)
		{
			return runTests(argc, argv);
		}
	}
	seenlines::keepFor(std::strrchr(argv[0], '/') == nullptr ? argv[0] : std::strrchr(argv[0], '/') + 1);
	const int result = sandbox::run(argc, argv, runTests);
	// The tests ran in a process of their own. This one has no process namespace
	// left in which a leak checker could make its helper, so it leaves without.
	std::fflush(nullptr);
	std::_Exit(result);
}
