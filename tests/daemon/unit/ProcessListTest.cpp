// The configured programs and the names they are known by.

#include <iostream>
#include <random>

#include <Poco/StringTokenizer.h>

#include "Daemon.h"

namespace
{

class ProcessList : public DaemonTest
{
};

TEST_F(ProcessList, TheIndexIsDecimalBeyondNine)
{
	settings.programs({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"});
	apply();
	EXPECT_THAT(Utill::getProcessList(), ElementsAre("a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"));
}

TEST_F(ProcessList, ANegativeNumberGivesAnEmptyList)
{
	settings.set("PROCESS_CHECK.PROCESS_NUM", "-3");
	apply();
	EXPECT_THAT(Utill::getProcessList(), IsEmpty());
}

TEST_F(ProcessList, TheNameOfAnEmptyPathIsEmptyAndTheTokenizersErrorIsLogged)
{
	std::string path;
	EXPECT_EQ(getProcessName(path), "");
	EXPECT_THAT(events::all(), ElementsAre("log E Utill:178 Out of range"));
}

TEST_F(ProcessList, TheNameIsTheTokenizersLastTokenWhateverThePath)
{
	const unsigned seed = std::random_device{}();
	std::cout << "seed " << seed << '\n';
	std::mt19937 random(seed);
	const std::string letters("/ab .\0\xff\n", 8);
	for (int count = 0; count < 20000; ++count)
	{
		std::string path(1 + random() % 12, '/');
		std::generate(path.begin(), path.end(), [&] { return letters[random() % letters.size()]; });
		const Poco::StringTokenizer tokens(path, "/");
		ASSERT_EQ(getProcessName(path), tokens[tokens.count() - 1]) << testing::PrintToString(path);
	}
	EXPECT_THAT(events::all(), IsEmpty());
}

TEST_F(ProcessList, TheCheckByHandlesMustNotBeCalled)
{
	std::vector<Poco::ProcessHandle*>* pHandles = nullptr;
	EXPECT_FATAL(Utill::isProcessRunning(&pHandles), "1 == 0", "Utill", 254,
	             "static bool Utill::isProcessRunning(std::vector<Poco::ProcessHandle*>**)");
}

} // namespace
