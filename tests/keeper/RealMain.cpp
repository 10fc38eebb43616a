// The entry of the tests with real hosts.
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "Hosts.h"

namespace
{

int runTests()
{
	return RUN_ALL_TESTS();
}

} // namespace

int main(int argc, char** argv)
{
	testing::InitGoogleTest(&argc, argv);
	if (testing::GTEST_FLAG(list_tests))
	{
		return RUN_ALL_TESTS();
	}
	const int status = keepertest::inMachine(runTests);
	if (status == 77)
	{
		std::printf("skipped: namespaces need root\n");
	}
	return status;
}
