// The network verdict from one iteration to the next, what a slave's take-over
// does step by step, and the exceptions that nobody there catches.
#include <stdexcept>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace
{

const char kGateway[] = "10.0.0.254";
const char kPartner[] = "10.0.0.2";
const char kService[] = "10.0.1.100";
const char kCat[] = "cat /sys/class/net/eth0/carrier";

class NetworkStatusRoles : public ReceiverTest
{
protected:
	void SetUp() override
	{
		ReceiverTest::SetUp();
		fakeoutside::commandPrints(kCat, "1\n");
	}

	static void silence(std::initializer_list<const char*> addresses)
	{
		for (const char* address : addresses)
		{
			fakeoutside::pingGives(address, 0);
		}
	}

	/// From now on the action throws an `Exception`.
	template <typename Exception> static void breakAt(const std::string& action)
	{
		fakeoutside::onAction(
		    [action](const std::string& event)
		    {
			    if (event == action)
			    {
				    throw Exception("broken");
			    }
		    });
	}

	/// The exception leaves at the last of the events.
	template <typename Exception> void expectPassedOn(MODE roleAfter, const events::List& steps)
	{
		count() = 2;
		EXPECT_THROW(receiver->networkStatus(), Exception);
		EXPECT_EQ(mode, roleAfter);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
		EXPECT_EQ(count(), 2);
		EXPECT_THAT(events::all(), ElementsAreArray(steps));
	}

	static events::List masterAsksTheGateway()
	{
		return {"log D CHeartReciver:500 networkStatus : start",
		        "log D CHeartReciver:505 networkStatus : MASTER network check...",
		        "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10"};
	}

	static events::List gatewayAnswersAndTheServiceIsAsked()
	{
		return steps::join({masterAsksTheGateway(), "log D Utill:783 myComunicationIPcheck : TRUE",
		                    "log D Utill:797 serviceIPcheck : START", "ping 10.0.1.100 x10"});
	}

	static events::List serviceAnswersAndTheCardIsLookedAt()
	{
		return steps::join({gatewayAnswersAndTheServiceIsAsked(),
		                    "log D Utill:807 serviceIP[10.0.1.100],serviceIPcheck : true",
		                    "command cat /sys/class/net/eth0/carrier"});
	}

	static events::List cardHasNoCarrier()
	{
		return steps::join({serviceAnswersAndTheCardIsLookedAt(),
		                    "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 0\n\n",
		                    "log D CHeartReciver:524 my service LanCard is not OK (3)",
		                    "log D CHeartReciver:525 master -> slave  process kill"});
	}

	static events::List slaveAsksThePartner()
	{
		return {"log D CHeartReciver:500 networkStatus : start", "log D CHeartReciver:538 networkStatus : SLAVE",
		        "log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2", "ping 10.0.0.2 x10"};
	}

	static events::List partnerIsSilentAndTheServiceIsAsked()
	{
		return {"log D Utill:768 partnerComunicationIPcheck : false", "log D Utill:797 serviceIPcheck : START",
		        "ping 10.0.1.100 x10"};
	}

	static events::List serviceIsSilentAndTheGatewayIsAsked()
	{
		return {"log D Utill:817 serviceIPcheck : false", "log D CHeartReciver:543 networkStatus : SLAVE 1",
		        "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10"};
	}

	static events::List takeOverBegins()
	{
		return {"log D Utill:783 myComunicationIPcheck : TRUE",
		        "log D CHeartReciver:548 partner comunication IP is not OK",
		        "log D CHeartReciver:549 slave -> master  process run"};
	}
};

TEST_F(NetworkStatusRoles, ASlaveThatCanPingItsPartnerNeverTakesOverHere)
{
	silence({kService, kGateway});
	for (int i = 0; i < 5; ++i)
	{
		EXPECT_EQ(receiver->networkStatus(), 1);
		EXPECT_EQ(mode, 2);
	}
	EXPECT_THAT(events::without({"log ", "ping 10.0.0.2 x10"}), IsEmpty());
}

TEST_F(NetworkStatusRoles, ASlaveThatCanPingNothingStaysSlave)
{
	silence({kPartner, kService, kGateway});
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(mode, 2);
	EXPECT_THAT(events::without({"log "}),
	            ElementsAre("ping 10.0.0.2 x10", "ping 10.0.1.100 x10", "ping 10.0.0.254 x10"));
}

TEST_F(NetworkStatusRoles, ASlaveIsMasterBeforeItsProgramsStart)
{
	silence({kPartner, kService});
	recordStateAtActions();
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_THAT(events::without({"log ", "ping "}),
	            ElementsAre("role 2 ask 0", "role 2 ask 0", "role 2 ask 0", "command vip-stop", "role 1 ask 0",
	                        "command ifconfig", "role 1 ask 0", "system chmod 755 /usr/velarix/bin/ini/processList.sh",
	                        "role 1 ask 0", "system /usr/velarix/bin/ini/processList.sh", "role 1 ask 0"));
}

TEST_F(NetworkStatusRoles, ASlaveThatTookOverGivesUpAgainWhileTheServiceAddressIsSilent)
{
	silence({kPartner, kService});
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_EQ(mode, 1);
	events::clear();
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::join(
	                               {gatewayAnswersAndTheServiceIsAsked(), "log D Utill:817 serviceIPcheck : false",
	                                "log D CHeartReciver:516 my service IP is not OK (2)",
	                                "log D CHeartReciver:517 master -> slave  process kill", steps::killPrograms()})));
}

