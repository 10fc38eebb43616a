// The receiver's verdict over real interfaces, real pings and real programs.
#include <filesystem>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "RealNode.h"
#include "Sandbox.h"
#include "WaitFor.h"
#include "velarix/shared_value.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace
{

class OwnNetwork : public RealNode
{
};

const char kStart[] = "log D CHeartReciver:500 networkStatus : start";
const char kMaster[] = "log D CHeartReciver:505 networkStatus : MASTER network check...";
const char kSlave[] = "log D CHeartReciver:538 networkStatus : SLAVE";
const char kGatewayAsked[] = "log D Utill:774 myComunicationIPcheck : START";
const char kGatewaySeen[] = "log D Utill:783 myComunicationIPcheck : TRUE";
const char kGatewaySilent[] = "log D Utill:791 myComunicationIPcheck : FALSE";
const char kServiceAsked[] = "log D Utill:797 serviceIPcheck : START";
const char kServiceSeen[] = "log D Utill:807 serviceIP[10.99.2.100],serviceIPcheck : true";
const char kServiceSilent[] = "log D Utill:817 serviceIPcheck : false";
const char kPartnerAsked[] = "log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.99.1.2";
const char kPartnerSeen[] = "log D Utill:760 partnerComunicationIPcheck : true";
const char kPartnerSilent[] = "log D Utill:768 partnerComunicationIPcheck : false";
const char kKilled[] = "log I Utill:573 command(echo >>/usr/velarix/log/notes killed dbServer) : ";
const char kDropped[] = "log I Utill:573 command(ip addr del 10.99.2.100/24 dev eth0 >/dev/null 2>&1) : ";
const char kCarrier[] = "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n";
const char kNoCarrier[] = "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 0\n\n";

TEST_F(OwnNetwork, AMasterThatSeesEverythingIsOK)
{
	addHost(kGateway);
	raiseServiceAddress();
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_THAT(events::all(),
	            ElementsAre(kStart, kMaster, kGatewayAsked, kGatewaySeen, kServiceAsked, kServiceSeen, kCarrier));
	EXPECT_EQ(mode, 1);
	EXPECT_EQ(noted(), "");
}

TEST_F(OwnNetwork, AMasterWithASilentGatewayKillsAndKeepsItsAddress)
{
	raiseServiceAddress();
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_THAT(events::all(), ElementsAre(kStart, kMaster, kGatewayAsked, kGatewaySilent,
	                                       "log D CHeartReciver:508 my comunication IP is not OK (1)",
	                                       "log D CHeartReciver:509 master -> slave  process kill", kKilled));
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(noted(), "killed dbServer\n");
	EXPECT_TRUE(holdsServiceAddress());
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
}

TEST_F(OwnNetwork, AMasterWithAPulledServiceCableDropsItsAddressAndAsks)
{
	addHost(kGateway);
	raiseServiceAddress();
	sandbox::setCarrier("eth0", false);
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_THAT(events::all(), ElementsAre(kStart, kMaster, kGatewayAsked, kGatewaySeen, kServiceAsked, kServiceSeen,
	                                       kNoCarrier, "log D CHeartReciver:524 my service LanCard is not OK (3)",
	                                       "log D CHeartReciver:525 master -> slave  process kill", kKilled, kDropped));
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(noted(), "killed dbServer\n");
	EXPECT_FALSE(holdsServiceAddress());
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
}

TEST_F(OwnNetwork, ASlaveThatSeesOnlyItsGatewayTakesTheService)
{
	mode = 2;
	addHost(kGateway);
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_EQ(mode, 1);
	EXPECT_TRUE(holdsServiceAddress());
	EXPECT_EQ(noted(), "started\n");
	EXPECT_THAT(events::all(),
	            ElementsAre(kStart, kSlave, kPartnerAsked, kPartnerSilent, kServiceAsked, kServiceSilent,
	                        "log D CHeartReciver:543 networkStatus : SLAVE 1", kGatewayAsked, kGatewaySeen,
	                        "log D CHeartReciver:548 partner comunication IP is not OK",
	                        "log D CHeartReciver:549 slave -> master  process run",
	                        "log D Utill:48 try to start virtual ip", kDropped,
	                        "log D Utill:680 myVirtualIP not working", "sleep 1000", "sleep 1000", "sleep 1000",
	                        "sleep 1000", "sleep 1000",
	                        "log I Utill:573 command(ip addr add 10.99.2.100/24 dev eth0 label eth0:ha "
	                        ">/dev/null 2>&1) : ",
	                        "log D Utill:490 set virtual ip...", StartsWith("log D Utill:496 ping: "),
	                        "log D Utill:62 try to run processes", StartsWith("log E Utill:78 \n=====")));
}

TEST_F(OwnNetwork, ASlaveThatSeesNothingStaysSlave)
{
	mode = 2;
	sandbox::setCarrier("eth1", false);
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_THAT(events::all(),
	            ElementsAre(kStart, kSlave, kPartnerAsked, kPartnerSilent, kServiceAsked, kServiceSilent,
	                        "log D CHeartReciver:543 networkStatus : SLAVE 1", kGatewayAsked, kGatewaySilent));
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(noted(), "");
	EXPECT_FALSE(holdsServiceAddress());
}

TEST_F(OwnNetwork, AGatewayWhoseNameIsUnknownIsAnErrorInTheLog)
{
	settings.set("AGENT.GATEWAY_IP", "gateway.invalid");
	apply();
	EXPECT_FALSE(receiver->isMyNetworkOK());
	// How a name is refused depends on the machine's resolver.
	EXPECT_THAT(events::all(),
	            ElementsAre(MatchesRegex("log E CHeartReciver:590 my network has some problems: "
	                                     "(Host not found|DNS error).*: gateway.invalid\\[CODE:-?[0-9]+\\]")));
}

TEST_F(OwnNetwork, AMasterIsJudgedByItsRealPrograms)
{
	std::filesystem::copy_file("/usr/bin/sleep", "/usr/velarix/bin/dbServer",
	                           std::filesystem::copy_options::overwrite_existing);
	EXPECT_EQ(receiver->processStatus(), 0);
	const pid_t program = ::fork();
	ASSERT_NE(program, -1);
	if (program == 0)
	{
		::execl("/usr/velarix/bin/dbServer", "dbServer", "60", nullptr);
		::_exit(127);
	}
	EXPECT_TRUE(waitFor([&] { return receiver->processStatus() == 1; }, 5s, "running dbServer"));
	ASSERT_EQ(::kill(program, SIGKILL), 0);
	ASSERT_EQ(::waitpid(program, nullptr, 0), program);
	events::clear();
	EXPECT_EQ(receiver->processStatus(), 0);
	EXPECT_THAT(events::all(), ElementsAre("log D CHeartReciver:561 processStatus : start",
	                                       "log D CHeartReciver:567 processStatus : ERROR"));
}

} // namespace
