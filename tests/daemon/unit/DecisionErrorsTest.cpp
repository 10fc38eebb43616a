// What a decision has changed by the time it acts, which settings it reads, and
// that it passes on the errors of process and address control.
#include <memory>
#include <stdexcept>

#include <Poco/Exception.h>

#include "FakeOutside.h"
#include "ReceiverTest.h"
#include "Sandbox.h"
#include "velarix/shared_value.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{

const char kChmod[] = "system chmod 755 /usr/velarix/bin/ini/processList.sh";
const char kScript[] = "system /usr/velarix/bin/ini/processList.sh";
const char kStopLogged[] = "log I Utill:573 command(vip-stop) : ";

class DecisionOrder : public ReceiverTest
{
protected:
	void expectActions(const events::List& actions)
	{
		EXPECT_THAT(events::without({"log "}), ElementsAreArray(actions));
	}
};

TEST_F(DecisionOrder, TheRunInfoRecordStaysAsItIs)
{
	configureRole("1");
	hear("2", "0");
	mode = 2;
	hear("2", "1");
	EXPECT_EQ(sandbox::readFile("/usr/velarix/bin/log/runinfo.txt"), kRunInfo);
}

TEST_F(DecisionOrder, EveryObservationModeCountsAlike)
{
	for (const char* observation : {"1", "2", "0", "7"})
	{
		settings.set("PROCESS_CHECK.OBSERVATION_MODE", observation);
		apply();
		mode = 1;
		status() = 0;
		programRuns(true);
		hear("2", "0");
		EXPECT_EQ(status(), 1) << observation;
	}
}

class DecisionSettings : public ReceiverTest
{
};

constexpr char kGetInt[] = "int Configuraion::getInt(const std::string&)";

TEST_F(DecisionSettings, TheConfiguredRoleIsReadByAResetAlone)
{
	settings.remove("AGENT.MODE").remove("PROCESS_CHECK.OBSERVATION_MODE");
	apply();
	hear("1", "0");
	hear("2", "1");
	EXPECT_EQ(mode, 1);
	hear("2", "0");
	EXPECT_EQ(mode, 1);
}

TEST_F(DecisionSettings, AMasterWithTheStatusNotOKNeedsTheObservationMode)
{
	settings.remove("PROCESS_CHECK.OBSERVATION_MODE");
	apply();
	mode = 1;
	status() = 0;
	EXPECT_FATAL(hear("2", "0"), "0", "Configuraion", 83, kGetInt);
}

class DecisionErrors : public ReceiverTest
{
protected:
	/// The n-th occurrence of the action throws a system error.
	static void breakAt(const std::string& action, int occurrence = 1)
	{
		auto left = std::make_shared<int>(occurrence);
		fakeoutside::onAction(
		    [action, left](const std::string& event)
		    {
			    if (event == action && --*left == 0)
			    {
				    throw Poco::SystemException("broken", 5);
			    }
		    });
	}

	void expectPassedOn(const std::string& partner, const std::string& ask, const events::List& steps)
	{
		try
		{
			hear(partner, ask);
			ADD_FAILURE() << "no exception";
		}
		catch (const Poco::SystemException& exc)
		{
			EXPECT_EQ(exc.displayText(), "System exception: broken");
			EXPECT_EQ(exc.code(), 5);
		}
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({steps})));
	}
};

const char kTwoMasters[] = "log D CHeartReciver:282 My NetWork Status: OK MY:MASTER PARTNER:MASTER OK";

TEST_F(DecisionErrors, AnErrorOfTheKillInAMastersResetIsPassedOn)
{
	configureRole("1");
	mode = 1;
	programRuns(true);
	breakAt("command kill-by-name dbServer");
	expectPassedOn("1", "0", {kTwoMasters, "log D CHeartReciver:470 MASTER kill", "command kill-by-name dbServer"});
	EXPECT_EQ(mode, 1);
}

TEST_F(DecisionErrors, AnErrorOfTheStartInAMastersResetIsPassedOn)
{
	configureRole("1");
	breakAt(kScript);
	expectPassedOn("2", "0",
	               {"log D CHeartReciver:411 szTmp[1] specialAsk[0]",
	                "log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK",
	                "log D CHeartReciver:473 try to process run", "log D Utill:48 try to start virtual ip",
	                "command vip-stop", kStopLogged, "command ifconfig", "log D Utill:668 myVirtualIP working",
	                "log D Utill:62 try to run processes", kChmod, kScript});
	EXPECT_EQ(mode, 1);
}

TEST_F(DecisionErrors, AnErrorOfTheStopCommandInASlavesResetIsPassedOn)
{
	mode = 1;
	programRuns(true);
	breakAt("command vip-stop");
	expectPassedOn("1", "0",
	               {kTwoMasters, "log D CHeartReciver:480 SLAVE kill", "command kill-by-name dbServer",
	                "log I Utill:573 command(kill-by-name dbServer) : ", "command vip-stop"});
	EXPECT_EQ(mode, 2);
}

TEST_F(DecisionErrors, AnErrorWhileAnAskedSlaveRaisesTheVirtualIPStartsNoProgram)
{
	velarix::storeShared(g_specialAsking, std::int32_t{1});
	count() = 3;
	breakAt("command ifconfig");
	expectPassedOn("2", "1",
	               {"log D CHeartReciver:411 szTmp[1] specialAsk[1]",
	                "log D CHeartReciver:414 special ask: slave -> master", "command vip-stop", kStopLogged,
	                "command ifconfig"});
	EXPECT_EQ(mode, 1);
	EXPECT_EQ(velarix::loadShared(g_specialAsking), 0);
	EXPECT_EQ(count(), 0);
}

TEST_F(DecisionErrors, AnErrorOutsideTheLibraryIsPassedOnToo)
{
	fakeoutside::onAction([](const std::string&) { throw std::runtime_error("broken"); });
	EXPECT_THROW(hear("2", "1"), std::runtime_error);
	EXPECT_THAT(events::without({"log "}), ElementsAre("command vip-stop"));
	EXPECT_EQ(mode, 1);
}

TEST_F(DecisionErrors, AScriptThatCannotBeRunEndsTheDaemon)
{
	fakeoutside::systemGives("/usr/velarix/bin/ini/processList.sh", -1);
	EXPECT_FATAL(hear("2", "1"), "1==0", "Utill", 73, "static void Utill::voidProcessRun(bool)");
}

} // namespace
