// The metrics in a file of their own; what they are: states.txt.

#include "PlainUser.h"
#include "StateTest.h"
#include "ctl/status/LogTail.h"

using namespace std::chrono_literals;

namespace fs = std::filesystem;

class Metrics : public StateTest
{
protected:
	fs::path file() const { return root() / "velarix.prom"; }
	Outcome write() const { return runHere({"metrics", "--textfile", file().string()}); }

	/// @return a figure of this process in kB
	static long memory(const std::string& name)
	{
		std::ifstream file("/proc/self/status");
		for (std::string word; file >> word;)
		{
			if (long value = 0; word == name && file >> value)
			{
				return value;
			}
		}
		return 0;
	}

	/// @return the value of a sample of the file; "none" without it
	std::string sample(const std::string& name) const
	{
		const std::string text = "\n" + readFile(file());
		const std::size_t at = text.find("\n" + name + " ");
		return at == std::string::npos
		           ? "none"
		           : text.substr(at + name.size() + 2, text.find('\n', at + 1) - at - name.size() - 2);
	}
};

TEST_F(Metrics, WithoutTheRightToReadTheSettings)
{
	soundMaster();
	fs::permissions(below(kSettings), fs::perms::none);
	const PlainUser plain;
	const Outcome outcome = runHere({"metrics"});
	EXPECT_THAT(outcome.out, HasSubstr("velarix_agent_up 1\n"));
	EXPECT_THAT(outcome.err, HasSubstr("Permission denied"));
	EXPECT_EQ(outcome.code, 77);
}

TEST_F(Metrics, GoIntoTheFileAloneForAllToRead)
{
	soundMaster();
	const mode_t mask = ::umask(022);
	const Outcome outcome = write();
	::umask(mask);
	EXPECT_EQ(outcome.out + outcome.err, "");
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(sample("velarix_role{role=\"master\"}"), "1");
	EXPECT_EQ(fs::status(file()).permissions(), fs::perms(0644));
	EXPECT_EQ(std::distance(fs::directory_iterator(root()), fs::directory_iterator()), 2) << "the file and usr";
}

TEST_F(Metrics, LeaveTheFormerFileWhenTheyCannotBeWritten)
{
	soundMaster();
	ASSERT_EQ(write().code, 0);
	const std::string former = readFile(file());
	now += 60s;
	fs::permissions(root(), fs::perms(0555));
	{
		const PlainUser plain;
		const Outcome outcome = write();
		EXPECT_EQ(outcome.err, "velarixctl: cannot write /velarix.prom: Permission denied\n");
		EXPECT_EQ(outcome.code, 77);
	}
	fs::permissions(root(), fs::perms(0755));
	EXPECT_EQ(readFile(file()), former);
}

TEST_F(Metrics, ATextFileThatIsAPipeIsRefusedAndNotWaitedFor)
{
	soundMaster();
	ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
	EXPECT_EQ(write().code, 66);
	EXPECT_TRUE(fs::is_fifo(file()));
}

TEST_F(Metrics, CountAcrossAGapOfHoursAndARotation)
{
	soundMaster();
	ASSERT_EQ(write().code, 0);
	const std::string before = readFile(below(kLog));
	now += 7200s;
	// Rotated half an hour ago, at 13:30 UTC.
	CtlTest::write(std::string(kLog) + ".20260301133000000", before + emptyLog().masterFor(7199s, 1801s).text());
	writeLog(emptyLog().masterFor(1799s, 300ms));
	ASSERT_EQ(write().code, 0);
	EXPECT_EQ(sample("velarix_heartbeats_sent_total"), std::to_string(1 + 5399 + 1799));
}

// What a scraper refuses: two samples with the same name and labels.
TEST_F(Metrics, HaveEachSampleOnce)
{
	soundSlave();
	writeSettings(2, {{"PROCESS_NUM", "2\nPROCESS_PATH2 = /elsewhere/server"}});
	fakeHost().files[kProgram] = velarix::inspect::host::FileFacts{};
	fakeHost().files["/elsewhere/server"] = velarix::inspect::host::FileFacts{};
	const Outcome outcome = runHere({"metrics"});
	EXPECT_THAT(outcome.out, HasSubstr("velarix_program_processes{program=\"server\"} 0\n"));
	EXPECT_THAT(outcome.out, HasSubstr("velarix_problem{problem=\"program-file\",severity=\"warning\"} 1\n"));
	std::istringstream lines(outcome.out);
	std::set<std::string> reported;
	for (std::string line; std::getline(lines, line);)
	{
		EXPECT_TRUE(reported.insert(line.substr(0, line.rfind(' '))).second || line.starts_with('#')) << line;
	}
	EXPECT_GE(reported.size(), 30U);
}

TEST(Exposition, EscapesLabelsAndHelp)
{
	velarix::ctl::Exposition out;
	out.gauge("thing", "A \\ and\na line.");
	out.sample(1.5, {{"path", "C:\\\"x\"\ny"}, {"empty", ""}});
	EXPECT_EQ(out.text(), "# HELP velarix_thing A \\\\ and\\na line.\n# TYPE velarix_thing gauge\n"
	                      "velarix_thing{path=\"C:\\\\\\\"x\\\"\\ny\",empty=\"\"} 1.5\n");
}

TEST(Exposition, LeavesOutAFamilyWithoutSamples)
{
	velarix::ctl::Exposition out;
	out.counter("lost_total", "Never seen.");
	out.gauge("here", "Seen.");
	out.sample(true);
	EXPECT_EQ(out.text(), "# HELP velarix_here Seen.\n# TYPE velarix_here gauge\nvelarix_here 1\n");
}

TEST_F(Metrics, AreListedInTheMonitoringPage)
{
	soundMaster();
	ASSERT_EQ(write().code, 0);
	const std::string page = readFile(VELARIX_CTL_MONITORING);
	std::istringstream lines(readFile(file()));
	int families = 0;
	for (std::string word, name; lines >> word;)
	{
		if (word == "TYPE" && lines >> name)
		{
			EXPECT_THAT(page, HasSubstr("`" + name + "`"));
			++families;
		}
	}
	EXPECT_GE(families, 25);
}

// Minutes without a run, in which the log grew by more than is held in memory.
TEST_F(Metrics, AfterAGapHoldNoMoreThanAPart)
{
	soundMaster();
	ASSERT_EQ(write().code, 0);
	const std::string filling(2000, 'x');
	NodeLog log = emptyLog().start(198s).takeService(190s);
	now += 600s;
	NodeLog later = emptyLog();
	constexpr int kMessages = 40'000;
	for (int count = kMessages; count > 0; --count)
	{
		later.line(std::chrono::milliseconds(2000 + count * 10), 1, "ProcessChecker:103", filling);
	}
	CtlTest::write(kLog, log.text() + later.masterFor(1800ms, 300ms).text());
	std::ofstream("/proc/self/clear_refs") << 5;
	[[maybe_unused]] const long before = memory("VmRSS:");
	ASSERT_EQ(write().code, 0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
	EXPECT_LT(memory("VmHWM:") - before, 50'000) << "kB; the messages have " << kMessages * 2 << " kB";
#endif
	EXPECT_GE(std::stoi(sample("velarix_log_messages_total{level=\"debug\"}")), kMessages);
	EXPECT_EQ(sample("velarix_heartbeats_sent_total"), "1");
}
