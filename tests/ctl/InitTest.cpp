// What init writes, what it asks for, and what it refuses to write.

#include "InitTest.h"
#include "inspect/Names.h"
#include "inspect/SettingsKeys.h"
#include "keeper/Settings.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
namespace keeper = velarix::keeper;

namespace fs = std::filesystem;

namespace
{

constexpr char kProgram[] = "--program=/opt/service/bin/server";

} // namespace

TEST_F(Init, WritesTheFilesOfBothNodes)
{
	const Outcome outcome = run(arguments());
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(anonymous(outcome.out), "written: /pair/a/config.ini\n"
	                                  "written: /pair/a/keeper.ini\n"
	                                  "written: /pair/a/firewall.nft\n"
	                                  "written: /pair/a/runinfo.txt\n"
	                                  "written: /pair/b/config.ini\n"
	                                  "written: /pair/b/keeper.ini\n"
	                                  "written: /pair/b/firewall.nft\n"
	                                  "written: /pair/b/runinfo.txt\n"
	                                  "next, as root:\n"
	                                  "  copy /pair/a/* to /usr/velarix/bin/ini on node a (192.0.2.1)\n"
	                                  "  copy /pair/b/* to /usr/velarix/bin/ini on node b (192.0.2.2)\n"
	                                  "  velarixctl check on both nodes\n"
	                                  "  systemctl enable --now velarix-ha on node a, then on node b\n"
	                                  "  velarixctl status on both: a failover would work\n");
	EXPECT_EQ(outcome.err, "");
	expectGolden("init-a-keeper.ini", readFile(file("a/keeper.ini")));
	expectGolden("init-a.ini", readFile(file("a/config.ini")));
	expectGolden("init-b.ini", readFile(file("b/config.ini")));
	EXPECT_EQ(readFile(VELARIX_PACKAGING "/runinfo.txt"), kInitialRunInfo);
	EXPECT_EQ(readFile(file("a/runinfo.txt")), kInitialRunInfo);
	EXPECT_EQ(readFile(file("b/runinfo.txt")), kInitialRunInfo);
}

TEST_F(Init, ServicesGoToTheKeeperWithWhatIsSaidOfThem)
{
	run(arguments({"--unit=db=postgresql.service", "--service-user=web=www-data",
	               "--service-check=web=curl -fsS http://127.0.0.1/"}));
	const auto a = keeper::readSettings(file("a/keeper.ini").c_str());
	const auto b = keeper::readSettings(file("b/keeper.ini").c_str());
	ASSERT_THAT(a.findings, IsEmpty());
	ASSERT_EQ(a.settings.services.size(), 2U);
	const keeper::ServiceSettings& web = a.settings.services[0];
	EXPECT_EQ(web.program, "ha-web");
	EXPECT_THAT(web.command, ElementsAre("/usr/sbin/nginx", "-g", "daemon off;"));
	EXPECT_EQ(web.user, "www-data");
	EXPECT_THAT(web.check, ElementsAre("curl", "-fsS", "http://127.0.0.1/"));
	EXPECT_EQ(a.settings.services[1].unit, "postgresql.service");
	EXPECT_TRUE(a.settings.address.defend) << "the configured master";
	EXPECT_FALSE(b.settings.address.defend);
	EXPECT_THAT(settingsOf("b").programs(),
	            ElementsAre("/usr/velarix/run/ha-address", "/usr/velarix/run/ha-web", "/usr/velarix/run/ha-db"));
}

TEST_F(Init, WithProgramsTheSettingsAreThePlainOnes)
{
	run(arguments({}, kProgram));
	EXPECT_FALSE(fs::exists(file("a/keeper.ini")));
	EXPECT_THAT(settingsOf("a").text(key::kStartCommand).value_or(""), HasSubstr("ip addr add 198.51.100.10/24"));
	EXPECT_EQ(settingsOf("a").text(key::kKillCommand),
	          "ip addr del 198.51.100.10/24 dev eth0 >/dev/null 2>&1; killall -q -9");
}

