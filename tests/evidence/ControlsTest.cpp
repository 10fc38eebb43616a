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

#include "evidence/peers/ControlReport.h"
#include "lab/core/Command.h"

namespace velarix::lab
{

namespace
{

const ControlSettings& control(ControlProgram program, const std::string& name)
{
	for (const ControlSettings& settings : allControls())
	{
		if (settings.program == program && settings.name == name)
		{
			return settings;
		}
	}
	throw LabError("no such control");
}

const ControlSettings& keepalived(const std::string& name = "defaults")
{
	return control(ControlProgram::keepalived, name);
}

const ControlSettings& ucarp(const std::string& name = "defaults")
{
	return control(ControlProgram::ucarp, name);
}

std::string fileNamed(const std::string& name, HostId node, const ControlSettings& settings)
{
	for (const ControlFile& file : controlFiles(node, settings))
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

LegRecord leg(const std::string& owner, Millis outage, bool open = false)
{
	LegRecord record;
	record.steady = true;
	record.owner = owner;
	record.answer = owner;
	record.programs = "a+b";
	record.outage = outage;
	record.outageOpen = open;
	return record;
}

} // namespace

TEST(ControlSettings, KeepalivedGuardsAddressProgramAndCards)
{
	const std::string a = fileNamed("keepalived.conf", HostId::a, keepalived());
	for (const char* part : {"state BACKUP", "nopreempt", "interface eth0", "priority 150", "advert_int 1\n",
	                         "track_interface {\n    eth1", "track_script {\n    service", "192.0.2.100/24 dev eth0",
	                         "script \"/usr/velarix-controls/check\"", "interval 1", "fall 1",
	                         "vrrp_garp_master_refresh 5", "enable_script_security"})
	{
		EXPECT_NE(a.find(part), std::string::npos) << part << " in\n" << a;
	}
	EXPECT_NE(fileNamed("keepalived.conf", HostId::b, keepalived()).find("priority 100"), std::string::npos);
	EXPECT_NE(fileNamed("keepalived.conf", HostId::a, keepalived("short")).find("advert_int 0.1\n"), std::string::npos);
	EXPECT_NE(fileNamed("check", HostId::a, keepalived()).find("127.0.0.1/8080"), std::string::npos);
	const std::vector<std::string> command = controlCommand(HostId::a, keepalived());
	EXPECT_EQ(command.front(), "keepalived");
	EXPECT_TRUE(has(command, "--dont-fork"));
	EXPECT_TRUE(has(command, "--vrrp")) << "no part of it that loads modules";
}

TEST(ControlSettings, UcarpRaisesAndDropsTheAddressByScripts)
{
	const std::vector<std::string> a = controlCommand(HostId::a, ucarp());
	const std::vector<std::string> b = controlCommand(HostId::b, ucarp("short"));
	EXPECT_EQ(a.front(), "ucarp");
	for (const char* word :
	     {"--interface=eth0", "--srcip=192.0.2.11", "--addr=192.0.2.100", "--advbase=1", "--advskew=0", "--deadratio=3",
	      "--upscript=/usr/velarix-controls/up", "--downscript=/usr/velarix-controls/down", "--shutdown"})
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

TEST(ControlSettings, TellTheirTimes)
{
	EXPECT_EQ(keepalived().times.silence(ControlProgram::keepalived), Millis(3000));
	EXPECT_EQ(keepalived("short").times.silence(ControlProgram::keepalived), Millis(300));
	EXPECT_EQ(ucarp("short").times.silence(ControlProgram::ucarp), Millis(2000));
	EXPECT_NE(toText(keepalived("short")).find("advertisement every 0.1 s"), std::string::npos);
}

TEST(ControlSettings, NoneLeavesItsNamespaces)
{
	for (const ControlSettings& settings : allControls())
	{
		for (const HostId node : nodes)
		{
			EXPECT_FALSE(escapeIn(controlCommand(node, settings), controlFiles(node, settings)));
		}
	}
	const std::vector<std::string> good = controlCommand(HostId::a, keepalived());
	const std::vector<ControlFile> files = controlFiles(HostId::a, keepalived());
	for (const char* option : {"-s", "-sother", "-lsother", "--namespace=other", "--vrrp=x", "-m",
	                           "--core-dump-pattern=x", "-M", "-C", "other", "/usr/velarix-controls/other.conf", ""})
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
		std::vector<std::string> command = controlCommand(HostId::a, ucarp());
		command.emplace_back(option);
		EXPECT_TRUE(escapeIn(command, {})) << option;
	}
	EXPECT_TRUE(escapeIn({}, {}));
	EXPECT_TRUE(escapeIn({"sh", "-c", "true"}, {}));
}

TEST(ControlCells, HaveOneNameEach)
{
	const std::vector<ControlCell> cells = controlCells();
	std::set<std::string> names;
	for (const ControlCell& cell : cells)
	{
		EXPECT_TRUE(names.insert(cell.name).second) << cell.name;
		EXPECT_EQ(cell.name.ends_with("/standby"), cell.node != cell.master) << cell.name;
	}
	EXPECT_EQ(controlCells({"power-off"}).size(), 4U);
	EXPECT_EQ(controlCells({"power-off/a", "deaf/b/master", "power-off/a/master"}).size(), 3U);
	EXPECT_THROW(controlCells({"power"}), LabError);
	for (const ControlFault& fault : controlFaults())
	{
		EXPECT_EQ(fault.heal == nullptr, fault.healed == nullptr) << fault.name;
	}
}

TEST(ControlReport, TellsWhatHappenedAndWhatDidNotEnd)
{
	ControlResults results;
	results.cells = controlCells({"program-kill/a/master"});
	results.runs = 2;
	RunRecord first;
	first.cell = "program-kill/a/master";
	first.legs = {leg("b", Millis(1200)), leg("b", Millis(0))};
	RunRecord second = first;
	second.legs = {leg("a", Millis(9000), true), leg("a", Millis(0))};
	results.tables = {{keepalived(), {first, second}}};
	EXPECT_TRUE(results.complete());
	const std::string text = toText(results);
	EXPECT_NE(text.find("a 1, b 1"), std::string::npos) << text;
	EXPECT_NE(text.find("for good 1"), std::string::npos) << text;
	EXPECT_NE(toMarkdown(results).find("| program-kill/a/master | program-kill:a |"), std::string::npos);
	const nlohmann::json told = nlohmann::json::parse(toJson(results));
	EXPECT_EQ(told["controls"][0]["program"], "keepalived");
	EXPECT_EQ(told["controls"][0]["records"].size(), 2U);
	results.tables[0].records[1].differences = {"the lab burnt down"};
	EXPECT_FALSE(results.complete());
	EXPECT_NE(toText(results).find("the lab burnt down"), std::string::npos);
}

TEST(ControlsAreRefused, WithoutNamespacesOfTheirOwn)
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

TEST(ControlProgramLine, TellsInPlainWordsWhatIsWrong)
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

} // namespace velarix::lab
