#include <cstdint>
#include <iostream>
#include <memory>

#include <Poco/Exception.h>
#include <Poco/Thread.h>

#include "Configuraion.h"
#include "Outside.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"

namespace
{

constexpr char kSource[] = "Utill";

constexpr char kProcessRunRule[] = "======================================================";
constexpr char kProcessRunTitle[] = "================ process run =========================";
constexpr char kProcessRunBanner[] = "\n"
                                     "======================================================\n"
                                     "================ process run =========================\n"
                                     "======================================================";
constexpr char kFailoverBanner[] = "\n"
                                   "=======================================================\n"
                                   "===================  failover  ==========================\n"
                                   "=======================================================";

/// Waits `seconds`, printing the rest on the console each second. It ends at zero
/// only: a negative time waits for the whole range of the integer.
void waitForIPSetup(std::int32_t seconds)
{
	while (seconds != 0)
	{
		std::cout << "process is waiting for ip setup:" << seconds << std::endl;
		Poco::Thread::sleep(1000);
		seconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds) - 1U);
	}
}

using Handles = std::vector<Poco::ProcessHandle*>;

/// The started handles; the caller of the public operation becomes their owner.
std::unique_ptr<Handles> launchEach(const std::vector<std::string>& commands)
{
	auto handles = std::make_unique<Handles>();
	const std::vector<std::string> noArguments;
	for (const std::string& command : commands)
	{
		handles->push_back(new Poco::ProcessHandle(outside::launch(command, noArguments)));
		velarixLog->debug(kSource, 96, "%s started run..", command.c_str());
	}
	if (commands.size() != handles->size())
	{
		velarixLog->error(kSource, 101, "%s", "some of processes did not start");
	}
	return handles;
}

} // namespace

void Utill::voidProcessRun(bool skipVirtualIP)
{
	velarixLog->debug(kSource, 48, "%s", "try to start virtual ip");
	if (!skipVirtualIP)
	{
		MODE mode = MODE_MASTER;
		startVirtualIP(&mode);
	}
	waitForIPSetup(Configuraion::getInstance(velarix::kSettingsPath)->getInt("AGENT.WAITING_TIME_BEFORE_PROCESS_RUN"));
	velarixLog->debug(kSource, 62, "%s", "try to run processes");
	const std::string script(velarix::kRunScriptPath);
	outside::runShell("chmod 755 " + script);
	// The raw value is judged: a script that itself ends with status 127 (raw
	// 32512) has been run, and the process checker sees what came of it.
	const int result = outside::runShell(script);
	if (result == 127 || result == -1)
	{
		velarixLog->error(kSource, 72, "can't run processes[%d]", result);
		velarix::fatal("1==0", kSource, 73, "static void Utill::voidProcessRun(bool)");
	}
	// A banner at error level, so that a start stands out in any log filter.
	velarixLog->error(kSource, 78, "%s", kProcessRunBanner);
}

std::vector<Poco::ProcessHandle*>* Utill::processRun(std::vector<std::string>& commands)
{
	std::unique_ptr<Handles> handles;
	try
	{
		handles = launchEach(commands);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 115, "%s", exc.displayText().c_str());
		velarix::fatal("1 == 0", kSource, 116,
		               "static std::vector<Poco::ProcessHandle*>* Utill::processRun(std::vector<std::string>&)");
	}
	velarixLog->error(kSource, 119, "%s", kProcessRunRule);
	velarixLog->error(kSource, 120, "%s", kProcessRunTitle);
	velarixLog->error(kSource, 121, "%s", kProcessRunRule);
	return handles.release();
}

std::vector<Poco::ProcessHandle*>* Utill::processRun()
{
	std::unique_ptr<Handles> handles;
	try
	{
		handles = launchEach(getProcessList());
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 136, "%s", exc.displayText().c_str());
		velarix::fatal("1 == 0", kSource, 137, "static std::vector<Poco::ProcessHandle*>* Utill::processRun()");
	}
	velarixLog->error(kSource, 140, "%s", kFailoverBanner);
	return handles.release();
}

// The interface is by value.
// cppcheck-suppress passedByValue
void Utill::shellFileRun(std::string key) // NOLINT(performance-unnecessary-value-param)
{
	const std::string command = Configuraion::getInstance(velarix::kSettingsPath)->getString(key);
	outside::launch(command, {});
}

void Utill::DBRun(MODE* /*pMode*/)
{
}
