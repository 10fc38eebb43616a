#include <Poco/Exception.h>

#include "Configuraion.h"
#include "ShellRunner.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/paths.h"

namespace
{

constexpr char kSource[] = "Utill";

} // namespace

bool Utill::processKill()
{
	const std::string kill =
	    Configuraion::getInstance(velarix::kSettingsPath)->getString("ADVENCE.PROCESS_KILL_COMMAND");
	for (std::string& path : getProcessList())
	{
		std::string command = kill + " " + getProcessName(path);
		shellCommand(command);
	}
	return true;
}

bool Utill::processKill(std::vector<Poco::ProcessHandle*>* pHandles)
{
	if (pHandles == nullptr)
	{
		return true;
	}
	for (auto it = pHandles->rbegin(); it != pHandles->rend(); ++it)
	{
		try
		{
			Poco::Process::kill(**it);
			Poco::Process::wait(**it);
			velarixLog->debug(kSource, 296, "[%d] killed", (*it)->id());
		}
		catch (const Poco::Exception& exc)
		{
			velarixLog->error(kSource, 300, "%s", exc.displayText().c_str());
		}
	}
	return true;
}

bool Utill::advenceRunCheck(int /*unused*/)
{
	std::string keyword = Configuraion::getInstance(velarix::kSettingsPath)->getString("ADVENCE.KEYWORD");
	for (std::string& path : getProcessList())
	{
		std::string command = "ps aux | grep " + getProcessName(path);
		std::string output = shellCommand(command);
		if (stringFinder(output, keyword))
		{
			return false;
		}
	}
	return true;
}
