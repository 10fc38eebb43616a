/// The operator's check and init against a real pair: what init writes drives
/// one, a node of it passes the check, and what the check says of a missing
/// setting is what the agent does.

#include <fstream>

#include "PairTest.h"
#include "inspect/SettingsKeys.h"

namespace velarix::lab
{

namespace
{

/// A server whose interfaces have other names, and what udev makes of the .link files.
constexpr char kOtherNames[] =
    "set -e; mkdir /tmp/links; ip link set eth0 down; ip link set eth0 name ens192; ip link set ens192 up;"
    "ip link set eth1 down; ip link set eth1 name ens224; ip link set ens224 up";
constexpr char kApplyLinks[] = R"sh(set -e
	for file in /tmp/links/etc/systemd/network/*.link; do
		address=$(sed -n s/^MACAddress=//p "$file")
		now=$(ip -o link | sed -n "s/^[0-9]*: \([^:@]*\).*$address.*/\1/p")
		ip link set "$now" down
		ip link set "$now" name "$(sed -n s/^Name=//p "$file")"
	done
	ip link set eth0 up
	ip link set eth1 up)sh";
constexpr char kEndsAtStart[] = "the agent ends at its start";
/// Two seconds until the daemon does anything, and time for its threads.
constexpr Millis kUntilItRuns{6000};

} // namespace

class OperatorCheck : public PairTest
{
protected:
	/// The whole lab's answers to init.
	static std::vector<std::string> initArguments()
	{
		return {"init",
		        std::string("--address-a=") + plan::addressOf(HostId::a, Network::communication),
		        std::string("--address-b=") + plan::addressOf(HostId::b, Network::communication),
		        std::string("--gateway=") + plan::addressOf(HostId::gateway, Network::communication),
		        std::string("--virtual-ip=") + plan::virtualAddress + "/" + std::to_string(plan::prefixLength),
		        std::string("--program=") + plan::serviceProgram,
		        std::string("--log=") + plan::logFile,
		        "--port=" + std::to_string(plan::heartbeatPort),
		        "--this=a",
		        "--output=/tmp/pair",
		        "--force"};
	}

	/// What init wrote for node b goes to node b.
	void carryOver()
	{
		const std::string text = contentOf(lab().node(HostId::a).file("/tmp/pair/b/config.ini"));
		ASSERT_FALSE(text.empty());
		std::ofstream(lab().node(HostId::b).file(plan::settingsFile), std::ios::trunc) << text;
		std::ofstream(lab().node(HostId::b).file("/tmp/partner.ini"))
		    << contentOf(lab().node(HostId::a).file(plan::settingsFile));
	}

	bool runs(HostId node) { return lab().node(node).agent().has_value(); }

	/// Starts the agent of a node with one key missing.
	void startWithout(HostId node, const std::string& key)
	{
		NodeSettings settings = NodeSettings::standard(node);
		lab().node(node).writeSettings(settings.remove(key));
		lab().node(node).startAgent();
	}

	/// @return the keys whose absence ends the agent at its start (or not)
	static std::vector<std::string> keysThatEndTheStart(bool wanted)
	{
		std::vector<std::string> keys;
		for (const inspect::KeyInfo& info : inspect::settingsKeys())
		{
			const std::string name(info.name);
			if ((info.missing == kEndsAtStart) == wanted)
			{
				keys.push_back(name == inspect::key::kProcessPath ? inspect::programKey(1) : name);
			}
		}
		return keys;
	}
};

TEST_F(OperatorCheck, WhatInitWritesPassesTheCheckAndDrivesThePair)
{
	PAIR_OR_RETURN(startServingPair());
	lab().killAgent(HostId::a);
	lab().killAgent(HostId::b);

	const CommandResult written = ctl(HostId::a, initArguments());
	ASSERT_TRUE(written.ok()) << written.output;
	carryOver();
	for (const auto& [node, partner] :
	     {std::pair(HostId::a, "/tmp/pair/b/config.ini"), std::pair(HostId::b, "/tmp/partner.ini")})
	{
		expectSays(ctl(node, {"check", "--partner", partner}), 0, {"0 errors, 0 warnings"});
	}

	const Millis started = lab().clock().now();
	lab().startAgents();
	ASSERT_TRUE(waitForAction(HostId::a, "starts the programs", started));
	EXPECT_TRUE(lab().waitForService(HostId::a, moveLimit, Millis(1000)));
	EXPECT_EQ(lab().role(HostId::b), "slave");
	// The agent that runs now is no fault: its port is not tried, its address is held.
	expectSays(ctl(HostId::a, {"check"}), 0);
}

TEST_F(OperatorCheck, InterfacesOfOtherNamesGetTheirsFromInitAndThePairWorks)
{
	const auto rename = [this](Lab& made)
	{
		for (const HostId node : {HostId::a, HostId::b})
		{
			const CommandResult renamed = made.run(node, {"sh", "-c", kOtherNames});
			EXPECT_TRUE(renamed.ok()) << renamed.output;
			expectSays(ctl(node, {"check"}), 78, {"init --service-interface ens192 --communication-interface ens224"});
			const CommandResult written = ctl(node, {"--root", "/tmp/links", "init", "--service-interface", "ens192",
			                                         "--communication-interface", "ens224"});
			EXPECT_TRUE(written.ok()) << written.output;
			const CommandResult applied = made.run(node, {"sh", "-c", kApplyLinks});
			EXPECT_TRUE(applied.ok()) << applied.output;
			expectSays(ctl(node, {"check"}), 0);
		}
	};
	PAIR_OR_RETURN(startPair({}, rename));
	EXPECT_TRUE(lab().waitForService(HostId::a, moveLimit, Millis(1000)));
	lab().inject({"service-interface", HostId::a});
	EXPECT_TRUE(lab().waitForService(HostId::b, moveLimit, Millis(1000)));
}

TEST_F(OperatorCheck, AMissingKeyEndsTheAgentWhenTheTableSaysSo)
{
	PAIR_OR_RETURN(startServingPair());
	lab().killAgent(HostId::a);
	lab().killAgent(HostId::b);
	std::vector<std::string> keys = keysThatEndTheStart(true);
	ASSERT_GT(keys.size(), 10U);
	while (!keys.empty())
	{
		std::vector<std::pair<HostId, std::string>> started;
		for (const HostId node : {HostId::a, HostId::b})
		{
			if (!keys.empty())
			{
				startWithout(node, keys.back());
				started.emplace_back(node, keys.back());
				keys.pop_back();
			}
		}
		for (const auto& [node, key] : started)
		{
			EXPECT_TRUE(
			    waitFor([&, at = node] { return !runs(at); }, moveLimit, "the end of the agent without " + key));
		}
	}
}

TEST_F(OperatorCheck, AMissingKeyIsNotedLaterWhenTheTableSaysSo)
{
	PAIR_OR_RETURN(startServingPair());
	lab().killAgent(HostId::b);
	for (const std::string& key : keysThatEndTheStart(false))
	{
		startWithout(HostId::b, key);
		EXPECT_FALSE(waitFor([&] { return !runs(HostId::b); }, kUntilItRuns,
		                     "an end of the agent without " + key + ", which is not to come"));
		lab().killAgent(HostId::b);
	}
}

} // namespace velarix::lab
