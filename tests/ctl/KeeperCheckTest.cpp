// What the check has against keeper.ini, and against settings that do not fit it.

#include "CheckTest.h"
#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

namespace
{

#define CONFIG "/usr/velarix/bin/ini/config.ini"
#define KEEPER "/usr/velarix/bin/ini/keeper.ini"

/// A change to a sound file: the first `from` becomes `to`.
struct Change
{
	const char* from;
	const char* to;
};

std::string changed(std::string text, const Change& change)
{
	const std::size_t at = text.find(change.from);
	EXPECT_NE(at, std::string::npos) << change.from;
	return text.replace(at, std::string(change.from).size(), change.to);
}

class KeeperCheck : public CheckTest
{
protected:
	KeeperCheck()
	{
		executable("/usr/libexec/velarix-ha/keeper");
		executable("/usr/sbin/nginx");
		setKey(lines, "VIRTUAL_IP_START_COMMAND", "/usr/libexec/velarix-ha/keeper raise");
		setKey(lines, "VIRTUAL_IP_STOP_COMMAND", "/usr/libexec/velarix-ha/keeper drop");
		setKey(lines, "PROCESS_KILL_COMMAND", "/usr/libexec/velarix-ha/keeper stop");
		setKey(lines, "PROCESS_NUM", "2");
		setKey(lines, "PROCESS_PATH1", "/usr/velarix/run/ha-address\nPROCESS_PATH2 = /usr/velarix/run/ha-web");
	}

	std::vector<std::string> foundIn(const std::string& config, const std::string& keeperIni) const
	{
		write(CONFIG, config);
		write(KEEPER, keeperIni);
		return found({.file = settings()});
	}

	/// @return what the machine lacks for a keeper.ini
	std::vector<std::string> foundOnMachine(const std::string& keeperIni) const
	{
		const checks::KeeperFile file{below(KEEPER), velarix::keeper::parseSettings(keeperIni)};
		return shortForms(
		    reportOf(parsed(below(CONFIG)), [&](Findings& findings) { checks::keeperMachine(findings, file); }));
	}

	const std::string m_keeper = "[address]\naddress = 198.51.100.10/24\ninterface = eth0\non_conflict = defend\n"
	                             "[service web]\ncommand = /usr/sbin/nginx\n";
};

} // namespace

TEST_F(KeeperCheck, ASoundNodeHasNoFinding)
{
	EXPECT_THAT(foundIn(joined(lines), m_keeper), IsEmpty());
	const Outcome sound = runBelow({"check"});
	EXPECT_EQ(sound.code, 0);
	EXPECT_THAT(sound.out, EndsWith("0 errors, 0 warnings\n"));
}

TEST_F(KeeperCheck, ItsCommandsAreNotTriedOnTheMachine)
{
	write(CONFIG, joined(soundLines()));
	run({"check", settings()});
	EXPECT_THAT(fakeHost().trials, SizeIs(1)) << "those of other commands are";
	fakeHost().trials.clear();
	fakeHost().addresses = {{"eth1", "eth1", "198.51.100.10", 24, true}};
	foundIn(joined(lines), m_keeper);
	const Outcome outcome = run({"check", settings()});
	EXPECT_EQ(outcome.code, 78);
	EXPECT_THAT(outcome.out, AllOf(HasSubstr("[address-already-there]"), Not(HasSubstr("not checked: interfaces"))));
	EXPECT_THAT(fakeHost().trials, IsEmpty());
}

