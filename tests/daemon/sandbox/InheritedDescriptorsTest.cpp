// No descriptor of the daemon reaches what it starts: a program that inherits the
// listening socket would keep it alive after the daemon has dropped it. The tests
// run twice, the second time as on a kernel that cannot mark a range at once.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Daemon.h"
#include "RealPrograms.h"
#include "Sandbox.h"
#include "ShellRunner.h"
#include "Utill.h"
#include "VirtualIP.h"
#include "WaitFor.h"
#include "velarix/paths.h"

using testing::ElementsAre;
using namespace std::chrono_literals;

namespace
{

bool g_oldKernel = false;

} // namespace

extern "C" int __real_close_range(unsigned first, unsigned last, int flags);
extern "C" int __wrap_close_range(unsigned first, unsigned last, int flags);
extern "C" int __wrap_close_range(unsigned first, unsigned last, int flags)
{
	if (g_oldKernel)
	{
		errno = ENOSYS;
		return -1;
	}
	return __real_close_range(first, last, flags);
}

namespace
{

constexpr char kList[] = "/usr/velarix/log/descriptors";
/// Writes the numbers of the descriptors that a command has; 3 is the one by
/// which it reads them.
constexpr char kListCommand[] = "ls /proc/self/fd > /usr/velarix/log/descriptors.new && "
                                "mv /usr/velarix/log/descriptors.new /usr/velarix/log/descriptors\n";
constexpr char kStandardStreamsOnly[] = "0\n1\n2\n3\n";

/// Descriptors such as the daemon has, none of them close-on-exec.
class OpenDescriptors
{
public:
	OpenDescriptors()
	{
		m_all[0] = ::socket(AF_INET, SOCK_STREAM, 0);
		EXPECT_EQ(::listen(m_all[0], 1), 0);
		m_all[1] = ::open("/usr/velarix/log/open.log", O_CREAT | O_WRONLY, 0600);
		m_all[2] = ::socket(AF_INET, SOCK_DGRAM, 0);
		m_all[3] = ::dup2(m_all[1], 900);
		EXPECT_THAT(m_all, testing::Each(testing::Gt(2)));
	}
	~OpenDescriptors()
	{
		// They are the daemon's still, whatever was started.
		for (const int descriptor : m_all)
		{
			EXPECT_EQ(::close(descriptor), 0) << descriptor;
		}
	}
	OpenDescriptors(const OpenDescriptors&) = delete;
	OpenDescriptors& operator=(const OpenDescriptors&) = delete;

private:
	std::array<int, 4> m_all{};
};

class InheritedDescriptors : public DaemonTest, public testing::WithParamInterface<bool>
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		g_oldKernel = GetParam();
		::unlink(kList);
	}

	void TearDown() override
	{
		g_oldKernel = false;
		::unlink(kList);
		::unlink(velarix::kRunScriptPath);
		DaemonTest::TearDown();
	}

	static std::string listOnceWritten()
	{
		EXPECT_TRUE(waitFor([] { return ::access(kList, F_OK) == 0; }, 5s, "list of descriptors"));
		return sandbox::readFile(kList);
	}
};

TEST_P(InheritedDescriptors, ACommandOfTheShellRunnerHasTheStandardStreamsOnly)
{
	const OpenDescriptors descriptors;
	std::string command = "ls /proc/self/fd";
	EXPECT_EQ(shellCommand(command), "0\n\n1\n\n2\n\n3\n\n");
}

TEST_P(InheritedDescriptors, TheInterfaceListingHasTheStandardStreamsOnly)
{
	programs::installScript("ifconfig", kListCommand);
	const std::string path = std::getenv("PATH");
	::setenv("PATH", ("/usr/velarix/programs:" + path).c_str(), 1);
	const OpenDescriptors descriptors;
	EXPECT_FALSE(isMyVirtualIPWorking());
	::setenv("PATH", path.c_str(), 1);
	EXPECT_EQ(listOnceWritten(), kStandardStreamsOnly);
}

TEST_P(InheritedDescriptors, TheRunScriptHasTheStandardStreamsOnly)
{
	sandbox::writeFile(velarix::kRunScriptPath, kListCommand);
	const OpenDescriptors descriptors;
	Utill::voidProcessRun(true);
	EXPECT_EQ(sandbox::readFile(kList), kStandardStreamsOnly);
}

TEST_P(InheritedDescriptors, AManagedProgramHasTheStandardStreamsOnly)
{
	sandbox::writeFile(velarix::kRunScriptPath,
	                   "cd /usr/velarix/programs/\n" + programs::installScript("vxmanaged", kListCommand) + " &\n");
	const OpenDescriptors descriptors;
	Utill::voidProcessRun(true);
	EXPECT_EQ(listOnceWritten(), kStandardStreamsOnly);
}

TEST_P(InheritedDescriptors, ADirectlyLaunchedProgramHasTheStandardStreamsOnly)
{
	settings.set("AGENT.LIST_COMMAND", programs::installScript("vxlist", kListCommand));
	apply();
	const OpenDescriptors descriptors;
	Utill::shellFileRun("AGENT.LIST_COMMAND");
	EXPECT_EQ(listOnceWritten(), kStandardStreamsOnly);
	EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
}

TEST_P(InheritedDescriptors, TheStandardStreamsStayOpenInTheDaemon)
{
	std::string command = "true";
	shellCommand(command);
	EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), 0);
	EXPECT_EQ(::fcntl(STDOUT_FILENO, F_GETFD), 0);
	EXPECT_EQ(::fcntl(STDERR_FILENO, F_GETFD), 0);
}

TEST_P(InheritedDescriptors, WithoutProcACommandStillRuns)
{
	sandbox::coverProc();
	std::string command = "echo started";
	EXPECT_EQ(shellCommand(command), "started\n\n");
	sandbox::showRealProc();
}

INSTANTIATE_TEST_SUITE_P(Kernels, InheritedDescriptors, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& kernel)
                         { return kernel.param ? "WithoutRanges" : "WithRanges"; });

} // namespace
