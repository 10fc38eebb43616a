// Launches that cannot be carried out end the daemon: better no agent than one
// that believes in a service it could not start.

#include "ReceiverTest.h"
#include "Reported.h"

namespace
{

constexpr char kScript[] = "/usr/velarix/bin/ini/processList.sh";
constexpr char kVoidProcessRun[] = "static void Utill::voidProcessRun(bool)";
constexpr char kProcessRunOf[] =
    "static std::vector<Poco::ProcessHandle*>* Utill::processRun(std::vector<std::string>&)";
constexpr char kProcessRun[] = "static std::vector<Poco::ProcessHandle*>* Utill::processRun()";

class LaunchingFatal : public DaemonTest
{
protected:
	void SetUp() override
	{
		DaemonTest::SetUp();
		settings.programs({"/opt/app/one", "/opt/app/two"});
		apply();
	}

	static void runReporting(bool skipVirtualIP)
	{
		reportEverything();
		Utill::voidProcessRun(skipVirtualIP);
	}

	std::vector<std::string> commands{"/opt/app/one", "/opt/app/two"};
};

TEST_F(LaunchingFatal, AScriptThatNoShellCouldRunEndsTheDaemon)
{
	fakeoutside::systemGives(kScript, 127);
	EXPECT_FATAL_AFTER(
	    runReporting(true),
	    reported({kBegin, "log D Utill:48 try to start virtual ip", "log D Utill:62 try to run processes",
	              "system chmod 755 /usr/velarix/bin/ini/processList.sh", "system /usr/velarix/bin/ini/processList.sh",
	              "log E Utill:72 can't run processes[127]"}),
	    "1==0", "Utill", 73, kVoidProcessRun);
}

TEST_F(LaunchingFatal, ARaisedAddressAndTheWaitingTimeComeBeforeTheScriptThatEndsTheDaemon)
{
	fakeoutside::systemGives(kScript, 127);
	settings.set("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", "2");
	apply();
	EXPECT_FATAL_AFTER(
	    runReporting(false),
	    reported(steps::join(
	        {kBegin, "log D Utill:48 try to start virtual ip", steps::raiseAddress(), "sleep 1000", "sleep 1000",
	         "log D Utill:62 try to run processes", "system chmod 755 /usr/velarix/bin/ini/processList.sh",
	         "system /usr/velarix/bin/ini/processList.sh", "log E Utill:72 can't run processes[127]"})),
	    "1==0", "Utill", 73, kVoidProcessRun);
}

TEST_F(LaunchingFatal, AProgramThatCannotBeLaunchedEndsTheDaemon)
{
	fakeoutside::launchThrows("/opt/app/two", [] { throw Poco::SystemException("Cannot fork process for", "two"); });
	EXPECT_FATAL_AFTER(Utill::processRun(commands),
	                   "**ERROR**(Utill:115)System exception: Cannot fork process for: two", "1 == 0", "Utill", 116,
	                   kProcessRunOf);
}

TEST_F(LaunchingFatal, AConfiguredProgramThatCannotBeLaunchedEndsTheDaemon)
{
	fakeoutside::launchThrows("/opt/app/two", [] { throw Poco::NotFoundException("two"); });
	EXPECT_FATAL_AFTER(Utill::processRun(), "**ERROR**(Utill:136)Not found: two", "1 == 0", "Utill", 137, kProcessRun);
}

TEST_F(LaunchingFatal, AnErrorOfTheLogDuringALaunchEndsTheDaemonToo)
{
	onLogLine(
	    [](const std::string& event)
	    {
		    if (event == "log D Utill:96 /opt/app/one started run..")
		    {
			    throw Poco::WriteFileException("disk full");
		    }
	    });
	EXPECT_FATAL_AFTER(Utill::processRun(commands), "**ERROR**(Utill:115)Cannot write file: disk full", "1 == 0",
	                   "Utill", 116, kProcessRunOf);
	EXPECT_FATAL_AFTER(Utill::processRun(), "**ERROR**(Utill:136)Cannot write file: disk full", "1 == 0", "Utill", 137,
	                   kProcessRun);
}

TEST_F(LaunchingFatal, AMissingKeyOfAShellFileEndsTheDaemon)
{
	EXPECT_NO_TEXT(Utill::shellFileRun("AGENT.NO_SUCH_COMMAND"), "AGENT.NO_SUCH_COMMAND");
}

} // namespace
