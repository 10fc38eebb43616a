// What a pair's report has for each problem, and how far two clocks may differ; all else: stories/pair.txt.

#include "StoryTest.h"
#include "ctl/pair/PairReport.h"
#include "inspect/Pattern.h"

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;

class PairVerb : public StoryTest
{
protected:
	PairVerb() { makeReports(); }

	Json read(const std::string& name) const { return Json::parse(readFile(below(name))); }
};

TEST_F(PairVerb, HasAFixForEachProblemOfANodeWhoseTextNamesNone)
{
	const std::set<std::string> inTheText{"address-unlisted", "address-with-partner", "agent-console",
	                                      "agent-starting",   "foreign-agent",        "log-begun-ahead",
	                                      "maintenance",      "maintenance-left",     "maintenance-unreadable",
	                                      "marker-missing",   "reach-partner",        "reach-stopped",
	                                      "taking-over",      "tunnel-down",          "tunnel-missing"};
	const std::string page = readFile(VELARIX_CTL_MONITORING);
	const velarix::inspect::Pattern rows("\n\\| `([a-z-]+)` \\| (?:critical|warning)");
	Json problems = Json::array();
	for (const auto& row : rows.all(page.substr(0, page.find("## status as JSON"))))
	{
		if (!inTheText.contains(row[1]))
		{
			problems.push_back({{"id", row[1]}, {"severity", "warning"}, {"text", "x"}});
		}
	}
	EXPECT_GT(problems.size(), 30U);
	patch("/partner", {{"op", "add"}, {"path", "/problems"}, {"value", problems}});
	const std::string out =
	    StateTest::run({"pair", "--own-json", below("/own").string(), "--partner-json", below("/partner").string()})
	        .out;
	for (const Json& problem : problems)
	{
		EXPECT_THAT(out, HasSubstr("[" + problem["id"].get<std::string>() + "]\n  fix: "));
	}
}

// The partner's clock may be behind by the time of asking.
TEST_F(PairVerb, FindsClocksThatDifferByMoreThanTheAskingTook)
{
	const Json own = read("/own");
	Json partner = read("/partner");
	for (const auto& [ahead, differs] : {std::pair(2500, true), {1500, false}, {-4500, false}, {-5500, true}})
	{
		partner["pair"]["time_ms"] = own["pair"]["time_ms"].get<long>() + ahead;
		const auto problems = velarix::ctl::judgePair({own, partner, "", 3s, now});
		const auto isIt = [](const auto& one) { return one["id"] == "clocks-differ"; };
		EXPECT_EQ(std::ranges::any_of(problems, isIt), differs) << ahead;
	}
}
