/// The lab itself: labs side by side, the program, and what is left behind.

#include "PairTest.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "inspect/HostProcesses.h"
#include "lab/core/Command.h"
#include "lab/core/Host.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

/// What a lab could leave in this machine's own namespaces.
std::vector<std::string> tracesOnThisMachine()
{
	std::vector<std::string> traces;
	for (const std::string& line : linesOf("/proc/self/mountinfo"))
	{
		if (line.find("lab-") != std::string::npos || line.find("vlx-") != std::string::npos)
		{
			traces.push_back(line);
		}
	}
	for (const std::string& line : linesOf("/proc/net/dev"))
	{
		if (line.find("vlx-") != std::string::npos)
		{
			traces.push_back(line);
		}
	}
	return traces;
}

/// The process namespace of a process: while it is held open, its number is given to no other.
Descriptor namespaceOf(pid_t pid)
{
	return Descriptor(::open(("/proc/" + std::to_string(pid) + "/ns/pid").c_str(), O_RDONLY | O_CLOEXEC));
}

ino_t numberOf(const Descriptor& held)
{
	struct stat found
	{
	};
	return held && ::fstat(held.get(), &found) == 0 ? found.st_ino : 0;
}

/// Of its first thread, which has made them.
std::vector<pid_t> childrenOf(pid_t parent)
{
	const std::string process = "/proc/" + std::to_string(parent);
	std::ifstream children(process + "/task/" + std::to_string(parent) + "/children");
	return {std::istream_iterator<pid_t>(children), {}};
}

std::size_t processesIn(const std::vector<Descriptor>& namespaces)
{
	std::set<ino_t> numbers;
	for (const Descriptor& held : namespaces)
	{
		numbers.insert(numberOf(held));
	}
	const std::vector<pid_t> all = inspect::host::processIds().value();
	return static_cast<std::size_t>(
	    std::ranges::count_if(all, [&](pid_t pid) { return numbers.contains(numberOf(namespaceOf(pid))); }));
}

/// A directory of its own below /tmp, removed in the end.
class TemporaryDirectory
{
public:
	TemporaryDirectory()
	{
		char name[] = "/tmp/velarix-lab-test-XXXXXX";
		m_path = ::mkdtemp(name);
	}
	~TemporaryDirectory()
	{
		std::error_code ignored;
		fs::remove_all(m_path, ignored);
	}
	TemporaryDirectory(const TemporaryDirectory&) = delete;
	TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
	const fs::path& path() const { return m_path; }

private:
	fs::path m_path;
};

CommandResult velarixLab(std::vector<std::string> words, const fs::path& stateBase, Millis limit = Millis(90000))
{
	words.insert(words.begin(), VELARIX_LAB_PROGRAM);
	words.insert(words.begin() + 2, {"--state-dir", stateBase.string()});
	return run({words, {}, {}, limit});
}

} // namespace

class LabOfItsOwn : public PairTest
{
};

TEST_F(LabOfItsOwn, TwoLabsSideBySideDoNotConcernEachOther)
{
	PAIR_OR_RETURN(startPair());
	Lab second;
	second.startAgents();
	ASSERT_TRUE(lab().waitForService(HostId::a, moveLimit));
	ASSERT_TRUE(second.waitForService(HostId::a, moveLimit));

	const Millis off = second.clock().now();
	lab().inject({"power-off", HostId::a});
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	const Millis now = second.clock().now();
	EXPECT_EQ(timeWith(second.timeline().intervals(addressTrack, now), "a", off, now), now - off);
	EXPECT_LT(longestWith(second.timeline().intervals(serviceTrack, now), "none", off, now), Millis(1000));
	EXPECT_TRUE(tracesOnThisMachine().empty());
}

TEST_F(LabOfItsOwn, EndsWithTheObjectAndHasNotTouchedTheMachine)
{
	std::vector<Descriptor> namespaces;
	{
		PAIR_OR_RETURN(startPair());
		for (const HostId id : allHosts)
		{
			namespaces.push_back(namespaceOf(lab().host(id).pid()));
		}
		EXPECT_GE(processesIn(namespaces), 6U) << "four hosts and two agents";
		EXPECT_TRUE(tracesOnThisMachine().empty());
		// What the nodes write stays in the nodes.
		const CommandResult written = lab().run(HostId::a, {"touch", "/usr/lab-was-here"});
		EXPECT_TRUE(written.ok()) << written.output;
		EXPECT_FALSE(lab().run(HostId::a, {"touch", "/etc/lab-was-here"}).ok());
		EXPECT_FALSE(fs::exists("/usr/lab-was-here"));
		endLab();
	}
	EXPECT_TRUE(waitFor([&] { return processesIn(namespaces) == 0; }, Millis(10000), "all its processes to be gone"));
	EXPECT_TRUE(tracesOnThisMachine().empty());
}

