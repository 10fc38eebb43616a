// Counting the managed programs in the real /proc. All names begin with "vx", so
// that no other process of the sandbox contains them.

#include <fcntl.h>

#include "Daemon.h"
#include "RealPrograms.h"

using programs::Sleeper;

namespace
{

class ProcessCount : public DaemonTest
{
protected:
	void configure(const std::vector<std::string>& paths)
	{
		settings.programs(paths);
		apply();
	}

	/// The answer is the same in both modes.
	static bool isRunning()
	{
		const bool first = Utill::isProcessRunning(OBSERVATION_MODE_1);
		const events::List lines = events::all();
		events::clear();
		EXPECT_EQ(Utill::isProcessRunning(OBSERVATION_MODE_2), first);
		EXPECT_EQ(events::all(), lines);
		return first;
	}
};

/// While it lives the root directory is an empty one: there is no /proc.
class EmptyRoot
{
public:
	EmptyRoot() : m_root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC))
	{
		::mkdir("/usr/velarix/empty", 0755);
		EXPECT_EQ(::chroot("/usr/velarix/empty"), 0);
	}
	~EmptyRoot()
	{
		EXPECT_EQ(::fchdir(m_root), 0);
		EXPECT_EQ(::chroot("."), 0);
		::close(m_root);
	}
	EmptyRoot(const EmptyRoot&) = delete;
	EmptyRoot& operator=(const EmptyRoot&) = delete;

private:
	int m_root;
};

TEST_F(ProcessCount, ARunningProgramIsFoundAndAZombieCounts)
{
	configure({"/opt/app/vxalpha"});
	EXPECT_FALSE(isRunning());
	Sleeper alpha("vxalpha");
	EXPECT_TRUE(isRunning());
	alpha.makeZombie();
	EXPECT_TRUE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessCount, NamesOfMoreThanFifteenCharactersAreNeverFound)
{
	const Sleeper fifteen("vxfifteenlettrs");
	const Sleeper sixteen("vxsixteenletters");
	configure({"/opt/app/vxfifteenlettrs"});
	EXPECT_TRUE(isRunning());
	configure({"/opt/app/vxsixteenletters"});
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessCount, AMissingProcIsLoggedAndNothingRuns)
{
	configure({"/opt/app/vxalpha"});
	const Sleeper alpha("vxalpha");
	EXPECT_TRUE(isRunning());
	const EmptyRoot root;
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:204 NO_DIR(/proc)"));
}

TEST_F(ProcessCount, NoFileStaysOpen)
{
	configure({"/opt/app/vxalpha"});
	const auto openFiles = []
	{
		const std::filesystem::directory_iterator first("/proc/self/fd");
		return std::distance(begin(first), end(first));
	};
	const auto before = openFiles();
	isRunning();
	EXPECT_EQ(openFiles(), before);
}

} // namespace
