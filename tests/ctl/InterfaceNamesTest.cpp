// The names of the interfaces: the .link files that init writes, what it refuses, and what it tells the operator.

#include "CheckTest.h"
#include "RowName.h"

namespace fs = std::filesystem;
using velarix::inspect::host::Link;

namespace
{

constexpr char kEth0[] = "/etc/systemd/network/00-velarix-eth0.link";
constexpr char kEth1[] = "/etc/systemd/network/00-velarix-eth1.link";
constexpr char kAgain[] = "/etc/systemd/system/systemd-udev-trigger.service.d/velarix-interfaces.conf";

Link hardware(const std::string& name, const std::string& address, const std::vector<std::string>& alternatives = {})
{
	return {name, "ether", "", address, address, alternatives};
}

class InterfaceNamesTest : public CheckTest
{
protected:
	InterfaceNamesTest()
	{
		fakeHost().links = {{"lo", "loopback", "", "00:00:00:00:00:00", "00:00:00:00:00:00", {}},
		                    hardware("ens192", "52:54:00:00:00:01"),
		                    hardware("ens224", "52:54:00:00:00:02")};
	}

	Outcome rename(const std::string& service, const std::string& communication,
	               const std::vector<std::string>& more = {}) const
	{
		std::vector<std::string> words{"init", "--service-interface=" + service};
		if (!communication.empty())
		{
			words.push_back("--communication-interface=" + communication);
		}
		words.insert(words.end(), more.begin(), more.end());
		return runBelow(words);
	}
};

struct Row
{
	const char* name;
	const char* service;
	const char* communication;
	int code;
	const char* why;
	void (*change)(std::vector<Link>& links);
};

// clang-format off
const Row kRows[] = {
    {"NoSuchInterface",  "ens193", "ens224", 69, "no interface ens193; there are lo ens192 ens224",  [](auto&) {}},
    {"BothTheSame",      "ens192", "ens192", 69, "ens192 cannot be both",                           [](auto&) {}},
    {"OneAlone",         "ens192", "",        2, "go together",                                     [](auto&) {}},
    {"Loopback",         "lo",     "ens224", 69, "lo is no Ethernet interface, but loopback",       [](auto&) {}},
    {"Exchange",         "eth1",   "eth0",   69, "eth0 is another interface, and udev exchanges no names", [](auto& links) { links[1].name = "eth0"; links[2].name = "eth1"; }},
    {"Taken",            "ens192", "ens224", 69, "eth1 is another interface",                       [](auto& links) { links.push_back(hardware("eth1", "52:54:00:00:00:03")); }},
    {"TakenAsAltname",   "ens192", "ens224", 69, "eth0 is another interface, ens224 by an alternative name", [](auto& links) { links[2].alternatives = {"eth0"}; }},
    {"Bond",             "ens192", "bond0",  69, "bond0 is a bond: it has the name that it is made with. Make it as eth1", [](auto& links) { links.push_back({"bond0", "ether", "bond", "52:54:00:00:00:03", "", {}}); }},
    {"Vlan",             "ens192.5", "ens224", 69, "ens192.5 is a vlan",                            [](auto& links) { links.push_back({"ens192.5", "ether", "vlan", "52:54:00:00:00:01", "", {}}); }},
    {"MadeUpAddress",    "ens192", "ens224", 69, "has no hardware address of its own",              [](auto& links) { links[1].permanent = ""; }},
    {"SameAddress",      "ens192", "ens224", 69, "ens192 and ens256 have the same hardware address", [](auto& links) { links.push_back(hardware("ens256", "52:54:00:00:00:01")); }},
    {"PlainNode",        "ens192", "ens224",  2, "say which node it is (--this)",                   nullptr},
};
// clang-format on

class Refusal : public InterfaceNamesTest, public testing::WithParamInterface<Row>
{
};

} // namespace

TEST_P(Refusal, WritesNothing)
{
	const Row& row = GetParam();
	std::vector<std::string> more;
	row.change != nullptr ? row.change(fakeHost().links) : more.push_back("--address-a=192.0.2.1");
	const Outcome outcome = rename(row.service, row.communication, more);
	EXPECT_EQ(outcome.code, row.code);
	EXPECT_THAT(outcome.err, HasSubstr(row.why));
	EXPECT_FALSE(fs::exists(below("/etc/systemd/network")));
}

INSTANTIATE_TEST_SUITE_P(Names, Refusal, testing::ValuesIn(kRows), rowName<Row>);

