// What the program does when something that nobody foresaw happens; the memory of its metrics.
// All else: stories/.

#include <new>

#include "StateTest.h"
#include "ctl/Program.h"
#include "ctl/status/LogTail.h"

using namespace std::chrono_literals;

namespace
{

class Program : public StateTest
{
protected:
	void writeMetrics() const { ASSERT_EQ(run({"metrics", "--textfile", (root() / "velarix.prom").string()}).code, 0); }
	std::string metrics() const { return readFile(root() / "velarix.prom"); }
};

} // namespace

TEST_F(Program, AnErrorThatNobodyForesawEndsItWithALine)
{
	for (const auto& [verb, status] : {std::pair("status", 70), {"nagios", 3}, {"metrics", 70}})
	{
		std::ostringstream out;
		std::ostringstream err;
		velarix::ctl::Context context{.out = out,
		                              .err = err,
		                              .now = []() -> velarix::inspect::Instant { throw std::bad_alloc(); },
		                              .paths = paths};
		EXPECT_EQ(velarix::ctl::run({verb}, context), status) << verb;
		EXPECT_THAT(status == 3 ? out.str() : err.str(), HasSubstr("internal error: std::bad_alloc\n")) << verb;
	}
}

// Minutes without a run, in which the log grew by more than is held in memory.
TEST_F(Program, MetricsAfterAGapHoldNoMoreThanAPart)
{
	soundMaster();
	writeMetrics();
	const std::string filling(2000, 'x');
	NodeLog log = emptyLog().start(198s).takeService(190s);
	now += 600s;
	NodeLog later = emptyLog();
	constexpr int kMessages = 40'000;
	for (int count = kMessages; count > 0; --count)
	{
		later.line(std::chrono::milliseconds(2000 + count * 10), 1, "ProcessChecker:103", filling);
	}
	write(kLog, log.text() + later.masterFor(1800ms, 300ms).text());
	std::ofstream("/proc/self/clear_refs") << 5;
	[[maybe_unused]] const long before = memory("VmRSS:");
	writeMetrics();
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
	EXPECT_LT(memory("VmHWM:") - before, 50'000) << "kB; the messages have " << kMessages * 2 << " kB";
#endif
	EXPECT_THAT(metrics(), AllOf(testing::ContainsRegex("log_messages_total.level=\"debug\". 40[0-9]{3}\n"),
	                             HasSubstr("velarix_heartbeats_sent_total 1\n")));
}

TEST(Exposition, EscapesLabelsAndHelp)
{
	velarix::ctl::Exposition out;
	out.gauge("thing", "A \\ and\na line.");
	out.sample(1.5, {{"path", "C:\\\"x\"\ny"}, {"empty", ""}});
	EXPECT_EQ(out.text(), "# HELP velarix_thing A \\\\ and\\na line.\n# TYPE velarix_thing gauge\n"
	                      "velarix_thing{path=\"C:\\\\\\\"x\\\"\\ny\",empty=\"\"} 1.5\n");
}
