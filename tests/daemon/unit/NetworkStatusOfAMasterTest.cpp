// The network verdict of a master: own communication network, service address
// and service card, in this order; the first failure decides. Only the card's
// failure drops the virtual IP and asks the partner.
#include <Poco/Net/NetException.h>

#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "velarix/shared_value.h"

using testing::ElementsAreArray;

namespace
{

const char kGateway[] = "10.0.0.254";
const char kService[] = "10.0.1.100";
const char kKill[] = "kill-by-name dbServer";
const char kCat[] = "cat /sys/class/net/eth0/carrier";

class NetworkStatusOfAMaster : public ReceiverTest
{
protected:
	void SetUp() override
	{
		ReceiverTest::SetUp();
		mode = 1;
		status() = 1;
		count() = 2;
		fakeoutside::commandPrints(kCat, "1\n");
	}

	void expectVerdict(int verdict, const events::List& steps)
	{
		EXPECT_EQ(receiver->networkStatus(), verdict);
		EXPECT_THAT(events::all(), ElementsAreArray(steps));
		EXPECT_EQ(status(), 1);
		EXPECT_FALSE(running);
	}

	void expectGivenUpInSilence()
	{
		EXPECT_EQ(mode, 2);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
		EXPECT_EQ(count(), 2);
	}

	void expectGivenUpWithAnAsk()
	{
		EXPECT_EQ(mode, 2);
		EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
		EXPECT_EQ(count(), 0);
	}

	static events::List start()
	{
		return {"log D CHeartReciver:500 networkStatus : start",
		        "log D CHeartReciver:505 networkStatus : MASTER network check...",
		        "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10"};
	}

	static events::List gatewayAnswers()
	{
		return steps::join({start(), "log D Utill:783 myComunicationIPcheck : TRUE",
		                    "log D Utill:797 serviceIPcheck : START", "ping 10.0.1.100 x10"});
	}

	static events::List serviceAnswers()
	{
		return steps::join({gatewayAnswers(), "log D Utill:807 serviceIP[10.0.1.100],serviceIPcheck : true",
		                    "command cat /sys/class/net/eth0/carrier"});
	}

	static events::List communicationFailed(const events::List& kill = steps::killPrograms())
	{
		return steps::join({"log D Utill:791 myComunicationIPcheck : FALSE",
		                    "log D CHeartReciver:508 my comunication IP is not OK (1)",
		                    "log D CHeartReciver:509 master -> slave  process kill", kill});
	}

	static events::List serviceFailed(const events::List& kill = steps::killPrograms())
	{
		return steps::join({"log D Utill:817 serviceIPcheck : false",
		                    "log D CHeartReciver:516 my service IP is not OK (2)",
		                    "log D CHeartReciver:517 master -> slave  process kill", kill});
	}

	static events::List cardFailed(const events::List& kill = steps::killPrograms(),
	                               const events::List& stop = steps::dropAddress())
	{
		return steps::join({"log D CHeartReciver:524 my service LanCard is not OK (3)",
		                    "log D CHeartReciver:525 master -> slave  process kill", kill, stop});
	}

	/// A command that cannot be started.
	static events::List notStarted(const std::string& command)
	{
		return {"command " + command, "log E Utill:550 shell command run error(fp is NULL): " + command, "sleep 1000"};
	}

