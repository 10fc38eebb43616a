/// keepalived and ucarp on a lab: their settings, and that they stay inside. Neither
/// is needed here.

#include <algorithm>
#include <csignal>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "evidence/peers/Report.h"
#include "lab/core/Command.h"

namespace velarix::evidence::peers
{

namespace
{

const Settings& peer(Program program, const std::string& name)
{
	for (const Settings& settings : allPeers())
	{
		if (settings.program == program && settings.name == name)
		{
			return settings;
		}
	}
	throw LabError("no such peer");
}

const Settings& keepalived(const std::string& name = "defaults")
{
	return peer(Program::keepalived, name);
}

const Settings& ucarp(const std::string& name = "defaults")
{
	return peer(Program::ucarp, name);
}

std::string fileNamed(const std::string& name, HostId node, const Settings& settings)
{
	for (const File& file : filesFor(node, settings))
	{
		if (file.name == name)
		{
			return file.text;
		}
	}
	return {};
}

bool has(const std::vector<std::string>& words, const std::string& word)
{
	return std::find(words.begin(), words.end(), word) != words.end();
}

/// What requireOwnNamespaces says of a process that has made these namespaces for
/// itself; empty: nothing.
std::string refusalWith(int namespaces)
{
	int ends[2];
	EXPECT_EQ(::pipe(ends), 0);
	const pid_t child = ::fork();
	if (child == 0)
	{
		const char mark = ::unshare(namespaces) == 0 ? '+' : '-';
		(void)!::write(ends[1], &mark, 1);
		::pause();
		_exit(0);
	}
	char mark = 0;
	EXPECT_EQ(::read(ends[0], &mark, 1), 1);
	EXPECT_EQ(mark, '+');
	std::string refusal;
	try
	{
		requireOwnNamespaces(child);
	}
	catch (const LabError& error)
	{
		refusal = error.what();
	}
	::kill(child, SIGKILL);
	::waitpid(child, nullptr, 0);
	::close(ends[0]);
	::close(ends[1]);
	return refusal;
}

} // namespace

TEST(Settings, KeepalivedGuardsAddressProgramAndCards)
{
	const std::string a = fileNamed("keepalived.conf", HostId::a, keepalived());
	for (const char* part : {"state BACKUP", "nopreempt", "interface eth0", "priority 150", "advert_int 1\n",
	                         "track_interface {\n    eth1", "track_script {\n    service", "192.0.2.100/24 dev eth0",
	                         "script \"/usr/velarix-peers/check\"", "interval 1", "fall 1",
	                         "vrrp_garp_master_refresh 5", "enable_script_security"})
	{
		EXPECT_NE(a.find(part), std::string::npos) << part << " in\n" << a;
	}
	EXPECT_NE(fileNamed("keepalived.conf", HostId::b, keepalived()).find("priority 100"), std::string::npos);
	EXPECT_NE(fileNamed("keepalived.conf", HostId::a, keepalived("short")).find("advert_int 0.1\n"), std::string::npos);
	EXPECT_NE(fileNamed("check", HostId::a, keepalived()).find("127.0.0.1/8080"), std::string::npos);
	const std::vector<std::string> command = commandFor(HostId::a, keepalived());
	EXPECT_EQ(command.front(), "keepalived");
	EXPECT_TRUE(has(command, "--dont-fork"));
	EXPECT_TRUE(has(command, "--vrrp")) << "no part of it that loads modules";
}

TEST(Settings, UcarpRaisesAndDropsTheAddressByScripts)
{
	const std::vector<std::string> a = commandFor(HostId::a, ucarp());
	const std::vector<std::string> b = commandFor(HostId::b, ucarp("short"));
	EXPECT_EQ(a.front(), "ucarp");
	for (const char* word :
	     {"--interface=eth0", "--srcip=192.0.2.11", "--addr=192.0.2.100", "--advbase=1", "--advskew=0", "--deadratio=3",
	      "--upscript=/usr/velarix-peers/up", "--downscript=/usr/velarix-peers/down", "--shutdown"})
	{
		EXPECT_TRUE(has(a, word)) << word;
	}
	EXPECT_FALSE(has(a, "--preempt"));
	for (const char* word : {"--srcip=192.0.2.12", "--advskew=50", "--deadratio=2"})
	{
		EXPECT_TRUE(has(b, word)) << word;
	}
	EXPECT_NE(fileNamed("up", HostId::a, ucarp()).find("ip addr add 192.0.2.100/24 dev eth0"), std::string::npos);
	EXPECT_NE(fileNamed("up", HostId::a, ucarp()).find("arping -q -A"), std::string::npos);
	EXPECT_NE(fileNamed("down", HostId::a, ucarp()).find("ip addr del 192.0.2.100/24 dev eth0"), std::string::npos);
}

TEST(Settings, TellTheirTimes)
{
	EXPECT_EQ(keepalived().times.silence(Program::keepalived), Millis(3000));
	EXPECT_EQ(keepalived("short").times.silence(Program::keepalived), Millis(300));
	EXPECT_EQ(ucarp("short").times.silence(Program::ucarp), Millis(2000));
	EXPECT_NE(toText(keepalived("short")).find("advertisement every 0.1 s"), std::string::npos);
}

TEST(Settings, NoneLeavesItsNamespaces)
{
	for (const Settings& settings : allPeers())
	{
		for (const HostId node : nodes)
		{
			EXPECT_FALSE(escapeIn(commandFor(node, settings), filesFor(node, settings)));
		}
	}
	const std::vector<std::string> good = commandFor(HostId::a, keepalived());
	const std::vector<File> files = filesFor(HostId::a, keepalived());
	for (const char* option : {"-s", "-sother", "-lsother", "--namespace=other", "--vrrp=x", "-m",
	                           "--core-dump-pattern=x", "-M", "-C", "other", "/usr/velarix-peers/other.conf", ""})
	{
		std::vector<std::string> command = good;
		command.emplace_back(option);
		EXPECT_TRUE(escapeIn(command, files)) << option;
	}
	for (const char* word : {"net_namespace other", "include other.conf", "virtual_server 192.0.2.100 80",
	                         "router_id x", "@^a", "$X=include", "linkbeat_use_polling"})
	{
		EXPECT_TRUE(escapeIn(good, {{"keepalived.conf", std::string("global_defs {\n ") + word + "\n}\n"}})) << word;
	}
	std::vector<std::string> whole = good;
	std::erase(whole, "--vrrp");
	EXPECT_TRUE(escapeIn(whole, files)) << "all parts of it";
	for (const char* option : {"--daemonize", "-B", "--upscript=/bin/other", "--downscript"})
	{
		std::vector<std::string> command = commandFor(HostId::a, ucarp());
		command.emplace_back(option);
		EXPECT_TRUE(escapeIn(command, {})) << option;
	}
	EXPECT_TRUE(escapeIn({}, {}));
	EXPECT_TRUE(escapeIn({"sh", "-c", "true"}, {}));
}

TEST(PeerCells, HaveOneNameEach)
{
	const std::vector<Cell> cells = peerCells();
	std::set<std::string> names;
	for (const Cell& cell : cells)
	{
		EXPECT_TRUE(names.insert(cell.name).second) << cell.name;
		EXPECT_EQ(cell.name.ends_with("/standby"), cell.node != cell.master) << cell.name;
	}
	EXPECT_EQ(peerCells({"power-off"}).size(), 4U);
	EXPECT_EQ(peerCells({"power-off/a", "deaf/b/master", "power-off/a/master"}).size(), 3U);
	EXPECT_THROW(peerCells({"power"}), LabError);
	for (const PeerFault& fault : peerFaults())
	{
		EXPECT_EQ(fault.repair == nullptr, fault.repaired == nullptr) << fault.name;
	}
}

TEST(PeerReport, NamesWhatDidNotEnd)
{
	Results results;
	results.cells = peerCells({"program-kill/a/master"});
	RunRecord record;
	record.cell = "program-kill/a/master";
	results.tables = {{keepalived(), {record}}};
	EXPECT_TRUE(results.complete());
	const nlohmann::json report = jsonOf(results);
	EXPECT_EQ(report["peers"][0]["program"], "keepalived");
	EXPECT_EQ(report["peers"][0]["records"].size(), 1U);
	EXPECT_EQ(report["cells"][0]["fault"], "program-kill:a");
	results.tables[0].records[0].differences = {"the lab burnt down"};
	EXPECT_FALSE(results.complete());
	EXPECT_NE(toText(results).find("the lab burnt down"), std::string::npos);
}

TEST(PeersAreRefused, WithoutNamespacesOfTheirOwn)
{
	EXPECT_THROW(requireOwnNamespaces(::getpid()), LabError);
	EXPECT_THROW(requireOwnNamespaces(1), LabError);
	EXPECT_THROW(requireOwnNamespaces(0), LabError);
	if (::geteuid() != 0)
	{
		GTEST_SKIP() << "needs root";
	}
	// A process namespace is for children, so the child itself still shares it.
	EXPECT_NE(refusalWith(CLONE_NEWNET | CLONE_NEWNS).find("no pid namespace"), std::string::npos);
	EXPECT_NE(refusalWith(CLONE_NEWNET).find("no pid namespace"), std::string::npos);
	EXPECT_NE(refusalWith(CLONE_NEWNS).find("no net namespace"), std::string::npos);
}

TEST(PeerCommand, TellsInPlainWordsWhatIsWrong)
{
	const CommandResult cell = run({{VELARIX_EVIDENCE_PROGRAM, "peers", "--only", "earthquake"}});
	EXPECT_EQ(cell.status, 2);
	EXPECT_NE(cell.output.find("there is no cell \"earthquake\""), std::string::npos) << cell.output;
	EXPECT_EQ(run({{VELARIX_EVIDENCE_PROGRAM, "peers", "--program", "other"}}).status, 2);
	EXPECT_EQ(run({{VELARIX_EVIDENCE_PROGRAM, "peers", "--runs", "0"}}).status, 2);
	EXPECT_EQ(run({{VELARIX_EVIDENCE_PROGRAM, "peers", "--format", "xml"}}).status, 2);
	const CommandResult list = run({{VELARIX_EVIDENCE_PROGRAM, "peers", "--list", "--only", "mute"}});
	EXPECT_TRUE(list.ok());
	EXPECT_EQ(std::count(list.output.begin(), list.output.end(), '\n'), 2);
}

} // namespace velarix::evidence::peers