TEST_F(KeeperCheck, EachFaultHasItsFinding)
{
	struct Row
	{
		Change config;
		Change keeper;
		const char* finding;
	};
	const Change none{"", ""};
	const std::vector<Row> rows{
	    {none, {"on_conflict = defend", "on_conflict = perhaps"}, "error keeper-settings " KEEPER ":4"},
	    {{"keeper raise", "keeper raise >/dev/null"}, none, "error keeper-command " CONFIG ":12"},
	    {{"/usr/libexec/velarix-ha/keeper stop", "killall -q -9"}, none, "error keeper-command " CONFIG ":23"},
	    {{"ha-address", "ha-web2"}, none, "error keeper-address-not-first " CONFIG ":18"},
	    {{"ha-address\nPROCESS_PATH2 = /usr/velarix/run/ha-web", "ha-web\nPROCESS_PATH2 = /usr/velarix/run/ha-address"},
	     none,
	     "warning keeper-address-not-first " CONFIG ":18"},
	    {{"/usr/velarix/run/ha-web", "/opt/service/bin/server"}, none, "error keeper-foreign-program " CONFIG ":19"},
	    {{"run/ha-web", "run/ha-db"}, none, "error keeper-service-missing " CONFIG ":19"},
	    {{"run/ha-web", "run/ha-db"}, none, "error keeper-service-unmanaged " KEEPER ":5"},
	    {none, {"198.51.100.10", "198.51.100.11"}, "error keeper-address-differs " KEEPER ":1"},
	    {none, {"eth0", "eth2"}, "warning keeper-another-interface " KEEPER ":1"},
	    {none, {"nginx", "nginx | cat"}, "warning keeper-warning " KEEPER ":6"},
	    {none, {"nginx", "no-nginx"}, "error keeper-unavailable " KEEPER ":6"},
	    {none, {"nginx\n", "nginx\ncheck = /opt/ask\n"}, "error script-without-interpreter " KEEPER ":5"},
	    {none, {"/usr/sbin/nginx", "nice -n 5 /usr/sbin/no-nginx"}, "error missing-program-file " KEEPER ":6"},
	    {none, {"/usr/sbin/nginx", "nice no-nginx"}, "warning missing-program-file " KEEPER ":6"},
	    {none, {"/usr/sbin/nginx", "nice /opt/ask"}, "error script-without-interpreter " KEEPER ":6"},
	    {none, {"/usr/sbin/nginx", "/opt/leaves"}, "warning wrapper-without-exec " KEEPER ":6"},
	};
	executable("/opt/ask", "exec curl\n");
	executable("/opt/leaves", "#!/bin/sh\n\"$DAEMON\" >/dev/null 2>&1 &\necho $! >/run/daemon.pid\n");
	executable("/usr/bin/nice");
	for (const Row& row : rows)
	{
		EXPECT_THAT(foundIn(changed(joined(lines), row.config), changed(m_keeper, row.keeper)), Contains(row.finding));
	}
	fs::remove(below(KEEPER));
	write(CONFIG, joined(lines));
	EXPECT_THAT(found({.file = settings()}), ElementsAre("error keeper-settings " KEEPER));
}

TEST_F(KeeperCheck, OneCauseIsOneFinding)
{
	std::vector<std::string> same = lines;
	setKey(same, "VIRTUAL_IP", "192.0.2.2");
	EXPECT_THAT(foundIn(joined(same), m_keeper), ElementsAre("error same-address " CONFIG ":11"));
	EXPECT_THAT(foundIn(changed(joined(lines), {"PROCESS_NUM = 2", "PROCESS_NUM = 1"}), m_keeper),
	            ElementsAre("error keeper-service-unmanaged " KEEPER ":5"));
}

TEST_F(KeeperCheck, CommandsBehindOthersAreFine)
{
	executable("/usr/bin/nice");
	executable("/usr/bin/flock");
	executable("/opt/waits", "#!/bin/sh\n/usr/sbin/nginx &\nwait\n");
	executable("/opt/cleans", "#!/bin/sh\nclean &\nexit 0\n");
	for (const char* command : {"nice -n 5 nginx", "flock -w 120 /srv/db/.ha-lock /usr/sbin/nginx", "/opt/waits",
	                            "nginx\ncheck = /opt/cleans"})
	{
		EXPECT_THAT(foundIn(joined(lines), changed(m_keeper, {"/usr/sbin/nginx", command})), IsEmpty()) << command;
	}
}

TEST_F(KeeperCheck, NobodyElseMayWriteWhatRootRuns)
{
	EXPECT_THAT(foundIn(joined(lines), m_keeper), IsEmpty());
	for (const char* path : {KEEPER, "/usr/sbin/nginx"})
	{
		fs::permissions(below(path), fs::perms{0777});
	}
	EXPECT_THAT(foundIn(joined(lines), m_keeper),
	            UnorderedElementsAre("error writable-program " KEEPER, "error writable-program /usr/sbin/nginx"));
	EXPECT_THAT(foundIn(joined(lines), m_keeper + "user = www\n"), SizeIs(1)) << "not root's";
}

TEST_F(KeeperCheck, TheMachineMayLackWhatItNeeds)
{
	const std::vector<std::string> all =
	    foundOnMachine("[address]\naddress = 198.51.100.10\ninterface = none0\non_conflict = yield\n"
	                   "[service web]\ncommand = /no/such/program\nuser = nobody-of-that-name\n");
	EXPECT_THAT(all, Contains("warning keeper-warning " KEEPER ":1")) << "interface and link";
	EXPECT_THAT(all, Contains("error keeper-unavailable " KEEPER ":6"));
	EXPECT_THAT(all, Contains("error keeper-user " KEEPER ":7"));
}