TEST_F(Init, RunAgainWithNothingToChangeItIsContent)
{
	run(arguments());
	const Outcome again = run(arguments());
	EXPECT_EQ(again.code, 0);
	EXPECT_THAT(again.out, AllOf(Not(HasSubstr("written")), Not(HasSubstr("next"))));
	EXPECT_THAT(anonymous(again.out), HasSubstr("unchanged: /pair/b/keeper.ini\n"));
}

TEST_F(Init, TheFirewallKnowsTheNodeAndItsPartner)
{
	run(arguments({"--port=300"}));
	for (const auto& [node, own, partner] : {std::tuple("a", "1", "2"), std::tuple("b", "2", "1")})
	{
		EXPECT_THAT(readFile(file(std::string(node) + "/firewall.nft")),
		            AllOf(HasSubstr("define port = 300 "),
		                  HasSubstr(std::string("define address = 192.0.2.") + own + " "),
		                  HasSubstr(std::string("define partner = 192.0.2.") + partner + "\n"),
		                  HasSubstr("define gateway = 192.0.2.254 "),
		                  // Without the prefix length.
		                  HasSubstr("define virtual_ip = 198.51.100.10\n")));
	}
}

TEST_F(Init, WithTheAnswersOfTheExampleTheFirewallIsTheShippedOne)
{
	run(arguments());
	EXPECT_EQ(readFile(file("a/firewall.nft")), readFile(VELARIX_PACKAGING "/firewall/velarix-ha.nft"));
}

TEST_F(Init, WhatItPutsInPlaceMakesASoundNode)
{
	fs::remove(settings());
	const Outcome outcome = runBelow(arguments({"--this=a"}));
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(anonymous(outcome.out), HasSubstr("next, as root:\n  copy /pair/b/* to "));
	const Outcome checked = runBelow({"check", "--partner", file("b/config.ini").string()});
	EXPECT_EQ(checked.code, 0);
	EXPECT_THAT(checked.out, EndsWith("0 errors, 0 warnings\n"));
}

TEST_F(Init, ItsValuesAreThoseOfTheSample)
{
	run(arguments());
	const SettingsFile a = settingsOf("a");
	const SettingsFile sample = SettingsFile::load(VELARIX_PACKAGING "/config.ini.sample");
	ASSERT_EQ(a.lines().size(), sample.lines().size());
	for (const SettingLine& line : sample.lines())
	{
		EXPECT_EQ(a.text(line.key), sample.text(line.key)) << line.key;
	}
}

TEST_F(Init, TheOptionsReachTheFiles)
{
	run(arguments({"--master=b", "--port=7777", "--interval=3", "--receiving-time=7", "--waiting-time=0",
	               "--check-cycle=5", "--log=/var/log/velarix/agent.log", "--purge-age=2 weeks"}));
	EXPECT_EQ(settingsOf("a").text(key::kMode), "2");
	for (const auto& [name, value] :
	     {std::pair(key::kMode, "1"), std::pair(key::kReceivePort, "7777"), std::pair(key::kPartnerPort, "7777"),
	      std::pair(key::kInterval, "3"), std::pair(key::kReceivingTime, "7"), std::pair(key::kWaitingTime, "0"),
	      std::pair(key::kCheckCycle, "5"), std::pair(key::kLogPath, "/var/log/velarix/agent.log"),
	      std::pair(key::kPurgeAge, "2 weeks")})
	{
		EXPECT_EQ(settingsOf("b").text(name), value) << name;
	}
}

// ---- what it refuses to write

TEST_F(Init, WithoutAnybodyToAskTheMissingOptionsAreNamed)
{
	const Outcome outcome = run({"init", "--gateway=192.0.2.254", "--output=" + output().string()});
	EXPECT_EQ(outcome.code, 2);
	EXPECT_EQ(outcome.out, "");
	EXPECT_EQ(outcome.err,
	          "velarixctl: needed: --address-a --address-b --virtual-ip --service (asked for when the input "
	          "is a terminal)\n");
	EXPECT_FALSE(fs::exists(output()));
}

