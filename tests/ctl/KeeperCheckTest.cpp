// What the check has against keeper.ini, and against settings that do not fit it.

#include "CheckTest.h"
#include "ctl/check/KeeperChecks.h"

using namespace velarix::ctl;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

namespace
{

constexpr char kConfig[] = "/usr/velarix/bin/ini/config.ini";
constexpr char kKeeperIni[] = "/usr/velarix/bin/ini/keeper.ini";

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
		setKey(lines, "VIRTUAL_IP_START_COMMAND", "/usr/libexec/velarix-ha/keeper raise");
		setKey(lines, "VIRTUAL_IP_STOP_COMMAND", "/usr/libexec/velarix-ha/keeper drop");
		setKey(lines, "PROCESS_KILL_COMMAND", "/usr/libexec/velarix-ha/keeper stop");
		setKey(lines, "PROCESS_NUM", "2");
		setKey(lines, "PROCESS_PATH1", "/usr/velarix/run/ha-address\nPROCESS_PATH2 = /usr/velarix/run/ha-web");
	}

	std::vector<std::string> foundIn(const std::string& config, const std::string& keeperIni) const
	{
		write(kConfig, config);
		write(kKeeperIni, keeperIni);
		return found({.file = settings(), .partner = {}, .filesOnly = false});
	}

	const std::string m_keeper = "[address]\naddress = 198.51.100.10/24\ninterface = eth0\non_conflict = defend\n"
	                             "[service web]\ncommand = /usr/sbin/nginx\n";
};

} // namespace

TEST_F(KeeperCheck, ASoundNodeHasNoFindingAndItsCommandsAreNotTried)
{
	EXPECT_THAT(foundIn(joined(lines), m_keeper), IsEmpty());
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
	    {none, {"on_conflict = defend", "on_conflict = perhaps"}, "error keeper-settings KEEPER:4"},
	    {{"keeper raise", "keeper raise >/dev/null"}, none, "error keeper-command CONFIG:12"},
	    {{"/usr/libexec/velarix-ha/keeper stop", "killall -q -9"}, none, "error keeper-command CONFIG:23"},
	    {{"ha-address", "ha-web2"}, none, "error keeper-address-not-first CONFIG:18"},
	    {{"ha-address\nPROCESS_PATH2 = /usr/velarix/run/ha-web", "ha-web\nPROCESS_PATH2 = /usr/velarix/run/ha-address"},
	     none,
	     "warning keeper-address-not-first CONFIG:18"},
	    {{"/usr/velarix/run/ha-web", "/opt/service/bin/server"}, none, "error keeper-foreign-program CONFIG:19"},
	    {{"run/ha-web", "run/ha-db"}, none, "error keeper-service-missing CONFIG:19"},
	    {{"run/ha-web", "run/ha-db"}, none, "error keeper-service-unmanaged KEEPER:5"},
	    {none, {"198.51.100.10", "198.51.100.11"}, "error keeper-address-differs KEEPER:1"},
	    {none, {"eth0", "eth2"}, "warning keeper-another-interface KEEPER:1"},
	};
	for (const Row& row : rows)
	{
		std::string expected = row.finding;
		for (const Change& name : {Change{"KEEPER", kKeeperIni}, Change{"CONFIG", kConfig}})
		{
			expected = expected.find(name.from) == std::string::npos ? expected : changed(expected, name);
		}
		EXPECT_THAT(foundIn(changed(joined(lines), row.config), changed(m_keeper, row.keeper)), Contains(expected));
	}
	fs::remove(below(kKeeperIni));
	write(kConfig, joined(lines));
	EXPECT_THAT(found({.file = settings(), .partner = {}, .filesOnly = false}),
	            Contains(std::string("error keeper-settings ") + kKeeperIni));
}

TEST_F(KeeperCheck, NobodyElseMayWriteWhatRootRuns)
{
	executable("/usr/sbin/nginx");
	EXPECT_THAT(foundIn(joined(lines), m_keeper), IsEmpty());
	for (const char* path : {kKeeperIni, "/usr/sbin/nginx"})
	{
		fs::permissions(below(path), fs::perms{0777});
	}
	EXPECT_THAT(foundIn(joined(lines), m_keeper),
	            UnorderedElementsAre(std::string("error writable-program ") + kKeeperIni,
	                                 "error writable-program /usr/sbin/nginx"));
	EXPECT_THAT(foundIn(joined(lines), m_keeper + "user = www\n"), SizeIs(1)) << "not root's";
}

TEST_F(KeeperCheck, TheMachineMayLackWhatItNeeds)
{
	CheckReport report;
	const SettingsFile file = SettingsFile::parse("config.ini", joined(lines));
	Findings findings(file, report);
	checks::keeperMachine(
	    findings, {"keeper.ini", velarix::keeper::parseSettings(
	                                 "[address]\naddress = 198.51.100.10\ninterface = none0\non_conflict = yield\n"
	                                 "[service web]\ncommand = /no/such/program\nuser = nobody-of-that-name\n")});
	const std::vector<std::string> all = shortForms(report);
	EXPECT_THAT(all, Contains("warning keeper-warning keeper.ini:1")) << "interface and link";
	EXPECT_THAT(all, Contains("error keeper-unavailable keeper.ini:6"));
	EXPECT_THAT(all, Contains("error keeper-user keeper.ini:7"));
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
	const SettingsFile file = SettingsFile::parse("config.ini", joined(lines));
	const auto onMachine = [&](const std::string& address)
	{
		CheckReport report;
		Findings findings(file, report);
		checks::keeperMachine(
		    findings, {below(kKeeperIni), velarix::keeper::parseSettings(m_keeper + "[reachability]\naddress = " +
		                                                                 address + "\ntargets = 192.0.2.9\n")});
		return shortForms(report);
	};
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
	write(kConfig, joined(lines));
	write(kKeeperIni, m_keeper);
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
	EXPECT_THAT(found(request), ElementsAre(std::string("error keeper-on-conflict ") + kKeeperIni + ":1"));
	write("/b/keeper.ini", changed(yields, {"nginx", "apache2"}));
	EXPECT_THAT(found(request), ElementsAre(std::string("warning keeper-files-differ ") + kKeeperIni));
	const std::string reach = "[reachability]\naddress = 192.0.2.254\ntargets = 192.0.2.9\n";
	write(kKeeperIni, m_keeper + reach + "own = 192.0.2.1\npartner = 192.0.2.2\n");
	write("/b/keeper.ini", yields + reach + "own = 192.0.2.2\npartner = 192.0.2.1\n");
	write("/usr/velarix/bin/ini/reachability.key", "7");
	write("/b/reachability.key", "8");
	EXPECT_THAT(found(request),
	            ElementsAre(std::string("error reach-key-differs /usr/velarix/bin/ini/reachability.key")));
}