TEST_F(KeeperCheck, TheAddressIsHeldAgainstThoseOfTheMachine)
{
	const std::string error = "error address-already-there " CONFIG ":11";
	const std::string another = "warning address-of-another-network " CONFIG ":11";
	const std::string prefix = "warning prefix-of-no-network " KEEPER ":1";
	using Addresses = std::vector<host::Address>;
	const host::Address own{"eth0", "eth0", "198.51.100.1", 24, true};
	const auto held = [](const char* label, int length) {
		return host::Address{std::string(label).substr(0, 4), label, "198.51.100.10", length, true};
	};
	for (const auto& [address, addresses, expected] :
	     std::vector<std::tuple<const char*, Addresses, std::vector<std::string>>>{
	         {"198.51.100.10/24", {own}, {}},
	         {"198.51.100.10", {own}, {}},
	         {"198.51.100.10/24", {own, held("eth0:ha", 24)}, {}},
	         {"198.51.100.10/24", {own, held("eth0:ha", 32)}, {}},
	         {"198.51.100.10/24", {own, held("eth0", 24)}, {error}},
	         {"198.51.100.10", {own, held("eth0", 24)}, {error}},
	         {"198.51.100.10/24", {own, held("eth1", 24)}, {error}},
	         {"198.51.100.1/24", {own}, {error}},
	         {"203.0.113.10/24", {own}, {another}},
	         {"198.51.100.10/8", {own}, {prefix}}})
	{
		fakeHost().addresses = addresses;
		std::vector<std::string> all = foundOnMachine(changed(m_keeper, {"198.51.100.10/24", address}));
		std::erase_if(all, [](const std::string& text) { return text.find("keeper-") != std::string::npos; });
		EXPECT_EQ(all, expected) << address << " on " << addresses.back().label;
	}
}

TEST_F(KeeperCheck, AUserThatDoesNotReachItsProgramIsFound)
{
	executable("/opt/run");
	write("/srv/web", "");
	const auto foundFor = [&](const char* user)
	{
		const checks::KeeperFile file{
		    KEEPER, velarix::keeper::parseSettings("[service web]\ncommand = " + below("/opt/run").string() +
		                                           "\ndirectory = " + below("/srv").string() + "\nuser = " + user)};
		return shortForms(reportOf(parsed(below(CONFIG)),
		                           [&](Findings& findings) { checks::keeperPrograms(findings, file, Paths()); }));
	};
	const std::string program = "warning keeper-user-without-access " KEEPER ":2";
	const std::string directory = "warning keeper-user-without-access " KEEPER ":1";
	fs::permissions(root(), fs::perms{0755});
	EXPECT_THAT(foundFor("nobody"), IsEmpty());
	fs::permissions(below("/srv"), fs::perms{0700});
	EXPECT_THAT(foundFor("nobody"), ElementsAre(directory));
	EXPECT_THAT(foundFor("root"), IsEmpty());
	fs::permissions(below("/srv"), fs::perms{0755});
	fs::permissions(below("/opt"), fs::perms{0700});
	EXPECT_THAT(foundFor("nobody"), ElementsAre(program));
}

TEST_F(KeeperCheck, AKeeperThatMayNotRunIsOneFinding)
{
	write("/usr/velarix/run/.keep", "");
	for (const char* name : {"/usr/velarix/run/ha-address", "/usr/velarix/run/ha-web"})
	{
		fs::create_symlink("/usr/libexec/velarix-ha/keeper", below(name));
	}
	fs::permissions(below("/usr/libexec/velarix-ha/keeper"), fs::perms{0600});
	EXPECT_THAT(foundIn(joined(lines), m_keeper), ElementsAre("error missing-tool " CONFIG ":12"));
}

TEST_F(KeeperCheck, AnotherProgramInPlaceOfALinkIsFound)
{
	executable("/usr/velarix/run/ha-web", "#!/bin/sh\nexec /usr/sbin/nginx\n");
	EXPECT_THAT(foundIn(joined(lines), m_keeper), ElementsAre("error keeper-foreign-program " CONFIG ":19"));
	fs::permissions(below("/usr/velarix/run/ha-web"), fs::perms{0644});
	EXPECT_THAT(foundIn(joined(lines), m_keeper), IsEmpty()) << "replaced at the start";
}

