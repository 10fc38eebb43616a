// Both nodes side by side, and maintenance of both. ssh is a program of the test's that
// answers in the partner's place.

#include <algorithm>
#include <cstdlib>
#include <limits>

#include <nlohmann/json.hpp>

#include "RowName.h"
#include "StateTest.h"
#include "ctl/init/NodeFiles.h"
#include "ctl/pair/PairReport.h"
#include "inspect/Pattern.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Json = nlohmann::ordered_json;

class PairVerb : public StateTest
{
protected:
	PairVerb()
	{
		soundSlave();
		m_partner = report();
		m_partner["host"] = "node-b";
		endProcess(1);
		endProcess(kAgent);
		soundMaster();
		m_own = report();
	}

	Json report() { return Json::parse(run({"status", "--for-pair"}).out); }

	Outcome files(const std::vector<std::string>& more = {}) const
	{
		std::vector<std::string> words{"pair", "--own-json", write("/own", m_own.dump()).string(), "--partner-json",
		                               write("/partner", m_partner.dump()).string()};
		words.insert(words.end(), more.begin(), more.end());
		return run(words);
	}

	Json m_own;
	Json m_partner;
};

TEST_F(PairVerb, ShowsASoundPair)
{
	const Outcome outcome = files();
	EXPECT_EQ(outcome.code, 0);
	EXPECT_THAT(outcome.out, HasSubstr("VELARIX OK - node-a (192.0.2.1) is master, node-b (192.0.2.2) is standby\n"));
	EXPECT_EQ(row(outcome, "role"), "role             master              standby");
	EXPECT_EQ(row(outcome, "virtual"), "virtual address  here, on eth0       -");
	EXPECT_THAT(outcome.err, IsEmpty());
}

struct PairRowOfTable
{
	std::string name;
	void (*change)(Json& own, Json& partner);
	int code;
	std::string expected;
};

class PairTable : public PairVerb, public testing::WithParamInterface<PairRowOfTable>
{
};