TEST(LabProgram, KeepsAPairRunningAndLeavesNothingEvenWhenItIsKilled)
{
	SKIP_WITHOUT_NAMESPACES();
	const TemporaryDirectory base;
	const CommandResult up = velarixLab({"up", "--name", "kept", "--wrap", "env LAB_WRAPPED=yes"}, base.path());
	ASSERT_TRUE(up.ok()) << up.output;
	const CommandResult again = velarixLab({"up", "--name", "kept"}, base.path());
	EXPECT_NE(again.output.find("is up already"), std::string::npos) << again.output;

	const CommandResult status = velarixLab({"status", "--name", "kept", "--json"}, base.path());
	const nlohmann::json reported = nlohmann::json::parse(status.output);
	EXPECT_EQ(reported["address"], "a");
	EXPECT_EQ(reported["service"], "a");
	EXPECT_EQ(reported["nodes"]["b"]["role"], "slave");
	const CommandResult name = velarixLab({"exec", "--name", "kept", "b", "uname", "-n"}, base.path());
	EXPECT_EQ(name.output, "node-b\n");
	EXPECT_EQ(velarixLab({"exec", "--name", "kept", "client", "sh", "-c", "exit 7"}, base.path()).status, 7);
	const std::string environment = "/proc/" + reported["nodes"]["b"]["agentPid"].dump() + "/environ";
	EXPECT_TRUE(velarixLab({"exec", "--name", "kept", "b", "grep", "LAB_WRAPPED=yes", environment}, base.path()).ok());
	const char* ask = "import socket, sys; s = socket.socket(socket.AF_UNIX); s.connect(sys.argv[1]); "
	                  "s.sendall(b'frobnicate'); s.shutdown(1); print(s.recv(99))";
	EXPECT_EQ(run({{"python3", "-c", ask, (base.path() / "kept" / "control").string()}}).output,
	          "b'error: unknown request: frobnicate'\n");

	const pid_t supervisor = reported["supervisor"].get<pid_t>();
	std::vector<Descriptor> namespaces;
	for (const pid_t init : childrenOf(supervisor))
	{
		namespaces.push_back(namespaceOf(init));
	}
	ASSERT_EQ(namespaces.size(), 5U) << "four hosts and the root host";
	EXPECT_GE(processesIn(namespaces), 8U);
	EXPECT_TRUE(velarixLab({"inject", "--name", "kept", "communication-loss-10", "a"}, base.path()).ok());
	const std::vector<pid_t> children = childrenOf(supervisor);
	const auto isRelay = [](pid_t pid) { return procText(pid, "cmdline").find("relay.py") != std::string::npos; };
	const auto relay = std::ranges::find_if(children, isRelay);
	ASSERT_NE(relay, children.end());
	ASSERT_EQ(::kill(supervisor, SIGKILL), 0);
	EXPECT_TRUE(waitFor([&] { return processesIn(namespaces) == 0 && !isRelay(*relay); }, Millis(10000),
	                    "all its processes to be gone"));
	EXPECT_TRUE(tracesOnThisMachine().empty());

	// What is left is a directory, which the next command recognises.
	const CommandResult dead = velarixLab({"status", "--name", "kept"}, base.path());
	EXPECT_EQ(dead.status, 2);
	EXPECT_NE(dead.output.find("a supervisor that died"), std::string::npos) << dead.output;
	const CommandResult anew = velarixLab({"up", "--name", "kept", "--no-agents"}, base.path());
	EXPECT_TRUE(anew.ok()) << anew.output;
	EXPECT_NE(anew.output.find("removed what a supervisor that died had left"), std::string::npos) << anew.output;
	const CommandResult down = velarixLab({"down", "--name", "kept"}, base.path());
	EXPECT_TRUE(down.ok()) << down.output;
	EXPECT_FALSE(fs::exists(base.path() / "kept"));
}

TEST(LabProgram, TellsInPlainWordsWhatIsWrong)
{
	const TemporaryDirectory base;
	const CommandResult noAgent = velarixLab({"up", "--install-root", base.path().string()}, base.path());
	EXPECT_EQ(noAgent.status, 2);
	EXPECT_NE(noAgent.output.find("velarix-lab: "), std::string::npos) << noAgent.output;
	const CommandResult notUp = velarixLab({"status", "--name", "nobody"}, base.path());
	EXPECT_EQ(notUp.status, 2);
	EXPECT_NE(notUp.output.find("no lab \"nobody\" is up"), std::string::npos) << notUp.output;
	EXPECT_EQ(velarixLab({"status", "--name", "no/body"}, base.path()).status, 2);
	const CommandResult version = run({{VELARIX_LAB_PROGRAM, "--version"}});
	EXPECT_EQ(version.output, std::string("velarix-lab ") + VELARIX_LAB_VERSION + "\n");
}

/// The project's show piece, run as a newcomer runs it, and drawn.
class LabDemo : public testing::TestWithParam<const char*>
{
};

TEST_P(LabDemo, EndsAsExpectedAndCanBeDrawn)
{
	SKIP_WITHOUT_NAMESPACES();
	const TemporaryDirectory base;
	const fs::path timeline = base.path() / "timeline.txt";
	const CommandResult demo = run(
	    {{VELARIX_DEMO_PROGRAM, "--settings", GetParam(), "--timeline", timeline.string()}, {}, {}, Millis(280000)});
	EXPECT_TRUE(demo.ok()) << demo.output;
	EXPECT_NE(demo.output.find("every phase ended as expected"), std::string::npos) << demo.output;
	EXPECT_EQ(demo.output.find('\033'), std::string::npos) << "colours only on a terminal";

	const CommandResult drawn = run({{VELARIX_TIMELINE_SVG, timeline.string()}});
	EXPECT_TRUE(drawn.output.starts_with("<svg ")) << drawn.output.substr(0, 200);
	EXPECT_TRUE(drawn.output.ends_with("</svg>\n"));
	EXPECT_NE(drawn.output.find("host powered off (a)"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Settings, LabDemo, testing::Values("keeper", "plain"),
                         [](const testing::TestParamInfo<const char*>& settings) { return settings.param; });

} // namespace velarix::lab