TEST_F(KeeperCheck, BesideSettingsThatAreALinkIsTheInstalledFile)
{
	foundIn(joined(lines), m_keeper);
	fs::create_directories(below("/etc/velarix"));
	fs::rename(below(CONFIG), below("/etc/velarix/config.ini"));
	fs::create_symlink("/etc/velarix/config.ini", below(CONFIG));
	const Outcome outcome = runBelow({"check"});
	EXPECT_THAT(outcome.out, EndsWith("0 errors, 0 warnings\n"));
	EXPECT_THAT(outcome.out, HasSubstr("not checked: the users, units, directories and links of the services (another "
	                                   "root)\n"));
}

TEST_F(KeeperCheck, FaultsOfTheReachability)
{
	const std::string reach = "[reachability]\naddress = 192.0.0.8\ntargets = 192.0.2.9 192.0.2.8\n"
	                          "own = 192.0.2.1\npartner = 192.0.2.2\n";
	setKey(lines, "GATEWAY_IP", "192.0.0.8");
	EXPECT_THAT(foundIn(joined(lines), m_keeper + reach), IsEmpty());
	for (const auto& [from, to, finding] :
	     {std::tuple("192.0.0.8", "192.0.0.9", "error reach-address-differs "),
	      std::tuple("own = 192.0.2.1", "own = 192.0.2.5", "error reach-address-differs "),
	      std::tuple("192.0.2.9 ", "192.0.2.2 ", "error keeper-settings "),
	      std::tuple("192.0.2.9 ", "192.0.2.8 ", "error keeper-settings "),
	      std::tuple("192.0.2.9 ", "router ", "error keeper-settings "),
	      std::tuple("own =", "needed = 3\nown =", "error keeper-settings ")})
	{
		EXPECT_THAT(foundIn(joined(lines), m_keeper + changed(reach, {from, to})),
		            Contains(testing::StartsWith(finding)))
		    << to;
	}
}

TEST_F(KeeperCheck, TheReachabilityNeedsAnAddressOfNoNetworkAndAKeyOfRoots)
{
	const fs::path key = write("/usr/velarix/bin/ini/reachability.key", std::string(64, '7'));
	const auto onMachine = [&](const std::string& address)
	{ return foundOnMachine(m_keeper + "[reachability]\naddress = " + address + "\ntargets = 192.0.2.9\n"); };
	const auto hasKeyFault = Contains(testing::StartsWith("error reach-key "));
	fs::permissions(key, fs::perms{0600});
	EXPECT_THAT(onMachine("192.0.0.8"), testing::Each(Not(testing::StartsWith("error reach-"))));
	EXPECT_THAT(onMachine("192.0.2.77"), Contains(testing::StartsWith("error reach-address-attached ")));
	fs::permissions(key, fs::perms{0640});
	EXPECT_THAT(onMachine("192.0.0.8"), hasKeyFault);
	fs::remove(key);
	EXPECT_THAT(onMachine("192.0.0.8"), hasKeyFault);
}

TEST_F(KeeperCheck, ThePartnersFileIsComparedAsWell)
{
	write(CONFIG, joined(lines));
	write(KEEPER, m_keeper);
	std::vector<std::string> partner = lines;
	setKey(partner, "MODE", "2");
	setKey(partner, "THIS_SERVER_IP", "192.0.2.2");
	setKey(partner, "PARTNER_IP", "192.0.2.1");
	const CheckRequest request{
	    .file = settings(), .partner = write("/b/config.ini", joined(partner)), .filesOnly = true};
	EXPECT_THAT(found(request), IsEmpty()) << "nothing beside the partner's file to compare with";
	const std::string yields = changed(m_keeper, {"defend", "yield"});
	write("/b/keeper.ini", yields);
	EXPECT_THAT(found(request), IsEmpty());
	write("/b/keeper.ini", m_keeper);
	EXPECT_THAT(found(request), ElementsAre("error keeper-on-conflict " KEEPER ":1"));
	write("/b/keeper.ini", changed(yields, {"nginx", "apache2"}));
	EXPECT_THAT(found(request), ElementsAre("warning keeper-files-differ " KEEPER));
	const std::string reach = "[reachability]\naddress = 192.0.2.254\ntargets = 192.0.2.9\n";
	write(KEEPER, m_keeper + reach + "own = 192.0.2.1\npartner = 192.0.2.2\n");
	write("/b/keeper.ini", yields + reach + "own = 192.0.2.2\npartner = 192.0.2.1\n");
	write("/usr/velarix/bin/ini/reachability.key", "7");
	write("/b/reachability.key", "8");
	EXPECT_THAT(found(request), ElementsAre("error reach-key-differs /usr/velarix/bin/ini/reachability.key"));
}