TEST_F(NetworkStatusRoles, ASlaveThatTookOverStaysMasterOnceTheServiceAddressAnswers)
{
	silence({kPartner});
	fakeoutside::pingGivesInTurn(kService, {0, 10});
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(mode, 1);
}

TEST_F(NetworkStatusRoles, AMasterThatGaveUpIsJudgedAsASlaveNext)
{
	mode = 1;
	fakeoutside::pingGivesInTurn(kGateway, {0, 10});
	EXPECT_EQ(receiver->networkStatus(), 0);
	events::clear();
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(mode, 2);
	EXPECT_THAT(events::all(), ElementsAre("log D CHeartReciver:500 networkStatus : start",
	                                       "log D CHeartReciver:538 networkStatus : SLAVE",
	                                       "log D Utill:756 partnerComunicationIPcheck : partnerIP: 10.0.0.2",
	                                       "ping 10.0.0.2 x10", "log D Utill:760 partnerComunicationIPcheck : true"));
}

TEST_F(NetworkStatusRoles, PingErrorsOfPartnerAndServiceCountAsNoAnswer)
{
	fakeoutside::pingThrows(kPartner, [] { throw Poco::Net::HostNotFoundException("partner", 3); });
	fakeoutside::pingThrows(kService, [] { throw Poco::Net::HostNotFoundException("service", 4); });
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_EQ(mode, 1);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::join(
	                {slaveAsksThePartner(),
	                 "log E Utill:766 partner Comunication IP Check Failed: Host not found: partner[CODE:3]",
	                 partnerIsSilentAndTheServiceIsAsked(),
	                 "log E Utill:814 service IP Check Failed: Host not found: service[CODE:4]",
	                 serviceIsSilentAndTheGatewayIsAsked(), takeOverBegins(), steps::runPrograms()})));
}

TEST_F(NetworkStatusRoles, APingErrorOfThePartnerIsNoTakeOverWhileTheServiceAddressAnswers)
{
	fakeoutside::pingThrows(kPartner, [] { throw Poco::Net::HostNotFoundException("partner", 3); });
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_THAT(
	    events::all(),
	    ElementsAreArray(steps::join(
	        {slaveAsksThePartner(),
	         "log E Utill:766 partner Comunication IP Check Failed: Host not found: partner[CODE:3]",
	         partnerIsSilentAndTheServiceIsAsked(), "log D Utill:807 serviceIP[10.0.1.100],serviceIPcheck : true"})));
}

TEST_F(NetworkStatusRoles, APingErrorOfTheServiceAddressIsNoTakeOverWhileTheGatewayIsSilent)
{
	silence({kPartner, kGateway});
	fakeoutside::pingThrows(kService, [] { throw Poco::Net::HostNotFoundException("service", 4); });
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_THAT(events::all(),
	            ElementsAreArray(steps::join(
	                {slaveAsksThePartner(), partnerIsSilentAndTheServiceIsAsked(),
	                 "log E Utill:814 service IP Check Failed: Host not found: service[CODE:4]",
	                 serviceIsSilentAndTheGatewayIsAsked(), "log D Utill:791 myComunicationIPcheck : FALSE"})));
}

