// What status and metrics tell of the WireGuard tunnel.

#include <nlohmann/json.hpp>

#include "StateTest.h"

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace
{

class TunnelStatus : public StateTest
{
protected:
	TunnelStatus()
	{
		soundMaster();
		write("/usr/velarix/bin/ini/tunnel.conf",
		      "[Interface]\nAddress = 192.0.2.1/32\n[Peer]\nAllowedIPs = 192.0.2.2/32\n"
		      "Endpoint = 203.0.113.2:51871\n");
		fakeHost().interfaces["wg-ha"] = {true, true};
		fakeHost().tunnel = velarix::inspect::host::TunnelSession{now - 70s, 1000, 2000, "203.0.113.2:51871"};
		fakeMachine().answering.insert("203.0.113.2");
	}

	/// The partner answers beside the tunnel alone.
	void cutTheTunnel() const
	{
		fakeMachine().answering.erase("192.0.2.2");
		losePartner();
	}
};

} // namespace

TEST_F(TunnelStatus, TellsHandshakeAndBytes)
{
	const Outcome status = runHere({"status"});
	EXPECT_THAT(status.out, HasSubstr("tunnel       last handshake 1 min 10 s ago, 1000 bytes received, 2000 sent\n"));
	EXPECT_THAT(status.out, Not(HasSubstr("tunnel is down")));
	const auto json = nlohmann::json::parse(runHere({"status", "--json"}).out)["tunnel"];
	EXPECT_EQ(json["handshake_age_seconds"], 70.0);
	EXPECT_EQ(json["received_bytes"], 1000);
	EXPECT_EQ(json["down"], false);
	const std::string metrics = runHere({"metrics"}).out;
	for (const char* sample :
	     {"velarix_tunnel_down 0\n", "velarix_tunnel_received_bytes 1000\n", "velarix_tunnel_sent_bytes 2000\n",
	      "velarix_tunnel_last_handshake_timestamp_seconds 17"})
	{
		EXPECT_THAT(metrics, HasSubstr(sample));
		const std::string name(sample, std::string(sample).find(' '));
		EXPECT_THAT(readFile(VELARIX_CTL_MONITORING), HasSubstr("`" + name)) << name;
	}
}

TEST_F(TunnelStatus, APartnerThatAnswersBesideTheTunnelAloneIsCritical)
{
	cutTheTunnel();
	const Outcome nagios = runHere({"nagios"});
	EXPECT_EQ(nagios.code, 2) << nagios.out;
	EXPECT_THAT(nagios.out, HasSubstr("the tunnel is down, the cable is not: the partner answers at 203.0.113.2"));
	fakeMachine().answering.erase("203.0.113.2");
	EXPECT_THAT(runHere({"nagios"}).out, Not(HasSubstr("the tunnel is down"))) << "the partner is dead";
}

TEST_F(TunnelStatus, ATunnelThatIsNotThereIsCritical)
{
	fakeHost().interfaces.erase("wg-ha");
	EXPECT_THAT(runHere({"status"}).out, HasSubstr("tunnel       not known: there is no interface wg-ha\n"));
	EXPECT_THAT(runHere({"nagios"}).out, HasSubstr("the heartbeats have no way"));
}
