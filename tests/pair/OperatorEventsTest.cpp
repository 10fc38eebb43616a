/// The history that a node's log tells against what the lab did to the pair, and
/// the meaning of every line that the agents wrote meanwhile.

#include <algorithm>
#include <sstream>

#include <nlohmann/json.hpp>

#include "PairTest.h"
#include "lab/campaigns/hostile/Attacker.h"

namespace velarix::lab
{

class OperatorEvents : public PairTest
{
protected:
	/// Runs it by a shell, for redirections.
	CommandResult inShell(HostId node, const std::string& arguments)
	{
		return lab().run(node, {"/bin/sh", "-c", velarixctl + (" " + arguments)}, moveLimit);
	}

	static std::vector<nlohmann::json> parse(const std::string& lines)
	{
		std::vector<nlohmann::json> events;
		std::istringstream stream(lines);
		for (std::string line; std::getline(stream, line);)
		{
			events.push_back(nlohmann::json::parse(line));
		}
		return events;
	}

	std::vector<nlohmann::json> eventsOf(HostId node)
	{
		const CommandResult result = ctl(node, {"events", "--json"}, moveLimit);
		EXPECT_TRUE(result.ok()) << result.output;
		return parse(result.output);
	}

	/// "role-changed programs-gone": the event's word and its cause or subject.
	static std::string nameOf(const nlohmann::json& event)
	{
		std::string name = event.at("event");
		for (const char* key : {"cause", "subject"})
		{
			name += event.contains(key) && name.find(' ') == std::string::npos ? " " + event.at(key).get<std::string>()
			                                                                   : "";
		}
		return name;
	}

	/// Expects the events in this order, others between them.
	static void expectInOrder(const std::vector<nlohmann::json>& events, const std::vector<std::string>& expected)
	{
		auto at = events.begin();
		for (const std::string& name : expected)
		{
			at = std::find_if(at, events.end(), [&](const nlohmann::json& event) { return nameOf(event) == name; });
			ASSERT_NE(at, events.end()) << "no \"" << name << "\" (in this order) among\n"
			                            << testing::PrintToString(names(events));
		}
	}

	static std::vector<std::string> names(const std::vector<nlohmann::json>& events)
	{
		std::vector<std::string> all;
		std::ranges::transform(events, std::back_inserter(all), nameOf);
		return all;
	}

	bool reported(HostId node, const std::string& name) { return std::ranges::count(names(eventsOf(node)), name) > 0; }

	/// @return how long the last event of that name took; 0 without one
	static double seconds(const std::vector<nlohmann::json>& events, const std::string& name)
	{
		const auto found = std::find_if(events.rbegin(), events.rend(),
		                                [&](const nlohmann::json& event) { return nameOf(event) == name; });
		return found == events.rend() ? 0 : found->value("duration_seconds", 0.0);
	}

