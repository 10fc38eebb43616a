// What status, nagios and metrics tell of the keeper's state files.

#include <nlohmann/json.hpp>

#include "StateTest.h"

using namespace std::chrono_literals;

namespace
{

class KeeperStatus : public StateTest
{
protected:
	KeeperStatus()
	{
		soundMaster();
		writeSettings(1, {{"VIRTUAL_IP_START_COMMAND", "/usr/libexec/velarix-ha/keeper raise"},
		                  {"PROCESS_NUM", "2"},
		                  {"PROCESS_PATH1", "/usr/velarix/run/ha-address\nPROCESS_PATH2 = /usr/velarix/run/ha-web"}});
		addProcess(6000, "ha-address");
		addProcess(6001, "keeper");
		addProcess(6002, "keeper");
		addProcess(6003, "ha-web");
		writeState("ha-web", "state=running\npid=6002\nrestarts=2\ncheck=ok\nreason=ended with status 1\n");
		writeState("ha-address", "state=holding\npid=6001\nheld=yes\n");
	}

	/// A minute ago.
	void writeState(const std::string& program, const std::string& text) const
	{
		const auto since = std::chrono::duration_cast<std::chrono::seconds>((now - 60s).time_since_epoch()).count();
		write("/run/velarix-ha/" + program + ".state", text + "since=" + std::to_string(since) + "\n");
	}

	/// The partner serves and is not heard.
	void cutTheNetwork()
	{
		dropAddress();
		writeState("ha-address", "state=waiting\npid=6001\nheld=no\nholder=02:00:00:00:00:01\n");
		writeState("ha-web", "state=waiting\npid=6002\nrestarts=0\ncheck=none\n");
		losePartner();
	}
};

} // namespace

TEST_F(KeeperStatus, TellsAddressAndServices)
{
	const std::string text = runHere({"status"}).out;
	EXPECT_THAT(text, HasSubstr("keeper       holds the address, for 1 min\n"));
	EXPECT_THAT(text, HasSubstr("             ha-web running, for 1 min, restarts 2, last check ok\n"));
	const auto json = nlohmann::json::parse(runHere({"status", "--json"}).out)["keeper"];
	EXPECT_EQ(json["address"]["state"], "holding");
	EXPECT_EQ(json["services"][0]["name"], "ha-web");
	EXPECT_EQ(json["services"][0]["restarts"], 2);
	EXPECT_EQ(json["services"][0]["since"], "2026-03-01T11:59:00.000Z");
	EXPECT_EQ(json["marker"], true);
}

TEST_F(KeeperStatus, AStateIsBelievedAsLongAsItsWriterLives)
{
	endProcess(6002);
	addProcess(6002, "sshd");
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("ha-web stopped\n"));
	writeState("ha-web", "state=failed\npid=6002\nreason=signal 11\n");
	EXPECT_THAT(runHere({"status"}).out,
	            HasSubstr("ha-web died too often on this node: signal 11; when it is "
	                      "repaired, clear this with rm /run/velarix-ha/ha-web.state  [service-failed]\n"));
}

TEST_F(KeeperStatus, ANodeThatWaitsForItsPartnerWarnsAndSaysThatNothingIsToBeDone)
{
	cutTheNetwork();
	const Outcome nagios = runHere({"nagios"});
	EXPECT_EQ(nagios.code, 1) << nagios.out;
	EXPECT_THAT(nagios.out, HasSubstr("the network between the nodes is cut: the partner (02:00:00:00:00:01) holds "
	                                  "the address and serves for 1 min; nothing to do here but to repair that "
	                                  "network"));
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("waits for the address, held by 02:00:00:00:00:01, for"));
}

