/// A pair whose heartbeats go through the WireGuard tunnel.

#include <algorithm>
#include <thread>

#include <nlohmann/json.hpp>

#include "PairTest.h"
#include "lab/core/Node.h"

namespace velarix::lab
{

class Tunnel : public PairTest
{
protected:
	static LabOptions withTunnel() { return {{}, {.wireguard = true}}; }

	bool hasProblem(const nlohmann::json& status, const std::string& id)
	{
		return std::ranges::any_of(status["problems"], [&](const auto& problem) { return problem["id"] == id; });
	}

	/// @return when the last handshake was, by the clock of that node's tunnel; 0 when there was none
	std::time_t handshake(HostId node)
	{
		return std::stol(
		    shell(node, std::string("wg show ") + plan::tunnelInterface + " latest-handshakes | cut -f 2").output);
	}

	/// The new one begins a handshake. A second start: the first finds the old interface going away.
	bool restartTunnel(HostId node, const std::string& meanwhile = "")
	{
		const std::string start = std::string(plan::tunnelProgram) + " start";
		return shell(node,
		             std::string("ip link delete ") + plan::tunnelInterface + "; " + meanwhile + start + " || " + start)
		    .ok();
	}

	/// From its next start on the tunnel of that node, with all that it runs, has a clock an hour behind.
	bool setTunnelAnHourBehind(HostId id)
	{
		Node& node = lab().node(id);
		node.setClock(-std::chrono::hours(1));
		const std::vector<std::string> clock = node.clockWords();
		return shell(id, "sed -i '2i export LAB_CLOCK_CHILDREN=1 " + clock.at(1) + " " + clock.at(2) + "' " +
		                     plan::tunnelProgram)
		    .ok();
	}

	/// Its host comes back within a second. The partner remembers a handshake that this node began.
	void rebootInThePast(HostId id)
	{
		const HostId partner = otherNode(id);
		ASSERT_TRUE(restartTunnel(id) && waitUntilReady() && setTunnelAnHourBehind(id));
		const Millis before = lab().clock().now();
		const std::time_t down = std::time(nullptr);
		lab().powerOff(id);
		lab().powerOn(id, false);
		// As the service does at boot.
		const auto tunnelWorks = [&]
		{ return ctl(id, {"check"}, moveLimit).output.find("[tunnel-down]") == std::string::npos; };
		ASSERT_TRUE(waitFor(tunnelWorks, moveLimit, "the tunnel"));
		// Its own handshakes, from the first second on, are refused; the partner begins one when it
		// has heard nothing for 15 s.
		EXPECT_GE(handshake(partner), down + 10);
		EXPECT_NEAR(static_cast<double>(handshake(id)), static_cast<double>(handshake(partner) - 3600), 60.0);
		lab().startAgent(id);
		EXPECT_TRUE(lab().waitForService(partner, moveLimit));
		EXPECT_TRUE(waitUntilReady());
		EXPECT_EQ(lab().role(id), "slave");
		EXPECT_EQ(heldBy("a+b", before), Millis(0)) << lab().stateText();
	}
};

TEST_F(Tunnel, NeitherItsRestartNorANewKeyEndsAnAgentOrMovesTheService)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	const pid_t agentA = lab().node(HostId::a).agent().value().pid;
	const pid_t agentB = lab().node(HostId::b).agent().value().pid;
	const Millis before = lab().clock().now();

	// The route that is left keeps heartbeats from leaving in the clear. The refresh starts it too.
	ASSERT_TRUE(restartTunnel(HostId::b, std::string("if ip route get ") + plan::tunnelAddressOf(HostId::a) +
	                                         "; then exit 1; fi; "));
	ASSERT_TRUE(waitUntilReady());

	const std::string key = contentOf(lab().node(HostId::a).file(plan::tunnelKey));
	changeTunnelKeys(lab().node(HostId::a), lab().node(HostId::b));
	EXPECT_NE(contentOf(lab().node(HostId::a).file(plan::tunnelKey)), key);
	ASSERT_TRUE(waitUntilReady());