TEST_F(Init, AWrongAnswerIsAUsageError)
{
	struct Row
	{
		const char* argument;
		const char* fault;
	};
	for (const Row& row :
	     {Row{"--address-a=192.0.2", "--address-a: no IPv4 address: \"192.0.2\""},
	      Row{"--gateway=fe80::1", "--gateway: no IPv4 address: \"fe80::1\""},
	      Row{"--service=web", "--service: not NAME=COMMAND: \"web\""},
	      Row{"--service=we/b=/bin/x", "--service: no name of a service: \"we/b\"; take at most 12 of"},
	      Row{"--unit=db=d/b.service", "--unit: \"d/b.service\" is not NAME.service"},
	      Row{"--service=web=a \"b", "--service: \"a \"b\" has an open quote"},
	      Row{"--needed=3", "--needed: without --target"},
	      Row{"--service-user=web=www", "--service-user: there is no service web"},
	      Row{"--virtual-ip=198.51.100.10/33", "--virtual-ip: no prefix length from 1 to 32 behind the "
	                                           "\"/\": \"198.51.100.10/33\""},
	      Row{"--virtual-ip=198.51.100.0/24", "--virtual-ip: 198.51.100.0 is the network of 198.51.100.0/24"},
	      Row{"--virtual-ip=198.51.100.7/29", "--virtual-ip: 198.51.100.7 is the broadcast address of 198.51.100.7/29"},
	      Row{"--virtual-ip=255.255.255.255", "--virtual-ip: no address of a single host: 255.255.255.255"},
	      Row{"--gateway=0.0.0.0", "--gateway: no address of a single host: 0.0.0.0"},
	      Row{"--program=server", "--program: no absolute path of a program: \"server\""}})
	{
		const Outcome outcome = run({"init", row.argument, "--output=" + output().string()});
		EXPECT_EQ(outcome.code, 2) << row.argument;
		EXPECT_THAT(outcome.err, HasSubstr(std::string("velarixctl: ") + row.fault));
		EXPECT_FALSE(fs::exists(output()));
	}
	EXPECT_EQ(run(arguments({kProgram})).code, 2) << "programs beside services";
	EXPECT_EQ(run(arguments({"--virtual-ip=198.51.100.10"}, kProgram)).code, 2) << "no prefix";
}

TEST_F(Init, APairThatWouldNotWorkIsNotWritten)
{
	const Outcome outcome = run(arguments({"--service=address=/bin/true"}));
	EXPECT_EQ(outcome.code, 78);
	EXPECT_EQ(outcome.out, "");
	EXPECT_THAT(outcome.err, HasSubstr("[keeper-settings]"));
	EXPECT_THAT(outcome.err, EndsWith("nothing was written\n"));
	EXPECT_FALSE(fs::exists(output()));
}

TEST_F(Init, APairWithWarningsIsWrittenAndTheyAreReported)
{
	const Outcome outcome = run(arguments({"--interval=2", "--receiving-time=3"}));
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(outcome.err, HasSubstr("[short-receiving-time]"));
	EXPECT_TRUE(fs::exists(file("b/config.ini")));
}

// ---- questions

TEST_F(Init, AsksForWhatIsMissing)
{
	const Outcome outcome = answering("192.0.2.1\n192.0.2.2\n192.0.2.254\n198.51.100.10/24\n"
	                                  "web\n/usr/sbin/nginx -g \"daemon off;\"\n\n\n\n");
	EXPECT_EQ(outcome.code, 0);
	EXPECT_EQ(outcome.err, "Address of node a on the communication network (eth1): "
	                       "Address of node b on the communication network (eth1): "
	                       "Address that answers pings as long as a node's network works (the gateway): "
	                       "Shared service address with its prefix length, as 198.51.100.10/24: "
	                       "Name of the service, as web: "
	                       "Its command with arguments, or its systemd unit (NAME.service): "
	                       "User that runs it (nothing: root): "
	                       "Command that ends with 0 while it is well (nothing: none): "
	                       "Name of another service (nothing: no more): ");
	EXPECT_EQ(readFile(file("a/config.ini")), readFile(fs::path(VELARIX_CTL_GOLDEN) / "init-a.ini"));
	EXPECT_EQ(readFile(file("a/keeper.ini")), readFile(fs::path(VELARIX_CTL_GOLDEN) / "init-a-keeper.ini"));
}