	/// Every line that the node's agent has written is in the catalogue, with a
	/// text that its place can have.
	void expectAllExplained(HostId node)
	{
		const CommandResult result = inShell(node, std::string("explain --json - <") + plan::logFile);
		EXPECT_TRUE(result.ok()) << result.output;
		EXPECT_EQ(result.output.find("\"text_agrees\":false"), std::string::npos) << result.output;
	}
};

TEST_F(OperatorEvents, ALostProgramAndTheHandOverAreReported)
{
	PAIR_OR_RETURN(startServingPair());
	const Millis killed = lab().clock().now();
	lab().inject({"program-kill", HostId::a});
	ASSERT_TRUE(waitForAction(HostId::a, "asks the partner", killed));
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	ASSERT_TRUE(waitFor([this] { return reported(HostId::a, "ask-answered"); }, moveLimit, "the answer to the ask"));

	const Millis sinceKilled = lab().clock().now() - killed;
	expectInOrder(eventsOf(HostId::a),
	              {"agent-started", "address-dropped agent-start", "program-killed agent-start",
	               "role-changed configured-role", "takeover-began configured-role", "address-up",
	               "takeover-done configured-role", "programs-running", "fault-found programs",
	               "role-changed programs-gone", "ask-made programs-gone", "address-dropped give-up", "ask-answered"});
	const std::vector<nlohmann::json> events = eventsOf(HostId::b);
	expectInOrder(events, {"agent-started", "ask-received", "role-changed partner-asked",
	                       "takeover-began partner-asked", "address-up", "address-dropped takeover", "address-up",
	                       "programs-started partner-asked", "takeover-done partner-asked"});
	// The address is raised twice on this way, five seconds of countdown each.
	EXPECT_GE(seconds(events, "takeover-done partner-asked"), 9.9);
	EXPECT_LE(seconds(events, "takeover-done partner-asked"), static_cast<double>(sinceKilled.count()) / 1000);
	expectAllExplained(HostId::a);
	expectAllExplained(HostId::b);
}

TEST_F(OperatorEvents, AHostThatFailsAndComesBackIsReportedOnBothNodes)
{
	PAIR_OR_RETURN(startServingPair());
	lab().powerOff(HostId::a);
	ASSERT_TRUE(lab().waitForService(HostId::b, moveLimit));
	// On a loaded machine the partner may have been lost and heard again before.
	const auto returns = [this] { return std::ranges::count(names(eventsOf(HostId::b)), "partner-back"); };
	const auto before = returns();
	lab().powerOn(HostId::a);
	ASSERT_TRUE(waitFor([&] { return returns() > before; }, moveLimit, "the partner's return"));

	expectInOrder(eventsOf(HostId::a), {"agent-started", "takeover-done configured-role", "agent-ended killed",
	                                    "agent-started", "role-changed agent-start"});
	const std::vector<nlohmann::json> events = eventsOf(HostId::b);
	const bool byProbes = reported(HostId::b, "role-changed partner-and-service-silent");
	const std::string cause = byProbes ? "partner-and-service-silent" : "partner-silent";
	expectInOrder(events, {"agent-started", "role-changed " + cause, "takeover-began " + cause,
	                       "takeover-done " + cause, "partner-back"});
	expectAllExplained(HostId::a);
	expectAllExplained(HostId::b);
}

/// A message with line feeds in it, in a node's log and in what velarixctl makes of it.
class HostileLog : public PairTest
{
};

/// Lines that the agent has not written are taken
/// for its own.
TEST_F(HostileLog, LineFeedsMakeEventsTellOfWhatHasNotHappened)
{
	PAIR_OR_RETURN(startReadyPair());
	const auto events = [&] { return ctl(HostId::a, {"events"}, moveLimit).output; };
	const std::string before = events();
	ASSERT_EQ(before.find("agent-ended"), std::string::npos) << before;
	const std::optional<Process> agent = lab().node(HostId::a).agent();
	ASSERT_TRUE(agent);

	hostile::Attacker attacker(lab(), {"line-feeds", "", HostId::a});
	attacker.awaitEnd();
	attacker.end();
	ASSERT_GE(attacker.tally().received, 1);

	const std::string after = events();
	EXPECT_NE(after.find("agent-ended"), std::string::npos) << after;
	EXPECT_NE(after.find("CHeartReciver:516"), std::string::npos) << after;
	EXPECT_EQ(lab().node(HostId::a).agent()->pid, agent->pid) << "no agent has ended";
	EXPECT_TRUE(waitUntilReady()) << "the agent's next lines put the status right";
	EXPECT_EQ(lab().owners(), "a");
}

/// The agent counts no silence while a connection is served, whoever made it; the operator's tool
/// looks for the partner's heartbeats.
TEST_F(HostileLog, APartnerThatIsKeptOutIsMissedByTheStatus)
{
	PAIR_OR_RETURN(startReadyPair());
	hostile::Attacker holder(lab(), {"hold-connection", "", HostId::a});
	holder.awaitHold(false);
	EXPECT_TRUE(
	    waitForStatus(HostId::a, "that the partner does not answer",
	                  [](const nlohmann::json& status)
	                  { return status["problems"].dump().find("the partner does not answer") != std::string::npos; }));
	EXPECT_EQ(lab().owners(), "a");
	holder.end();
	EXPECT_TRUE(waitUntilReady());
}

} // namespace velarix::lab
