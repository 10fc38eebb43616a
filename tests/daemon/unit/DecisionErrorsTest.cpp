// What a decision has changed by the time it acts, which settings it reads, and
// that it passes on the errors of process and address control.

#include "ReceiverTest.h"

namespace
{

const char kScript[] = "system /usr/velarix/bin/ini/processList.sh";

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

struct Row
{
	const char* breaks; ///< the action that throws
	const char* partner;
	const char* ask;
	const char* configured;
	MODE mode;
	bool programs;
	MODE modeAfter;
	steps::Step steps;
};

const char kTwoMasters[] = "log D CHeartReciver:282 My NetWork Status: OK MY:MASTER PARTNER:MASTER OK";

/// A start up to its script.
events::List startUpToTheScript()
{
	events::List start = steps::runPrograms();
	start.pop_back();
	return start;
}

class DecisionErrors : public ReceiverTest
{
protected:
	void expectPassedOn(const Row& row)
	{
		SCOPED_TRACE(row.breaks);
		fakeoutside::onAction(
		    [&row](const std::string& event)
		    {
			    if (event == row.breaks)
			    {
				    throw Poco::SystemException("broken", 5);
			    }
		    });
		configureRole(row.configured);
		programRuns(row.programs);
		mode = row.mode;
		velarix::storeShared(g_specialAsking, std::int32_t{1});
		count() = 3;
		events::clear();
		EXPECT_THROW(hear(row.partner, row.ask), Poco::SystemException);
		EXPECT_THAT(events::all(), ElementsAreArray(steps::heard({row.steps})));
		EXPECT_EQ(mode, row.modeAfter);
	}
};

TEST_F(DecisionErrors, OfAnActionArePassedOnWithTheRoleAsItIsThen)
{
	using steps::join;
	const Row rows[] = {
	    {"command kill-by-name dbServer", "1", "0", "1", 1, true, 1,
	     join({kTwoMasters, "log D CHeartReciver:470 MASTER kill", "command kill-by-name dbServer"})},
	    {kScript, "2", "0", "1", 2, false, 1,
	     join({"log D CHeartReciver:411 szTmp[1] specialAsk[0]",
	           "log D CHeartReciver:418 My NetWork Status: OK MY:SLAVE PARTNER:SLAVE OK",
	           "log D CHeartReciver:473 try to process run", startUpToTheScript()})},
	    {"command vip-stop", "1", "0", "2", 1, true, 2,
	     join({kTwoMasters, "log D CHeartReciver:480 SLAVE kill", steps::killPrograms(), "command vip-stop"})},
	    {"command ifconfig", "2", "1", "2", 2, false, 1,
	     join({"log D CHeartReciver:411 szTmp[1] specialAsk[1]", "log D CHeartReciver:414 special ask: slave -> master",
	           steps::dropAddress(), "command ifconfig"})},
	};
	for (const Row& row : rows)
	{
		expectPassedOn(row);
	}
	// The ask was done with before the address was raised.
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