	EXPECT_EQ(heldBy("a", before), lab().clock().now() - before) << lab().stateText();
	EXPECT_EQ(lab().node(HostId::a).agent().value().pid, agentA);
	EXPECT_EQ(lab().node(HostId::b).agent().value().pid, agentB);
	EXPECT_FALSE(status(HostId::a)["tunnel"]["down"].get<bool>());
	EXPECT_EQ(ctl(HostId::a, {"check"}).output.find("[tunnel"), std::string::npos);
	EXPECT_GT(status(HostId::a)["tunnel"]["received_bytes"].get<long>(), 0);
}

TEST_F(Tunnel, ItIsStartedAgainWhenItsInterfaceIsGone)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	ASSERT_TRUE(shell(HostId::b, std::string("ip link delete ") + plan::tunnelInterface).ok());
	EXPECT_TRUE(waitForStatus(HostId::b, "the tunnel to be there again",
	                          [](const auto& status) { return status["tunnel"]["present"].template get<bool>(); }));
	EXPECT_TRUE(waitUntilReady());
}

TEST_F(Tunnel, AStandbyThatBootsInThePastIsHeardWhenItsPartnerBeginsAHandshake)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	rebootInThePast(HostId::b);
}

TEST_F(Tunnel, AMasterThatBootsInThePastComesBackAsStandby)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	rebootInThePast(HostId::a);
}

TEST_F(Tunnel, ANodeWithAWrongKeyIsReportedOnBothAndNotStarted)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	lab().killAgent(HostId::b);
	ASSERT_TRUE(shell(HostId::b, std::string("wg genkey | wg pubkey >") + plan::partnerKey + "; " +
	                                 plan::tunnelProgram + " reload")
	                .ok());

	ASSERT_TRUE(waitForStatus(HostId::a, "the tunnel to be down",
	                          [this](const auto& status) { return hasProblem(status, "tunnel-down"); }));
	EXPECT_EQ(ctl(HostId::a, {"nagios"}).status, 2);
	expectSays(ctl(HostId::b, {"check"}), 78, {"[tunnel-down]"});
}

TEST_F(Tunnel, PacketsBesideItDoNotReachTheAgent)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	const std::string to = plan::tunnelAddressOf(HostId::b);
	const std::string port = std::to_string(plan::heartbeatPort);
	const std::string by = std::string(" via ") + plan::addressOf(HostId::b, Network::communication);
	const std::string connect = "timeout 2 bash -c 'exec 3<>/dev/tcp/" + to + "/" + port + "'";
	ASSERT_TRUE(shell(HostId::gateway, "ip route add " + to + by).ok());
	EXPECT_FALSE(shell(HostId::gateway, connect).ok());
	// The address is there for whoever comes from anywhere: the rules alone keep the third host out.
	ASSERT_TRUE(shell(HostId::b, "nft delete table inet velarix_tunnel; nft delete table inet velarix").ok());
	EXPECT_NE(ctl(HostId::b, {"check"}).output.find("[tunnel-rules]"), std::string::npos);
	bool connected = false;
	EXPECT_TRUE(waitFor([&] { return connected = shell(HostId::gateway, connect).ok(); }, moveLimit,
	                    "a connection without the rules"));
}

TEST_F(Tunnel, UsersOfANodeDoNotReachThePartnersAgent)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	const std::string connect = std::string("timeout 5 bash -c 'exec 3<>/dev/tcp/") + plan::tunnelAddressOf(HostId::a) +
	                            "/" + std::to_string(plan::heartbeatPort) + "'";
	const std::string asUser = "setpriv --reuid 65534 --regid 65534 --clear-groups ";
	EXPECT_TRUE(shell(HostId::b, connect).ok());
	EXPECT_FALSE(shell(HostId::b, asUser + connect).ok());
	ASSERT_TRUE(shell(HostId::b, "nft flush chain inet velarix_tunnel output").ok());
	EXPECT_TRUE(shell(HostId::b, asUser + connect).ok());
	EXPECT_NE(ctl(HostId::b, {"check"}).output.find("[tunnel-rules]"), std::string::npos);
}

