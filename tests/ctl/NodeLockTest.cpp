// Who has the lock of a node; what it refuses: stories/moves.txt.

#include "ctl/handover/NodeLock.h"
#include "StateTest.h"
#include "inspect/HostProgram.h"

using namespace velarix::inspect;

class NodeLock : public StateTest
{
protected:
	NodeLock() { soundMaster(); }

	std::string directory() const { return paths.settings.parent_path().string(); }
	bool isFree() const { return host::runProgram({.arguments = {"flock", "-n", directory(), "true"}}).fine(); }
};

TEST_F(NodeLock, KeepsOthersOutAsLongAsItIsHeld)
{
	Descriptor lock = velarix::ctl::lockNode(paths);
	EXPECT_FALSE(isFree());
	lock.close();
	EXPECT_TRUE(isFree());
}

// An ssh that outlives the command would keep it.
TEST_F(NodeLock, IsNotInherited)
{
	const Descriptor lock = velarix::ctl::lockNode(paths);
	const std::string files = host::outputOf({"ls", "-l", "/proc/self/fd"});
	EXPECT_THAT(files, AllOf(HasSubstr(" -> "), Not(HasSubstr(directory()))));
}