TEST_F(Init, AsksAgainAfterAWrongAnswer)
{
	const Outcome outcome =
	    answering("node-a\n\n 192.0.2.1 \n192.0.2.1\n192.0.2.2\n127.0.0.1\n192.0.2.254\n198.51.100.10/\n"
	              "192.0.2.254/24\n198.51.100.10\n"
	              "\nwe/b\nweb\n/bin/web\nwww\n\ndb\ndb.service\n/bin/ask\n\n");
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(outcome.err, HasSubstr("no IPv4 address: \"node-a\"\nAddress of node a"));
	EXPECT_THAT(outcome.err, HasSubstr("no IPv4 address: \"\"\nAddress of node a"));
	EXPECT_THAT(outcome.err, HasSubstr("no name of a service: \"we/b\""));
	EXPECT_THAT(outcome.err, HasSubstr("192.0.2.1 is given already: Address of node a on the communication network"));
	EXPECT_THAT(outcome.err, HasSubstr("192.0.2.254 is given already: Address that answers pings"));
	EXPECT_EQ(settingsOf("b").text(key::kPartnerIP), "192.0.2.1");
	const auto b = keeper::readSettings(file("b/keeper.ini").c_str()).settings;
	ASSERT_EQ(b.services.size(), 2U);
	EXPECT_EQ(b.address.prefix, 32);
	EXPECT_EQ(b.services[0].user, "www");
	EXPECT_EQ(b.services[1].unit, "db.service");
	EXPECT_THAT(b.services[1].check, ElementsAre("/bin/ask"));
}

TEST_F(Init, AnInputThatEndsEarlyWritesNothing)
{
	const Outcome outcome = answering("192.0.2.1\n192.0.2.2\n");
	EXPECT_EQ(outcome.code, 2);
	EXPECT_THAT(outcome.err, HasSubstr("the input ended before everything was answered; nothing was written\n"));
	EXPECT_FALSE(fs::exists(output()));
}

TEST_F(Init, TargetsMakeTheGatewayTheKeepersAddressWithOneKeyForBoth)
{
	std::vector<std::string> with = arguments({"--target=192.0.2.254", "--target=198.51.100.1", "--needed=2"});
	const Outcome claimed = run(with);
	EXPECT_EQ(claimed.code, 2) << "the keeper would claim the router's address";
	EXPECT_THAT(claimed.err, HasSubstr("--gateway: with --target the keeper holds this address itself"));
	std::erase(with, "--gateway=192.0.2.254");
	EXPECT_EQ(run(with).code, 0);
	EXPECT_EQ(settingsOf("a").text("AGENT.GATEWAY_IP"), "192.0.0.8");
	const auto b = keeper::readSettings(file("b/keeper.ini").c_str()).settings.reach;
	EXPECT_THAT(b.targets, ElementsAre("192.0.2.254", "198.51.100.1"));
	EXPECT_EQ(b.needed, 2);
	EXPECT_EQ(b.own, "192.0.2.2");
	EXPECT_EQ(b.partner, "192.0.2.1");
	const std::string key = readFile(file("a/reachability.key"));
	EXPECT_EQ(key.size(), 65U);
	EXPECT_EQ(readFile(file("b/reachability.key")), key);
	EXPECT_EQ(rightsOf(file("a/reachability.key")), 0600U);
	with.emplace_back("--force");
	EXPECT_EQ(run(with).code, 0);
	EXPECT_EQ(readFile(file("a/reachability.key")), key) << "the other node may have it already";
	with.emplace_back("--wireguard");
	EXPECT_EQ(run(with).code, 0);
	EXPECT_EQ(keeper::readSettings(file("b/keeper.ini").c_str()).settings.reach.partner, "169.254.127.1");
}
