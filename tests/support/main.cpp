// The entry of every test program that needs /usr/velarix: it runs in a sandbox.

#include <cstring>

#include <gtest/gtest.h>

#include "Sandbox.h"

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

int runTests(int argc, char** argv)
{
	testing::InitGoogleTest(&argc, argv);
	testing::AddGlobalTestEnvironment(new SkipWithoutSandbox);
	return RUN_ALL_TESTS();
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
	return sandbox::run(argc, argv, runTests);
}