TEST_F(InterfaceNamesTest, AreGivenByHardwareAddressAndEveryLineWithTheFormerNameIsShown)
{
	const std::string before = "# caf\xE9\nauto ens192\niface ens192 inet static\n# not ens1921 nor xens192\nauto lo\n";
	write("/etc/network/interfaces", before);
	write("/etc/netplan/50-cloud-init.yaml", "network:\n  vlans:\n    v5: {link: ens224}\n");
	write("/etc/sysctl.d/net.conf", "net.ipv4.conf.ens192.rp_filter = 1\n");
	write("/etc/.git/config", "ens192\n");
	write("/usr/velarix/bin/ini/keeper.ini", "interface = ens192\n");
	const Outcome outcome = rename("ens192", "ens224");
	EXPECT_EQ(outcome.code, 0) << outcome.err;
	EXPECT_EQ(anonymous(outcome.out),
	          std::string("written: ") + kEth0 + "\nwritten: " + kEth1 + "\nwritten: " + kAgain +
	              "\nens192 becomes eth0, the service interface, at the next start\n"
	              "ens224 becomes eth1, the communication interface, at the next start\n"
	              "Lines with these names, for you to change:\n"
	              "  /etc/netplan/50-cloud-init.yaml:3:    v5: {link: ens224}\n"
	              "  /etc/network/interfaces:2:auto ens192\n"
	              "  /etc/network/interfaces:3:iface ens192 inet static\n"
	              "  /etc/sysctl.d/net.conf:1:net.ipv4.conf.ens192.rp_filter = 1\n"
	              "  /usr/velarix/bin/ini/keeper.ini:1:interface = ens192\n"
	              "Then: update-initramfs -u (or dracut -f), reboot, velarixctl check\nWay back: rm " +
	              kEth0 + " " + kEth1 + " " + kAgain + ", the lines as they were, update-initramfs -u, reboot\n");
	EXPECT_EQ(readFile(below(kEth0)),
	          "# The agent knows the service interface by this name alone; see systemd.link(5).\n[Match]\n"
	          "PermanentMACAddress=52:54:00:00:00:01\nType=ether\n\n"
	          "[Link]\nName=eth0\nAlternativeNamesPolicy=database onboard slot path\n");
	EXPECT_THAT(readFile(below(kEth1)), HasSubstr("\nPermanentMACAddress=52:54:00:00:00:02\n"));
	EXPECT_NE(fs::status(below(kEth0)).permissions() & fs::perms::others_read, fs::perms::none);
	EXPECT_EQ(readFile(below("/etc/network/interfaces")), before);
}

TEST_F(InterfaceNamesTest, AgainChangeNothingBeforeTheRebootAndAfterIt)
{
	rename("ens192", "ens224");
	const std::string text = readFile(below(kEth0));
	EXPECT_THAT(rename("ens192", "ens224").out, HasSubstr("unchanged: "));
	fakeHost().links[1] = hardware("eth0", "52:54:00:00:00:01", {"ens192"});
	fakeHost().links[2] = hardware("eth1", "52:54:00:00:00:02", {"ens224"});
	const Outcome after = rename("ens192", "ens224");
	EXPECT_EQ(after.code, 0) << after.err;
	EXPECT_THAT(after.out, HasSubstr("ens192 is eth0, the service interface already\n"));
	const Outcome named = rename("eth0", "eth1");
	EXPECT_EQ(named.code, 0) << named.err;
	EXPECT_EQ(anonymous(named.out),
	          std::string("unchanged: ") + kEth0 + "\nunchanged: " + kEth1 + "\nunchanged: " + kAgain + "\n");
	EXPECT_EQ(readFile(below(kEth0)), text);
	write(kEth0, "mine");
	EXPECT_EQ(rename("eth0", "eth1").code, 73);
}

TEST_F(InterfaceNamesTest, OfABondThatIsMadeUnderItNeedNoFile)
{
	fakeHost().links.push_back({"eth1", "ether", "bond", "52:54:00:00:00:02", "", {}});
	const Outcome outcome = rename("ens192", "eth1");
	EXPECT_EQ(outcome.code, 0) << outcome.err;
	EXPECT_TRUE(fs::exists(below(kEth0)));
	EXPECT_FALSE(fs::exists(below(kEth1)));
}

TEST_F(InterfaceNamesTest, GoAlongWithTheSettingsOfThisNodeAndNotWithThePartners)
{
	fs::remove(settings());
	const Outcome outcome = rename("ens192", "ens224",
	                               {"--this=a", "--address-a=192.0.2.1", "--address-b=192.0.2.2",
	                                "--gateway=192.0.2.254", "--virtual-ip=198.51.100.10/24",
	                                "--program=/opt/service/bin/server", "--output=" + below("/pair").string()});
	EXPECT_EQ(outcome.code, 0) << outcome.err;
	EXPECT_TRUE(fs::exists(settings()));
	EXPECT_TRUE(fs::exists(below(kEth0)));
	EXPECT_TRUE(fs::exists(below("/pair/b/config.ini")));
	EXPECT_FALSE(fs::exists(below("/pair/b/00-velarix-eth0.link")));
}
