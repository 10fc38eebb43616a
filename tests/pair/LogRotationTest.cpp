/// Ten days of the log of a real agent in some seconds: the clock that the agent sees
/// is stepped on by a day and an hour again and again.
///
/// The kernel stamps files with the machine's clock, which stays. So the agent's days
/// lie in the past: a file that was just written is never too old for it, and the test
/// gives each archive the time at which the agent wrote its last line.

#include <algorithm>
#include <iterator>
#include <sstream>

#include "PairTest.h"
#include "ToolThreads.h"
#include "lab/core/Host.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;
using std::chrono::hours;

constexpr hours firstDay{-240};
constexpr hours day{25};
constexpr int days = 9;
constexpr Millis rotationLimit{30000};

class LogOfDays : public PairTest
{
protected:
	/// Both agents run and have begun their logs, ten days ago.
	bool startLongAgo()
	{
		LabOptions options;
		options.clockShim = true;
		options.settingsA.set("LOG.PURGEAGE", "3 days");
		options.settingsB.set("LOG.PURGEAGE", "3 days");
		const auto goBack = [](Lab& made)
		{
			made.node(HostId::a).setClock(firstDay);
			made.node(HostId::b).setClock(firstDay);
		};
		return startPair(options, goBack) && waitForLines(HostId::a) && waitForLines(HostId::b);
	}

	bool waitForLines(HostId node)
	{
		const auto written = [&] { return linesOf(lab().node(node).file(plan::logFile)).size() > 2; };
		const bool begun = waitFor(written, rotationLimit, "lines in the log of " + nodeText(node));
		EXPECT_TRUE(begun);
		return begun;
	}

	/// Names of the archives, the oldest first: they end in their time.
	std::vector<std::string> archives(HostId node)
	{
		std::istringstream names(shell(node, "cd /usr/velarix/log; ls | grep '^velarix.log[.]' || :").output);
		return {std::istream_iterator<std::string>(names), {}};
	}

	/// What the log's descriptors of the running agent lead to.
	std::vector<std::string> openLogs(HostId node)
	{
		std::vector<std::string> found;
		for (const auto& [number, target] : descriptorsOf(lab().node(node).agent()->pid))
		{
			target.find("velarix.log") != std::string::npos ? found.push_back(target) : void();
		}
		return found;
	}

	/// Steps the clock to that day and waits for the archive of the day before.
	/// @return its name; empty when there is none
	std::string passDay(HostId node, int number)
	{
		const std::vector<std::string> before = archives(node);
		const auto fresh = [&]
		{
			std::vector<std::string> now = archives(node);
			std::erase_if(now, [&](const std::string& name)
			              { return std::find(before.begin(), before.end(), name) != before.end(); });
			return now.empty() ? std::string() : now.front();
		};
		lab().node(node).stepClock(firstDay + number * day);
		const auto rotated = [&] { return !fresh().empty() && fs::exists(lab().node(node).file(plan::logFile)); };
		if (!waitFor(rotated, rotationLimit, nodeText(node) + " to archive its log"))
		{
			return "";
		}
		const std::string name = fresh();
		const std::time_t stamp = std::time(nullptr) + std::chrono::seconds(firstDay + (number - 1) * day).count();
		EXPECT_TRUE(shell(node, "touch -d @" + std::to_string(stamp) + " /usr/velarix/log/" + name).ok());
		return name;
	}
};

} // namespace

TEST_F(LogOfDays, AreArchivedEachDayAndRemovedAfterThree)
{
	PAIR_OR_RETURN(startLongAgo());
	const pid_t agent = lab().node(HostId::a).agent()->pid;
	std::vector<std::string> all;
	for (int number = 1; number <= days; ++number)
	{
		const std::string name = passDay(HostId::a, number);
		ASSERT_NE(name, "") << "on day " << number;
		all.push_back(name);
		// Older than three days are those whose last line is 75 hours old or more.
		const std::vector<std::string> kept(all.size() > 2 ? all.end() - 2 : all.begin(), all.end());
		EXPECT_TRUE(waitFor([&] { return archives(HostId::a) == kept; }, rotationLimit,
		                    "the archives of day " + std::to_string(number) + ", and no older ones",
		                    [&] { return testing::PrintToString(archives(HostId::a)); }));
	}
	EXPECT_EQ(openLogs(HostId::a), std::vector<std::string>{plan::logFile});
	EXPECT_EQ(lab().node(HostId::a).agent()->pid, agent);
	EXPECT_EQ(archives(HostId::b), std::vector<std::string>{});
}

TEST_F(LogOfDays, ThatCannotBeArchivedEndTheReceiverInSilence)
{
	PAIR_OR_RETURN(startLongAgo());
	const pid_t agent = lab().node(HostId::a).agent()->pid;
	ASSERT_TRUE(lab()
	                .run(HostId::a, {"sh", "-c",
	                                 "mount --bind /usr/velarix/log /usr/velarix/log && "
	                                 "mount -o remount,bind,ro /usr/velarix/log"})
	                .ok());
	lab().node(HostId::a).stepClock(firstDay + day);
	const auto threads = [&]
	{
		const std::filesystem::path tasks = "/proc/" + std::to_string(agent) + "/task";
		std::error_code failure;
		return std::distance(fs::directory_iterator(tasks, failure), fs::directory_iterator());
	};
	EXPECT_TRUE(waitFor([&] { return threads() == 3 + kToolThreads; }, rotationLimit, "the end of the receiver",
	                    [&] { return std::to_string(threads()) + " threads"; }));
	EXPECT_EQ(lab().node(HostId::a).agent()->pid, agent);
}

} // namespace velarix::lab