	static events::List cardHasNoCarrier()
	{
		return steps::join({serviceAnswers(), "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 0\n\n"});
	}
};

TEST_F(NetworkStatusOfAMaster, AllChecksPassedKeepTheRole)
{
	expectVerdict(1,
	              steps::join({serviceAnswers(), "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n"}));
	EXPECT_EQ(mode, 1);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_EQ(count(), 2);
}

TEST_F(NetworkStatusOfAMaster, OneReplyOfEachAddressIsEnough)
{
	fakeoutside::pingGives(kGateway, 1);
	fakeoutside::pingGives(kService, 1);
	expectVerdict(1,
	              steps::join({serviceAnswers(), "log I Utill:573 command(cat /sys/class/net/eth0/carrier) : 1\n\n"}));
	EXPECT_EQ(mode, 1);
}

TEST_F(NetworkStatusOfAMaster, APassedCheckLeavesAPendingAskAlone)
{
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
	EXPECT_EQ(count(), 2);
}

TEST_F(NetworkStatusOfAMaster, AnIsolatedMasterGivesUpWithTheVirtualIPLeftAndNoAsk)
{
	fakeoutside::pingGives(kGateway, 0);
	expectVerdict(0, steps::join({start(), communicationFailed()}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, ASilentServiceAddressGivesUpWithTheVirtualIPLeftAndNoAsk)
{
	fakeoutside::pingGives(kService, 0);
	expectVerdict(0, steps::join({gatewayAnswers(), serviceFailed()}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, AServiceCardWithoutCarrierDropsTheVirtualIPAndAsksThePartner)
{
	fakeoutside::commandPrints(kCat, "0\n");
	expectVerdict(0, steps::join({cardHasNoCarrier(), cardFailed()}));
	expectGivenUpWithAnAsk();
}

TEST_F(NetworkStatusOfAMaster, AnUnreadableServiceCardIsACardWithoutCarrier)
{
	fakeoutside::commandFails(kCat);
	expectVerdict(0, steps::join({serviceAnswers(),
	                              "log E Utill:550 shell command run error(fp is NULL): cat "
	                              "/sys/class/net/eth0/carrier",
	                              "sleep 1000", cardFailed()}));
	expectGivenUpWithAnAsk();
}

TEST_F(NetworkStatusOfAMaster, ThePartnerIsAskedEvenWhenTheStopCommandCannotStart)
{
	fakeoutside::commandPrints(kCat, "0\n");
	fakeoutside::commandFails("vip-stop");
	expectVerdict(0, steps::join({cardHasNoCarrier(), cardFailed(steps::killPrograms(), notStarted("vip-stop"))}));
	expectGivenUpWithAnAsk();
}

TEST_F(NetworkStatusOfAMaster, AnIsolatedMasterGivesUpEvenWhenTheKillCommandCannotStart)
{
	fakeoutside::pingGives(kGateway, 0);
	fakeoutside::commandFails(kKill);
	expectVerdict(0, steps::join({start(), communicationFailed(notStarted(kKill))}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, ASilentServiceAddressGivesUpEvenWhenTheKillCommandCannotStart)
{
	fakeoutside::pingGives(kService, 0);
	fakeoutside::commandFails(kKill);
	expectVerdict(0, steps::join({gatewayAnswers(), serviceFailed(notStarted(kKill))}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, TheVirtualIPIsDroppedEvenWhenTheKillCommandCannotStart)
{
	fakeoutside::commandPrints(kCat, "0\n");
	fakeoutside::commandFails(kKill);
	expectVerdict(0, steps::join({cardHasNoCarrier(), cardFailed(notStarted(kKill))}));
	expectGivenUpWithAnAsk();
}

TEST_F(NetworkStatusOfAMaster, TheOwnCommunicationIsJudgedBeforeEverythingElse)
{
	fakeoutside::pingGives(kGateway, 0);
	fakeoutside::pingGives(kService, 0);
	fakeoutside::commandPrints(kCat, "0\n");
	expectVerdict(0, steps::join({start(), communicationFailed()}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, TheServiceAddressIsJudgedBeforeTheCard)
{
	fakeoutside::pingGives(kService, 0);
	fakeoutside::commandPrints(kCat, "0\n");
	expectVerdict(0, steps::join({gatewayAnswers(), serviceFailed()}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, ThePartnerIsNotPinged)
{
	fakeoutside::pingGives("10.0.0.2", 0);
	EXPECT_EQ(receiver->networkStatus(), 1);
	EXPECT_THAT(events::only({"ping "}), ElementsAreArray({"ping 10.0.0.254 x10", "ping 10.0.1.100 x10"}));
}

TEST_F(NetworkStatusOfAMaster, APingErrorOfTheGatewayCountsAsNoAnswer)
{
	fakeoutside::pingThrows(kGateway, [] { throw Poco::Net::HostNotFoundException("gateway", 11001); });
	expectVerdict(0, steps::join({start(),
	                              "log E Utill:789 My Comunication IP Check Failed: Host not found: "
	                              "gateway[CODE:11001]",
	                              communicationFailed()}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, APingErrorOfTheServiceAddressCountsAsNoAnswer)
{
	fakeoutside::pingThrows(kService, [] { throw Poco::Net::NetException("no privilege", 1); });
	expectVerdict(0, steps::join({gatewayAnswers(),
	                              "log E Utill:814 service IP Check Failed: Net Exception: no privilege[CODE:1]",
	                              serviceFailed()}));
	expectGivenUpInSilence();
}

TEST_F(NetworkStatusOfAMaster, TheRoleIsGivenUpBeforeTheProgramsAreKilled)
{
	fakeoutside::pingGives(kGateway, 0);
	recordStateAtActions();
	receiver->networkStatus();
	EXPECT_THAT(events::without({"log "}), ElementsAreArray({"ping 10.0.0.254 x10", "role 1 ask 0",
	                                                         "command kill-by-name dbServer", "role 2 ask 0"}));
}

TEST_F(NetworkStatusOfAMaster, TheRoleIsGivenUpBeforeTheProgramsOfASilentServiceAreKilled)
{
	fakeoutside::pingGives(kService, 0);
	recordStateAtActions();
	receiver->networkStatus();
	EXPECT_THAT(events::without({"log "}),
	            ElementsAreArray({"ping 10.0.0.254 x10", "role 1 ask 0", "ping 10.0.1.100 x10", "role 1 ask 0",
	                              "command kill-by-name dbServer", "role 2 ask 0"}));
}

TEST_F(NetworkStatusOfAMaster, ThePartnerIsAskedOnlyAfterTheVirtualIPWasDropped)
{
	fakeoutside::commandPrints(kCat, "0\n");
	recordStateAtActions();
	receiver->networkStatus();
	EXPECT_THAT(
	    events::without({"log "}),
	    ElementsAreArray({"ping 10.0.0.254 x10", "role 1 ask 0", "ping 10.0.1.100 x10", "role 1 ask 0",
	                      "command cat /sys/class/net/eth0/carrier", "role 1 ask 0", "command kill-by-name dbServer",
	                      "role 2 ask 0", "command vip-stop", "role 2 ask 0"}));
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 1);
}

TEST_F(NetworkStatusOfAMaster, ANewAskBeginsItsCountAnew)
{
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	count() = 3;
	fakeoutside::commandPrints(kCat, "0\n");
	EXPECT_EQ(receiver->networkStatus(), 0);
	expectGivenUpWithAnAsk();
}

TEST_F(NetworkStatusOfAMaster, EveryManagedProgramIsKilled)
{
	settings.programs({"/opt/app/bin/dbServer", "/opt/app/bin/webServer"});
	apply();
	fakeoutside::pingGives(kService, 0);
	EXPECT_EQ(receiver->networkStatus(), 0);
	EXPECT_THAT(events::only({"command "}),
	            ElementsAreArray({"command kill-by-name dbServer", "command kill-by-name webServer"}));
}

} // namespace