TEST_F(Tunnel, AnOldSessionIsRenewedAgainAndAgain)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	const auto lastHandshake = [this]
	{ return shell(HostId::b, std::string("wg show ") + plan::tunnelInterface + " latest-handshakes").output; };
	ASSERT_TRUE(shell(HostId::b, std::string("VELARIX_TUNNEL_STALE=5 ") + plan::tunnelProgram +
	                                 " refresh </dev/null >/dev/null 2>&1 &")
	                .ok());
	// WireGuard renews a session every two minutes: one of these may be its own.
	for (const char* which : {"first", "second"})
	{
		const std::string before = lastHandshake();
		ASSERT_TRUE(
		    waitFor([&] { return lastHandshake() != before; }, moveLimit, std::string("the ") + which + " handshake"));
	}
	EXPECT_TRUE(waitUntilReady());
}

/// After three minutes WireGuard has no session any more and would ask for one every five seconds.
TEST_F(Tunnel, ACutLongerThanASessionEndsWithinSeconds)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	// The message that begins a handshake is 148 bytes long, and nothing else is.
	ASSERT_TRUE(shell(HostId::a, "nft add table ip seen; "
	                             "nft add chain ip seen out '{ type filter hook output priority 0; }'; "
	                             "nft add rule ip seen out udp length 156 counter")
	                .ok());
	const auto begun = [this] {
		return std::stol(shell(HostId::a, "nft list table ip seen | sed -n 's/.*packets \\([0-9]*\\).*/\\1/p'").output);
	};
	lab().wiring().isolateNodes(Network::communication, true);
	std::this_thread::sleep_for(std::chrono::seconds(195));
	const long before = begun();
	std::this_thread::sleep_for(std::chrono::seconds(10));
	EXPECT_GE(begun() - before, 6) << "it does not ask every second";
	EXPECT_EQ(lab().owners(), "a+b");

	const Millis joined = lab().clock().now();
	lab().wiring().isolateNodes(Network::communication, false);
	EXPECT_TRUE(waitUntilReady());
	EXPECT_LE(heldBy("a+b", joined), Millis(4000)) << lab().stateText();
}

TEST_F(Tunnel, ANodeWithoutThePartnersKeyHasNoneAndIsReportedOnBoth)
{
	PAIR_OR_RETURN(startReadyPair(withTunnel()));
	lab().killAgent(HostId::b);
	ASSERT_TRUE(
	    shell(HostId::b, std::string("rm ") + plan::partnerKey + "; ip link delete " + plan::tunnelInterface).ok());
	const CommandResult start = shell(HostId::b, std::string(plan::tunnelProgram) + " start");
	EXPECT_NE(start.output.find("copy tunnel.pub of the other node there"), std::string::npos) << start.output;

	EXPECT_TRUE(waitForStatus(HostId::a, "the tunnel to be down",
	                          [this](const auto& status) { return hasProblem(status, "tunnel-down"); }));
	expectSays(ctl(HostId::b, {"check"}), 78, {"[tunnel-key-missing]", "[tunnel-missing]"});

	// As a relay leaves it. Nothing of b's moves it back.
	ASSERT_TRUE(shell(HostId::a, std::string("wg set wg-ha peer $(wg show wg-ha peers) endpoint ") +
	                                 plan::addressOf(HostId::gateway, Network::communication) + ":51871")
	                .ok());
	EXPECT_NE(ctl(HostId::a, {"check"}).output.find("[tunnel-endpoint-moved]"), std::string::npos);
}

} // namespace velarix::lab