TEST_F(NetworkStatusRoles, APingErrorOfTheGatewayKeepsASlaveFromTakingOver)
{
	silence({kPartner, kService});
	fakeoutside::pingThrows(kGateway, [] { throw Poco::Net::HostNotFoundException("gateway", 9); });
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(mode, 2);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::join(
	                               {slaveAsksThePartner(), partnerIsSilentAndTheServiceIsAsked(),
	                                serviceIsSilentAndTheGatewayIsAsked(),
	                                "log E Utill:789 My Comunication IP Check Failed: Host not found: gateway[CODE:9]",
	                                "log D Utill:791 myComunicationIPcheck : FALSE"})));
}

TEST_F(NetworkStatusRoles, AnErrorOfTheKillAfterTheOwnCommunicationFailedIsPassedOn)
{
	mode = 1;
	silence({kGateway});
	breakAt<Poco::SystemException>("command kill-by-name dbServer");
	expectPassedOn<Poco::SystemException>(
	    2, steps::join({masterAsksTheGateway(), "log D Utill:791 myComunicationIPcheck : FALSE",
	                    "log D CHeartReciver:508 my comunication IP is not OK (1)",
	                    "log D CHeartReciver:509 master -> slave  process kill", "command kill-by-name dbServer"}));
}

TEST_F(NetworkStatusRoles, AnErrorOfTheKillAfterTheServiceAddressFailedIsPassedOn)
{
	mode = 1;
	silence({kService});
	breakAt<Poco::SystemException>("command kill-by-name dbServer");
	expectPassedOn<Poco::SystemException>(
	    2, steps::join({gatewayAnswersAndTheServiceIsAsked(), "log D Utill:817 serviceIPcheck : false",
	                    "log D CHeartReciver:516 my service IP is not OK (2)",
	                    "log D CHeartReciver:517 master -> slave  process kill", "command kill-by-name dbServer"}));
}

TEST_F(NetworkStatusRoles, AnErrorOfTheCardCheckIsPassedOnWithTheRoleKept)
{
	mode = 1;
	breakAt<Poco::IOException>("command cat /sys/class/net/eth0/carrier");
	expectPassedOn<Poco::IOException>(1, serviceAnswersAndTheCardIsLookedAt());
}

TEST_F(NetworkStatusRoles, AnErrorOfTheKillAfterTheCardFailedLeavesTheVirtualIPAndAsksNobody)
{
	mode = 1;
	fakeoutside::commandPrints(kCat, "0\n");
	breakAt<Poco::SystemException>("command kill-by-name dbServer");
	expectPassedOn<Poco::SystemException>(2, steps::join({cardHasNoCarrier(), "command kill-by-name dbServer"}));
}

TEST_F(NetworkStatusRoles, AnErrorOfTheAddressControlAfterTheCardFailedAsksNobody)
{
	mode = 1;
	fakeoutside::commandPrints(kCat, "0\n");
	breakAt<Poco::SystemException>("command vip-stop");
	expectPassedOn<Poco::SystemException>(2,
	                                      steps::join({cardHasNoCarrier(), steps::killPrograms(), "command vip-stop"}));
}

TEST_F(NetworkStatusRoles, AnErrorOfTheStartInATakeOverIsPassedOnWithTheNewRole)
{
	silence({kPartner, kService});
	breakAt<Poco::SystemException>("system chmod 755 /usr/velarix/bin/ini/processList.sh");
	events::List started = steps::runPrograms();
	started.resize(7);
	EXPECT_EQ(started.back(), "system chmod 755 /usr/velarix/bin/ini/processList.sh");
	expectPassedOn<Poco::SystemException>(
	    1, steps::join({slaveAsksThePartner(), partnerIsSilentAndTheServiceIsAsked(),
	                    serviceIsSilentAndTheGatewayIsAsked(), takeOverBegins(), started}));
}

TEST_F(NetworkStatusRoles, AnErrorOutsideTheLibraryIsPassedOnToo)
{
	mode = 1;
	breakAt<std::runtime_error>("ping 10.0.0.254 x10");
	expectPassedOn<std::runtime_error>(1, masterAsksTheGateway());
}

} // namespace
