// Two nodes with the same role, and what a heartbeat does to the own status.
#include "ReceiverTest.h"
#include "TwoNodes.h"

using testing::ElementsAreArray;

namespace
{

class RoleConflict : public TwoNodes
{
};

const char kTwoMastersOK[] = "log D CHeartReciver:282 My NetWork Status: OK MY:MASTER PARTNER:MASTER OK";
const char kTwoMastersNot[] = "log D CHeartReciver:324 My NetWork Status: NOT OK MY:MASTER PARTNER:MASTER RESET";
const char kQuiet[] = "log D CHeartReciver:278 My NetWork Status: OK   MY:MASTER PARTNER:SLAVE OK";

events::List restart()
{
	return steps::join({"log D CHeartReciver:470 MASTER kill", steps::killPrograms(),
	                    "log D CHeartReciver:473 try to process run", steps::raiseAddressAndRunPrograms()});
}

events::List rest()
{
	return steps::join({"log D CHeartReciver:480 SLAVE kill", steps::killPrograms(), steps::dropAddress()});
}

TEST_F(RoleConflict, OfTwoMastersTheConfiguredOneRestartsAndTheOtherRests)
{
	Node first("1", 1);
	Node second("2", 1);
	const std::string firstBeat = first.beat();
	first.hears(second.beat());
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, restart()})));
	second.hears(firstBeat);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, rest()})));
	EXPECT_EQ(first.role, 1);
	EXPECT_TRUE(first.serves());
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.rests());
}

TEST_F(RoleConflict, OfTwoMastersWithTheStatusNotOKTheConfiguredOneRestartsAndTheOtherRests)
{
	Node first("1", 1);
	Node second("2", 1);
	first.status() = 0;
	second.status() = 0;
	const std::string firstBeat = first.beat();
	first.hears(second.beat());
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersNot, restart()})));
	second.hears(firstBeat);
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersNot, rest()})));
	EXPECT_EQ(first.status(), 0);
	EXPECT_EQ(second.status(), 0);
	EXPECT_TRUE(first.serves());
	EXPECT_TRUE(second.rests());
}

TEST_F(RoleConflict, ASecondMasterWithoutProgramsOnlyTakesTheSlaveRole)
{
	Node second("2", 1);
	second.programs = false;
	second.hears("/process/1/1/20240131235959/0/");
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK})));
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.address);
}

TEST_F(RoleConflict, AnIsolatedMasterKeepsItsAddressAsksNobodyAndIsNotOK)
{
	Node node("1", 1);
	node.silent = {"10.0.0.254"};
	EXPECT_FALSE(node.judges());
	EXPECT_THAT(events::all(),
	            ElementsAreArray(
	                {"log D CHeartReciver:94 Reciver while start", "log D CHeartReciver:500 networkStatus : start",
	                 "log D CHeartReciver:505 networkStatus : MASTER network check...",
	                 "log D Utill:774 myComunicationIPcheck : START", "ping 10.0.0.254 x10",
	                 "log D Utill:791 myComunicationIPcheck : FALSE",
	                 "log D CHeartReciver:508 my comunication IP is not OK (1)",
	                 "log D CHeartReciver:509 master -> slave  process kill", "command kill-by-name dbServer",
	                 "log I Utill:573 command(kill-by-name dbServer) : ", "log D CHeartReciver:96 networkResult: 0",
	                 "log D CHeartReciver:99 networkStatus [0] m_myStatus[1]", "sleep 1000"}));
	EXPECT_EQ(node.status(), 0);
	EXPECT_EQ(node.role, 2);
	EXPECT_TRUE(node.address);
	EXPECT_FALSE(node.programs);
	EXPECT_EQ(node.beat(), "/process/0/2/20240131235959/0/");
}

TEST_F(RoleConflict, ASlaveThatTookOverAloneRestsAgainOnceItHearsAMaster)
{
	Node node("2", 2);
	node.silent = {"10.0.0.2"};
	node.hears("/process/0/2/20240131235959/1/");
	EXPECT_TRUE(node.serves());
	node.hears("/process/1/1/20240131235959/0/");
	EXPECT_EQ(node.role, 2);
	EXPECT_TRUE(node.rests());
}