TEST_P(PairTable, IsJudged)
{
	GetParam().change(m_own, m_partner);
	const Outcome outcome = files();
	EXPECT_EQ(outcome.code, GetParam().code) << outcome.out;
	EXPECT_THAT(outcome.out, HasSubstr(GetParam().expected));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(All, PairTable, testing::ValuesIn(std::vector<PairRowOfTable>{
	{"BothHoldTheAddress", [](Json&, Json& b) { b["virtual_ip"]["value"]["held"] = true; }, 2, "both nodes hold 198.51.100.10  [split-brain]"},
	{"NobodyHoldsIt", [](Json& a, Json&) { a["virtual_ip"]["value"] = {{"held", false}}; }, 2, "[nobody-holds-address]"},
	{"OneIsTakingIt", [](Json& a, Json& b) { a["virtual_ip"]["value"] = {{"held", false}};
	                   b["problems"] = {{{"id", "taking-over"}, {"severity", "warning"}, {"text", "takes the service"}}}; }, 1, "one is taking the service"},
	{"OneAsksTheOther", [](Json& a, Json&) { a["virtual_ip"]["value"] = {{"held", false}};
	                   a["problems"] = {{{"id", "asks"}, {"severity", "warning"}, {"text", "asks"}}}; }, 1, "one is taking the service"},
	{"WithoutSettingsTheAddressIsJudged", [](Json&, Json& b) { b["node"] = nullptr; b["partner"]["address"] = nullptr; b["virtual_ip"]["value"]["held"] = true; },
	                   2, "UNKNOWN  pair: node-b has no readable settings"},
	{"ATimeThatNoClockShows", [](Json&, Json& b) { b["pair"]["time_ms"] = std::numeric_limits<std::int64_t>::min(); }, 1, "[reports-apart]"},
	{"NotKnownIsNoAlarm", [](Json& a, Json&) { a["virtual_ip"]["value"] = nullptr; }, 0, "VELARIX OK"},
	{"TheStandbyHoldsIt", [](Json& a, Json& b) { std::swap(a["virtual_ip"]["value"], b["virtual_ip"]["value"]); }, 2, "node-b (192.0.2.2) holds the address and is standby"},
	{"BothAreMaster", [](Json&, Json& b) { b["role"]["value"] = "master"; }, 2, "[both-master]"},
	{"BothAreStandby", [](Json& a, Json&) { a["role"]["value"] = "slave"; }, 2, "[both-standby]"},
	{"ASettingDiffers", [](Json&, Json& b) { b["pair"]["settings"]["AGENT.GATEWAY_IP"] = "x"; }, 1, "other values of AGENT.GATEWAY_IP  [settings-differ]"},
	{"ASettingIsMissing", [](Json& a, Json&) { a["pair"]["settings"].erase("AGENT.GATEWAY_IP"); }, 1, "other values of AGENT.GATEWAY_IP  [settings-differ]"},
	{"VersionsDiffer", [](Json&, Json& b) { b["pair"]["version"] = "0.9"; }, 1, "node-b (192.0.2.2) 0.9  [versions-differ]"},
	{"FilesOfOtherTimes", [](Json&, Json& b) { b["pair"]["time_ms"] = b["pair"]["time_ms"].get<long>() + 3600000; }, 1, "were made 1 h apart"},
	{"OneIsInMaintenance", [](Json& a, Json&) { a["maintenance"] = {{"until", "then"}}; }, 1, "only node-a (192.0.2.1) is in maintenance"},
	{"AnotherPair", [](Json&, Json& b) { b["node"] = "192.0.2.9"; }, 3, "[not-the-partner]"},
	{"ThisNodeItself", [](Json& a, Json& b) { b = a; }, 3, "[not-the-partner]"},
	{"ANodesOwnProblem", [](Json&, Json& b) { b["problems"] = {{{"id", "log-disk"}, {"severity", "critical"}, {"text", "full"}}}; }, 2,
	                     "CRITICAL  node-b (192.0.2.2): full  [log-disk]\n  fix: make room"},
	{"TheWorstComesFirst", [](Json&, Json& b) { b["pair"]["version"] = "0.9"; b["virtual_ip"]["value"]["held"] = true; }, 2, "VELARIX CRITICAL - both nodes hold"},
	{"WhatIsNoText", [](Json&, Json& b) { b["problems"] = {1, nullptr, "x"}; b["interfaces"] = 7; b["host"] = Json::array(); }, 3, "VELARIX UNKNOWN"},
}), rowName<PairRowOfTable>);
// clang-format on

TEST_F(PairVerb, HasAFixForEachProblemOfANodeWhoseTextNamesNone)
{
	const std::set<std::string> inTheText{"address-unlisted", "address-with-partner", "agent-console",
	                                      "agent-starting",   "foreign-agent",        "log-begun-ahead",
	                                      "maintenance",      "maintenance-left",     "maintenance-unreadable",
	                                      "marker-missing",   "reach-partner",        "reach-stopped",
	                                      "taking-over",      "tunnel-down",          "tunnel-missing"};
	const std::string page = readFile(VELARIX_CTL_MONITORING);
	const velarix::inspect::Pattern rows("\n\\| `([a-z-]+)` \\| (?:critical|warning)");
	m_partner["problems"] = Json::array();
	for (const auto& row : rows.all(page.substr(0, page.find("## status as JSON"))))
	{
		if (!inTheText.contains(row[1]))
		{
			m_partner["problems"].push_back({{"id", row[1]}, {"severity", "warning"}, {"text", "x"}});
		}
	}
	EXPECT_GT(m_partner["problems"].size(), 30U);
	const std::string out = files().out;
	for (const Json& problem : m_partner["problems"])
	{
		EXPECT_THAT(out, HasSubstr("[" + problem["id"].get<std::string>() + "]\n  fix: "));
	}
}

TEST_F(PairVerb, DigestsWhatThePairSharesAndNoValueLeavesTheNode)
{
	const std::string text = m_own["pair"]["settings"].dump();
	EXPECT_THAT(text, AllOf(HasSubstr("AGENT.VIRTUAL_IP_START_COMMAND"), Not(HasSubstr("ip addr")),
	                        Not(HasSubstr("THIS_SERVER_IP")), Not(HasSubstr("AGENT.MODE"))));
	EXPECT_EQ(m_own["pair"]["settings"], m_partner["pair"]["settings"]);
}

TEST_F(PairVerb, WhatIsANodesOwnInTheKeepersSettingsDoesNotDiffer)
{
	velarix::ctl::Answers answers;
	answers.addressA = "192.0.2.1";
	answers.addressB = "192.0.2.2";
	answers.gateway = velarix::ctl::kReachAddress;
	answers.targets = {"192.0.2.250"};
	answers.virtualIP = "198.51.100.10/24";
	answers.services = {{"web", "/usr/sbin/nginx", "", "", ""}};
	const auto reportOf = [&](velarix::ctl::NodeName node, const std::string& targets)
	{
		answers.targets = {targets};
		writeSettings(1, {{"VIRTUAL_IP_START_COMMAND", "/usr/libexec/velarix-ha/keeper raise"}});
		write("/usr/velarix/bin/ini/keeper.ini", keeperSettingsText(answers, node));
		return report()["pair"]["settings"];
	};
	m_own["pair"]["settings"] = reportOf(velarix::ctl::NodeName::a, "192.0.2.250");
	m_partner["pair"]["settings"] = reportOf(velarix::ctl::NodeName::b, "192.0.2.251");
	EXPECT_THAT(m_own["pair"]["settings"].dump(), HasSubstr("keeper.ini SERVICE WEB.COMMAND"));
	EXPECT_THAT(files().out, HasSubstr("VELARIX OK"));
}

TEST_F(PairVerb, AsksThePartnerOfTheSettingsBySsh)
{
	write("/answer", m_partner.dump());
	ssh("printf '%s\\n' \"$@\" >DIR/asked\ncat DIR/answer\nexit 1\n");
	EXPECT_EQ(runHere({"pair"}).code, 0);
	EXPECT_EQ(readFile(root() / "asked"), "-o\nBatchMode=yes\n-o\nConnectTimeout=7\n--\n192.0.2.2\n"
	                                      "velarixctl status --for-pair\n");
	write("/etc/default/velarix-ha", "VELARIX_PARTNER_SSH=\"ha@node-b\" # the other\n");
	runBelow({"pair"});
	EXPECT_THAT(readFile(root() / "asked"), HasSubstr("\nha@node-b\n"));
	runHere({"pair", "--ssh", "root@there"});
	EXPECT_THAT(readFile(root() / "asked"), HasSubstr("\nroot@there\n"));
}

TEST_F(PairVerb, FindsClocksThatDiffer)
{
	m_partner["pair"]["time_ms"] = m_partner["pair"]["time_ms"].get<long>() - 5000;
	write("/answer", m_partner.dump());
	ssh("cat DIR/answer\n");
	const Outcome outcome = runHere({"pair"});
	EXPECT_EQ(outcome.code, 1);
	EXPECT_THAT(outcome.out, HasSubstr("the nodes' clocks are 5.0 s apart  [clocks-differ]"));
}

TEST_F(PairVerb, ThePartnersClockMayBeBehindByTheTimeOfAskingAlone)
{
	const auto differs = [&](long ahead)
	{
		m_partner["pair"]["time_ms"] = m_own["pair"]["time_ms"].get<long>() + ahead;
		const auto problems = velarix::ctl::judgePair({m_own, m_partner, "", 3s, now});
		return std::ranges::any_of(problems, [](const auto& one) { return one.id == "clocks-differ"; });
	};
	EXPECT_TRUE(differs(2500));
	EXPECT_FALSE(differs(1500));
	EXPECT_FALSE(differs(-4500));
	EXPECT_TRUE(differs(-5500));
}

TEST_F(PairVerb, AFileWithoutItsPartForThePairIsRefused)
{
	m_partner.erase("pair");
	EXPECT_THAT(files().out, HasSubstr("holds no output of velarixctl status --for-pair"));
}

TEST_F(PairVerb, AnUnreachablePartnerIsUnknown)
{
	ssh("echo no route to host >&2\nexit 255\n");
	const Outcome failed = runHere({"pair"});
	EXPECT_EQ(failed.code, 3);
	EXPECT_THAT(failed.out, HasSubstr("ssh 192.0.2.2 ended with 255: no route to host"));
	EXPECT_EQ(row(failed, "role"), "role             master              not known");
	ssh("echo '[1]'\n");
	EXPECT_THAT(runHere({"pair"}).out, HasSubstr("[partner-not-reached]\n  fix: make \"ssh TARGET velarixctl status "
	                                             "--for-pair\" work"));
	ssh("sleep 600\n");
	EXPECT_THAT(runHere({"pair", "--timeout", "1"}).out, HasSubstr("ssh 192.0.2.2 did not end in time"));
}

TEST_F(PairVerb, RefusesATargetThatIsAnOption)
{
	const Outcome outcome = runHere({"pair", "--ssh=-oProxyCommand=x"});
	EXPECT_EQ(outcome.code, 3);
	EXPECT_EQ(outcome.out, "VELARIX UNKNOWN - \"-oProxyCommand=x\" is no ssh target\n");
}

TEST_F(PairVerb, ItsJsonHasBothReports)
{
	m_partner["virtual_ip"]["value"]["held"] = true;
	const Json json = Json::parse(files({"--json"}).out);
	EXPECT_EQ(json["verdict"], "critical");
	EXPECT_EQ(json["problems"][0]["id"], "split-brain");
	EXPECT_EQ(json["nodes"], Json::array({m_own, m_partner}));
}

TEST_F(PairVerb, ThePageNeedsNothingBesidesItselfAndIsEscaped)
{
	m_partner["host"] = "<script>alert(1)</script>";
	m_partner["problems"] = {{{"id", "x\"y"}, {"severity", "critical"}, {"text", "a & b <img src=x>"}}};
	const long then = m_partner["pair"]["time_ms"].get<long>() - 6 * 3600 * 1000L;
	m_partner["pair"]["events"] = {{{"time", "2026-03-01T06:00:00.000Z"},
	                                {"event", "role-changed"},
	                                {"time_ms", then},
	                                {"severity", "change"},
	                                {"from", "master"},
	                                {"to", "slave"},
	                                {"text", "</title>"}},
	                               {{"time_ms", then + 1}, {"event", "fault-found"}, {"severity", "problem"}}};
	const std::filesystem::path page = root() / "page.html";
	EXPECT_EQ(files({"--html", page.string()}).code, 2);
	const std::string text = readFile(page);
	EXPECT_THAT(text, AllOf(Not(HasSubstr("<script")), Not(HasSubstr("<img")), Not(HasSubstr("src=\"")),
	                        Not(HasSubstr("http://")), Not(HasSubstr("https://"))));
	EXPECT_THAT(text, AllOf(HasSubstr("&lt;script&gt;"), HasSubstr("a &amp; b &lt;img"), HasSubstr("x&quot;y"),
	                        HasSubstr("&lt;/title&gt;</span>")));
	// Three quarters of the day as master, then as standby, and the fault's mark.
	EXPECT_THAT(text, HasSubstr("<rect class=\"master\" x=\"0.0\" y=\"0\" width=\"750.0\""));
	EXPECT_THAT(text, HasSubstr("<rect class=\"slave\" x=\"750.0\" y=\"0\" width=\"250.0\""));
	EXPECT_THAT(text, HasSubstr("<rect class=\"mark\" x=\"750.0\""));
	EXPECT_EQ(files({"--html", "/nowhere/page.html"}).code, 3);
}

TEST_F(PairVerb, ThePictureDrawsNoRoleThatNobodyReported)
{
	const long end = m_own["pair"]["time_ms"].get<long>();
	const auto event = [&](const char* word, int hours) {
		return Json{{"event", word}, {"time_ms", end - hours * 3600'000L}};
	};
	m_own["pair"]["events"] = {event("agent-started", 30), event("agent-ended", 18), event("agent-started", 12),
	                           event("role-changed", 6)};
	m_own["pair"]["events"][3].update({{"from", "slave"}, {"to", "master"}});
	m_partner["pair"]["events"] = {event("agent-ended", 12), event("agent-started", 6)};
	const std::filesystem::path page = root() / "page.html";
	files({"--html", page.string()});
	const auto bars = allBetween(readFile(page), "<rect class=\"", "\" height");
	EXPECT_THAT(bars, testing::UnorderedElementsAre(
	                      R"(slave" x="0.0" y="0" width="250.0)", R"(slave" x="500.0" y="0" width="250.0)",
	                      R"(master" x="750.0" y="0" width="250.0)", R"(slave" x="750.0" y="0" width="250.0)"));
}

/// What was done on both nodes, in its order.
class MaintenanceOfBoth : public PairVerb
{
protected:
	MaintenanceOfBoth()
	{
		fakeMachine().onAct = [this](const std::string& act)
		{
			write("/done", done() + "here " + act + "\n");
			for (auto& process : fakeHost().processes)
			{
				process.state = process.pid == kAgent ? (act.starts_with("19 ") ? 'T' : 'S') : process.state;
			}
		};
		write("/done", "");
		answer(m_partner, "0");
	}

	void answer(const Json& status, const std::string& code) const
	{
		write("/answer", status.dump());
		ssh("for word; do :; done\n[ \"$word\" != 'velarixctl status --json' ] || exec cat DIR/answer\n"
		    "echo \"there $word\" >>DIR/done\nexit " +
		    code + "\n");
	}

	std::string done() const { return readFile(root() / "done"); }

	static constexpr char kOn[] = "there velarixctl maintenance on --for 14400s --reason 'it'\\''s new'\n";
};

TEST_F(MaintenanceOfBoth, TheStandbyBeginsAndTheMasterEnds)
{
	const Outcome on = runHere({"maintenance", "on", "--pair", "--reason", "it's new"});
	EXPECT_EQ(on.code, 0) << on.err;
	EXPECT_EQ(done(), std::string(kOn) + "here 19 4711\n");
	const Outcome off = runHere({"maintenance", "off", "--pair"});
	EXPECT_EQ(off.code, 0) << off.err;
	EXPECT_EQ(done(), std::string(kOn) + "here 19 4711\nhere 18 4711\nthere velarixctl maintenance off\n");
}

TEST_F(MaintenanceOfBoth, TheSameFromTheStandby)
{
	endProcess(1);
	endProcess(kAgent);
	endProcess(kServer);
	dropAddress();
	soundSlave();
	answer(m_own, "0");
	EXPECT_EQ(runHere({"maintenance", "on", "--pair", "--reason", "it's new"}).code, 0);
	EXPECT_EQ(runHere({"maintenance", "off", "--pair"}).code, 0);
	EXPECT_EQ(done(), std::string("here 19 4711\n") + kOn + "there velarixctl maintenance off\nhere 18 4711\n");
}

TEST_F(MaintenanceOfBoth, APartnerThatCannotBeginLeavesNobodyInMaintenance)
{
	answer(m_partner, "69");
	const Outcome on = runHere({"maintenance", "on", "--pair", "--reason", "it's new"});
	EXPECT_EQ(on.code, 1);
	EXPECT_EQ(done(), std::string(kOn) + "there velarixctl maintenance off\n");
	EXPECT_THAT(on.err, HasSubstr("on the partner, 192.0.2.2, it ended with 69"));
	EXPECT_FALSE(std::filesystem::exists(paths.maintenance));
}

TEST_F(MaintenanceOfBoth, IsRefusedWhenTheOrderIsNotKnown)
{
	m_partner["role"]["value"] = "master";
	answer(m_partner, "0");
	EXPECT_EQ(runHere({"maintenance", "on", "--pair"}).code, 69);
	m_partner["node"] = "192.0.2.7";
	answer(m_partner, "0");
	EXPECT_THAT(runHere({"maintenance", "on", "--pair"}).err,
	            HasSubstr("and not this node's partner; nothing was done"));
	ssh("exit 255\n");
	EXPECT_EQ(runHere({"maintenance", "on", "--pair"}).code, 69);
	EXPECT_THAT(done(), IsEmpty());
}
