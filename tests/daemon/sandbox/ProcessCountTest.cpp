// Counting the managed programs in the real /proc. All names begin with "vx", so
// that no other process of the sandbox contains them.

#include "RealPrograms.h"

using programs::Sleeper;

namespace
{

class ProcessCount : public DaemonTest
{
protected:
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

TEST_F(ProcessCount, ARunningProgramIsFoundAndAZombieCounts)
{
	settings.programs({"/opt/app/vxalpha"});
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
	settings.programs({"/opt/app/vxfifteenlettrs"});
	EXPECT_TRUE(isRunning());
	settings.programs({"/opt/app/vxsixteenletters"});
	EXPECT_FALSE(isRunning());
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessCount, NoFileStaysOpen)
{
	settings.programs({"/opt/app/vxalpha"});
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