TEST_F(RoleConflict, TwoConfiguredMastersRestartAtEveryHeartbeat)
{
	Node first("1", 1);
	Node second("1", 1);
	for (int i = 0; i < 3; ++i)
	{
		first.hears(second.beat());
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, restart()})));
		second.hears(first.beat());
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kTwoMastersOK, restart()})));
	}
	EXPECT_EQ(first.role, 1);
	EXPECT_EQ(second.role, 1);
}

TEST_F(RoleConflict, OfTwoSlavesTheConfiguredMasterTakesTheService)
{
	Node first("1", 2);
	Node second("2", 2);
	first.hears(second.beat());
	second.hears(first.beat());
	EXPECT_EQ(first.role, 1);
	EXPECT_TRUE(first.serves());
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.rests());
}

TEST_F(RoleConflict, TwoConfiguredSlavesStaySlaves)
{
	Node first("2", 2);
	Node second("2", 2);
	for (int i = 0; i < 3; ++i)
	{
		first.hears(second.beat());
		second.hears(first.beat());
	}
	EXPECT_EQ(first.role, 2);
	EXPECT_TRUE(first.rests());
	EXPECT_EQ(second.role, 2);
	EXPECT_TRUE(second.rests());
}

TEST_F(RoleConflict, ASlaveWithTheStatusNotOKIsOKAfterAnyHeartbeatOfAMaster)
{
	for (const char* message :
	     {"/process/1/1/20240131235959/0/", "/process/0/1/20240131235959/1/", "/process/0/1//10/", "/processX/x/1/x//"})
	{
		Node node("2", 2);
		node.status() = 0;
		node.hears(message);
		EXPECT_EQ(node.status(), 1) << message;
		EXPECT_EQ(node.role, 2) << message;
	}
}

TEST_F(RoleConflict, ASlaveWithTheStatusNotOKStaysSoAfterASlavesHeartbeat)
{
	Node node("2", 2);
	node.status() = 0;
	node.hears("/process/0/2/20240131235959/0/");
	EXPECT_EQ(node.status(), 0);
}

TEST_F(RoleConflict, AMasterHearingASlaveIsQuietWhateverTheOtherFieldsSay)
{
	for (const char* message : {"/process/0/2/20240131235959/0/", "/process/1/2/20240131235959/1/",
	                            "/process/1/2/99999999999999/10/", "/process//2///"})
	{
		Node node("1", 1);
		node.hears(message);
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kQuiet})));
		EXPECT_EQ(node.role, 1);
		EXPECT_TRUE(node.serves());
	}
}

TEST_F(RoleConflict, AStoppedMasterWithTheStatusNotOKComplainsAtEveryHeartbeatAndDoesNothing)
{
	Node node("1", 1);
	node.programs = false;
	node.status() = 0;
	for (int i = 0; i < 3; ++i)
	{
		node.hears("/process/0/2/20240131235959/1/");
		EXPECT_THAT(events::all(),
		            ElementsAreArray(steps::heard({"log E CHeartReciver:319 m_myStatus[0]:ERRRRREEEEEEERRRRRRR"})));
	}
	EXPECT_EQ(node.role, 1);
	EXPECT_EQ(node.status(), 0);
	EXPECT_FALSE(node.programs);
}

TEST_F(RoleConflict, ARunningMasterWithTheStatusNotOKIsOKAfterASlavesHeartbeatWithoutAWord)
{
	Node node("1", 1);
	node.status() = 0;
	node.hears("/process/0/2/20240131235959/0/");
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({})));
	EXPECT_EQ(node.status(), 1);
	node.hears("/process/0/2/20240131235959/0/");
	EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({kQuiet})));
}

TEST_F(RoleConflict, AnUnknownRoleIsOnlyNoted)
{
	for (const MODE role : {0, 3, -1})
	{
		for (const char* message : {"/process/1/1/20240131235959/1/", "/process/0/2/20240131235959/1/"})
		{
			Node node("1", role);
			node.asking = 1;
			node.hears(message);
			EXPECT_THAT(events::all(),
			            ElementsAreArray(steps::heard({"log D CHeartReciver:297 My NetWork Status: OK UNKNOW"})));
			node.status() = 0;
			node.hears(message);
			EXPECT_THAT(events::all(),
			            ElementsAreArray(steps::heard({"log D CHeartReciver:339 My NetWork Status: NOT OK UNKNOW"})));
			EXPECT_EQ(node.role, role);
			EXPECT_EQ(node.asking, 1);
			EXPECT_EQ(node.count(), 0);
		}
	}
}

} // namespace
