// The WireGuard tunnel: what is found wrong with files and machine. What init writes: stories/interfaces.txt.

#include "CheckTest.h"
#include "RowName.h"
#include "ctl/check/Checks.h"

using namespace velarix::ctl;
using namespace velarix::inspect;
using namespace std::chrono_literals;

namespace fs = std::filesystem;

namespace
{

constexpr char kDirectory[] = "/usr/velarix/bin/ini/";
/// As nft lists them.
constexpr char kRules[] = "\t\tiifname \"eth1\" ip saddr 192.0.2.2 udp sport 51871 udp dport 51871 accept\n"
                          "\t\tudp dport 51871 counter packets 0 bytes 0 drop\n"
                          "\t\tip daddr 169.254.127.1 iifname != { \"lo\", \"wg-ha\" } counter packets 1 bytes 1 drop\n"
                          "\t\tip saddr 169.254.127.2 iifname != \"wg-ha\" counter packets 2 bytes 2 drop\n"
                          "\t\ttcp dport 7000 iifname \"wg-ha\" ip saddr 169.254.127.2 ip daddr 169.254.127.1 accept\n"
                          "\t\tudp sport 51871 oifname != \"eth1\" counter packets 3 bytes 3 drop\n"
                          "\t\tip daddr 169.254.127.2 oifname != \"wg-ha\" counter packets 4 bytes 4 drop\n"
                          "\t\toifname \"wg-ha\" tcp dport 7000 meta skuid != 0 counter packets 5 bytes 5 reject\n";

using Row = FaultRow<const fs::path>;

void replace(const fs::path& file, const std::string& what, const std::string& with)
{
	std::string text = readFile(file);
	text.replace(text.find(what), what.size(), with);
	std::ofstream(file) << text;
}

void down()
{
	fakeHost().answering = {"192.0.2.2", "192.0.2.254"};
}

/// @param before what the keys once were, too
void prove(const fs::path& directory, const std::string& before)
{
	down();
	const fs::path record = directory / "../../../../var/lib/velarix-ha/tunnel-proven";
	fs::create_directories(record.parent_path());
	std::ofstream(record) << readFile(directory / "tunnel.pub") << before << readFile(directory / "partner.pub");
}

/// Just now, with a file that was changed so long from now.
void booted(const fs::path& file, std::chrono::seconds ahead)
{
	fakeHost().tunnel->handshake.reset();
	fakeHost().changed[file.lexically_normal().string()] = std::chrono::system_clock::now() + ahead;
}

void replaceRule(const std::string& part)
{
	std::string& rules = fakeHost().tunnelRules;
	rules.erase(rules.find(part), part.size());
}

// clang-format off
const Row kRows[] = {
    {"Sound",                {},                                                   [](const fs::path&) {}},
    {"AddressOnTheDevice",   {"warning tunnel-address config.ini:14"},              [](const fs::path&) { fakeHost().addresses.back().interface = "wg-ha"; }},
    {"NoDevice",             {"error tunnel-missing tunnel.conf"},                 [](const fs::path&) { fakeHost().interfaces.erase("wg-ha"); }},
    {"EndpointWithoutRoute", {"error tunnel-endpoint-route tunnel.conf"},          [](const fs::path&) { fakeHost().routes["192.0.2.2"] = ""; }},
    {"EndpointByEth0",       {"error tunnel-endpoint-route tunnel.conf"},          [](const fs::path&) { fakeHost().routes["192.0.2.2"] = "eth0"; }},
    {"PartnerBesideIt",      {"warning route-elsewhere config.ini:20"},            [](const fs::path&) { fakeHost().routes["169.254.127.2"] = "eth1"; }},
    {"RulesNotLoaded",       {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { fakeHost().tunnelRules = ""; }},
    {"RulesWithoutAddress",  {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("ip saddr 192.0.2.2 "); }},
    {"RulesWithoutPort",     {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("udp sport 51871 "); }},
    {"RulesWithoutDrop",     {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("packets 0 bytes 0 drop"); }},
    {"RulesAddressOpen",     {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("packets 1 bytes 1 drop"); }},
    {"RulesPartnerOpen",     {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("packets 2 bytes 2 drop"); }},
    {"RulesNotOfTheTunnel",  {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("iifname \"wg-ha\" ip saddr"); }},
    {"RulesPortLeaves",      {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("packets 3 bytes 3 drop"); }},
    {"RulesPartnerInClear",  {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("packets 4 bytes 4 drop"); }},
    {"RulesUsersConnect",    {"warning tunnel-rules tunnel.conf"},                 [](const fs::path&) { replaceRule("meta skuid != 0 "); }},
    {"UserMayNotAsk",        {},                                                   [](const fs::path&) { fakeHost().tunnelRules = ""; fakeHost().user = 1000; }},
    {"ClockWentBack",        {"warning tunnel-clock tunnel.conf"},                 [](const fs::path&) { fakeHost().tunnel->handshake = std::chrono::system_clock::now() + 60s; }},
    {"ClockBackAtBoot",      {"warning tunnel-clock tunnel.conf"},                 [](const fs::path& in) { booted(in / "../../log/velarix.log", 60s); }},
    {"ClockBackNoLog",       {"warning tunnel-clock tunnel.conf"},                 [](const fs::path& in) { booted(in / "tunnel.key", 60s); }},
    {"ClockRightAtBoot",     {},                                                   [](const fs::path& in) { booted(in / "tunnel.key", -60s); }},
    {"EndpointMoved",        {"warning tunnel-endpoint-moved tunnel.conf"},        [](const fs::path&) { fakeHost().tunnel->endpoint = "192.0.2.66:51871"; }},
    {"CableAlone",           {"error tunnel-down tunnel.conf"},                    [](const fs::path&) { down(); }},
    {"CableAloneButProven",  {"warning tunnel-down tunnel.conf"},                  [](const fs::path& in) { prove(in, ""); }},
    {"CableAloneNewKey",     {"error tunnel-down tunnel.conf"},                    [](const fs::path& in) { prove(in, "former "); }},
    {"PartnerIsDead",        {},                                                   [](const fs::path&) { fakeHost().answering = {"192.0.2.254"}; }},
    {"NoKeepalive",          {"warning tunnel-keepalive tunnel.conf"},             [](const fs::path& in) { replace(in / "tunnel.conf", "PersistentKeepalive = 1", ""); }},
    {"OtherAddress",         {"error tunnel-not-used tunnel.conf", "warning tunnel-rules tunnel.conf"}, [](const fs::path& in) { replace(in / "tunnel.conf", "169.254.127.1", "169.254.127.9"); }},
    {"NoEndpoint",           {"error tunnel-not-used tunnel.conf"},                [](const fs::path& in) { fakeHost().routes[""] = "eth1"; replace(in / "tunnel.conf", "Endpoint = ", "#"); fakeHost().user = 1000; }},
    {"NoKey",                {"error tunnel-key-missing tunnel.key"},              [](const fs::path& in) { fs::remove(in / "tunnel.key"); }},
    {"NoPartnerKey",         {"error tunnel-key-missing partner.pub"},             [](const fs::path& in) { fs::remove(in / "partner.pub"); }},
    {"OpenKey",              {"error tunnel-key-open tunnel.key"},                 [](const fs::path& in) { fs::permissions(in / "tunnel.key", fs::perms{0640}); }},
    {"OwnKeyAsPartners",     {"error tunnel-own-key partner.pub"},                 [](const fs::path& in) { fs::copy_file(in / "tunnel.pub", in / "partner.pub", fs::copy_options::overwrite_existing); }},
};
// clang-format on

/// Node a, as init makes it.
class TunnelTable : public CheckTest, public testing::WithParamInterface<Row>
{
protected:
	TunnelTable()
	{
		fakeHost().newTunnelKey = std::string(43, 'K') + "=";
		fs::remove(settings());
		runBelow({"init", "--wireguard", "--this=a", "--address-a=192.0.2.1", "--address-b=192.0.2.2",
		          "--gateway=192.0.2.254", "--virtual-ip=198.51.100.10/24", "--program=/opt/service/bin/server",
		          "--output=" + below("/pair").string(), "--partner-key=" + std::string(43, 'B') + "="});
		fakeHost().addresses.push_back({"lo", "lo", "169.254.127.1", 32, true});
		fakeHost().routes["169.254.127.2"] = "wg-ha";
		fakeHost().interfaces["wg-ha"] = {true, true};
		fakeHost().tunnelRules = kRules;
		fakeHost().tunnel = host::TunnelSession{std::chrono::system_clock::now() - 20s, 1, 1, "192.0.2.2:51871"};
		fakeHost().answering = {"192.0.2.2", "169.254.127.2", "192.0.2.254"};
	}
};

} // namespace

TEST_P(TunnelTable, IsFound)
{
	const fs::path directory = below(kDirectory);
	GetParam().change(directory);
	std::vector<std::string> found = shortForms(reportOf(SettingsFile::load(directory / "config.ini"),
	                                                     [this](Findings& findings)
	                                                     {
		                                                     checks::tunnelFiles(findings);
		                                                     checks::machine(findings, Paths(root()), false);
	                                                     }));
	for (std::string& line : found)
	{
		line.erase(line.find(kDirectory), sizeof kDirectory - 1);
	}
	EXPECT_EQ(found, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Faults, TunnelTable, testing::ValuesIn(kRows), rowName<Row>);

TEST(Tunnel, ItsUnitIsNeverStoppedWithTheAgentNorTheAgentWithIt)
{
	EXPECT_THAT(readFile(VELARIX_PACKAGING "/tunnel/velarix-tunnel.service"), Not(HasSubstr("\nExecStop")));
	const std::string dropIn = readFile(VELARIX_PACKAGING "/tunnel/start-with-agent.conf");
	EXPECT_THAT(dropIn, HasSubstr("\nWants=velarix-tunnel.service\nAfter=velarix-tunnel.service\n"));
	EXPECT_THAT(dropIn, Not(HasSubstr("\nRequires")));
}
