// The entry of the tests with real hosts: they run in a machine of their own.
#include <cstdlib>
#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

#include "Hosts.h"

int main(int argc, char** argv)
{
	testing::InitGoogleTest(&argc, argv);
	if (testing::GTEST_FLAG(list_tests) || std::getenv("KEEPER_MACHINE") != nullptr)
	{
		return keepertest::makeMachine() ? RUN_ALL_TESTS() : 1;
	}
	if (::geteuid() != 0 || std::system("unshare -mnp true 2>/dev/null") != 0)
	{
		std::printf("skipped: namespaces need root\n");
		return 77;
	}
	::setenv("KEEPER_MACHINE", "1", 1);
	const std::string self = std::filesystem::canonical("/proc/self/exe");
	const std::string filter = "--gtest_filter=" + testing::GTEST_FLAG(filter);
	// The shell is the first process of the machine, and takes care of orphans.
	::execlp("unshare", "unshare", "-mnpf", "--mount-proc", "--kill-child", "sh", "-c", "\"$@\"; exit $?", "sh",
	         self.c_str(), filter.c_str(), nullptr);
	return 1;
}
