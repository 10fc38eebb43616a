#include <ios>

#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/FileStream.h>
#include <Poco/StringTokenizer.h>

#include "CAgent.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/paths.h"

namespace
{

constexpr char kSource[] = "CAgent";
constexpr char kMakeScript[] = "void CAgent::makeProcessRunShellScript()";

void makeEmptyScript()
{
	try
	{
		Poco::File file(velarix::kRunScriptPath);
		if (file.exists())
		{
			file.remove();
		}
		if (!file.createFile())
		{
			velarixLog->error(kSource, 212, "%s", "failed to creat processList");
			velarix::fatal("1 == 0", kSource, 213, kMakeScript);
		}
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 218, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 219, kMakeScript);
	}
}

} // namespace

void CAgent::makeProcessRunShellScript()
{
	std::vector<std::string> paths = Utill::getProcessList();
	const int number = static_cast<int>(paths.size());
	makeEmptyScript();
	try
	{
		Poco::FileOutputStream script(velarix::kRunScriptPath, std::ios::out | std::ios::trunc);
		for (int i = 0; i < number; ++i)
		{
			std::string& path = paths[static_cast<std::size_t>(i)];
			script << "cd " << getProcessLocation(path) << std::endl;
			script << path << " &" << std::endl;
		}
		// Half a script must not start half a service.
		if (!script.good())
		{
			throw Poco::WriteFileException(velarix::kRunScriptPath);
		}
		script.close();
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 250, "%s", exc.displayText().c_str());
		velarix::fatal("1 == 0", kSource, 251, kMakeScript);
	}
}

// The search runs over the whole configured text: an argument with a "/" moves
// the cut. A wrapper program is the way to give arguments.
std::string CAgent::getProcessLocation(std::string& path)
{
	const Poco::StringTokenizer tokens(path, "/");
	std::string location;
	for (std::size_t i = 0; i + 1 < tokens.count(); ++i)
	{
		location += tokens[i] + "/";
	}
	return location;
}