TEST_F(KeeperStatus, EachTargetIsShownAndWhatFollowsFromItIsAProblem)
{
	write("/usr/velarix/bin/ini/keeper.ini",
	      "[address]\naddress = 198.51.100.10\ninterface = eth0\non_conflict = defend\n[reachability]\n"
	      "address = 192.0.2.254\ntargets = 192.0.2.9 192.0.2.8\nown = 192.0.2.1\npartner = 192.0.2.2\n");
	EXPECT_EQ(runHere({"nagios"}).code, 2) << "ha-reach does not run";
	addProcess(6004, "ha-reach");
	addProcess(6005, "keeper");
	struct Row
	{
		const char* state;
		const char* partner;
		const char* first;
		int status;
		const char* problem;
	};
	for (const Row& row : {Row{"reachable", "ready", "answers", 0, ""},
	                       Row{"reachable", "ready", "lost", 1, "reachability targets do not answer: 192.0.2.9"},
	                       Row{"reachable", "silent", "answers", 1, "the partner's ha-reach does not answer"},
	                       Row{"shared-outage", "fails", "lost", 1, "neither node reaches its targets, nothing moves"},
	                       Row{"partner-only", "ready", "lost", 1, "only the partner reaches its targets"},
	                       Row{"isolated", "silent", "lost", 2, "this node is isolated: neither its targets"}})
	{
		SCOPED_TRACE(row.problem);
		const std::string since =
		    std::to_string(std::chrono::duration_cast<std::chrono::seconds>((now - 60s).time_since_epoch()).count());
		writeState("ha-reach", std::string("pid=6005\nstate=") + row.state + "\npartner=" + row.partner +
		                           "\ntarget.192.0.2.9=" + row.first + " " + since + "\ntarget.192.0.2.8=answers " +
		                           since + "\n");
		const Outcome nagios = runHere({"nagios"});
		EXPECT_EQ(nagios.code, row.status) << nagios.out;
		EXPECT_THAT(nagios.out, HasSubstr(row.problem));
	}
	const std::string text = runHere({"status"}).out;
	EXPECT_THAT(text, HasSubstr("reachability isolated, for 1 min, partner silent\n"));
	EXPECT_THAT(text, HasSubstr("             192.0.2.9 does NOT answer, for 1 min\n"));
	const auto json = nlohmann::json::parse(runHere({"status", "--json"}).out)["keeper"]["reachability"];
	EXPECT_EQ(json["targets"][0]["state"], "lost");
	EXPECT_EQ(json["targets"][1]["address"], "192.0.2.8");
	const std::string metrics = runHere({"metrics"}).out;
	EXPECT_THAT(metrics, HasSubstr("velarix_keeper_reachability_state{state=\"isolated\"} 1\n"));
	EXPECT_THAT(metrics, HasSubstr("velarix_keeper_target_answers{target=\"192.0.2.9\"} 0\n"));
	fakeHost().processes.back().state = 'T';
	EXPECT_THAT(runHere({"nagios"}).out, HasSubstr("ha-reach is frozen: "));
}

TEST_F(KeeperStatus, MetricsHaveStatesConflictsAndRestarts)
{
	writeState("ha-address", "state=holding\npid=6001\nconflicts=3\nlast_conflict=1\n");
	const std::string text = runHere({"metrics"}).out;
	for (const char* sample :
	     {"velarix_keeper_address_state{state=\"holding\"} 1\n", "velarix_keeper_address_conflicts 3\n",
	      "velarix_keeper_service_state{service=\"ha-web\",state=\"running\"} 1\n", "velarix_keeper_marker 1\n",
	      "velarix_keeper_service_restarts{service=\"ha-web\"} 2\n"})
	{
		EXPECT_THAT(text, HasSubstr(sample));
		const std::string name(sample, std::string(sample).find_first_of("{ "));
		EXPECT_THAT(readFile(VELARIX_CTL_MONITORING), HasSubstr("`" + name)) << name;
	}
	soundMaster();
	EXPECT_THAT(runHere({"metrics"}).out, Not(HasSubstr("keeper"))) << "plain settings";
}
