#include "inspect/RunInfo.h"

#include "inspect/SettingsFile.h"

namespace velarix::inspect
{

const char kInitialRunInfo[] = "[TRACE]\n"
                               "LAST_RUN_TIME = \n"
                               "MASTER_LAST_RUN_TIME = \n"
                               "SLAVE_LAST_RUN_TIME = \n";

RunInfo readRunInfo(const std::filesystem::path& path)
{
	const SettingsFile file = SettingsFile::load(path);
	return {file.text(kLastRunTime), file.text(kMasterLastRunTime), file.text(kSlaveLastRunTime)};
}

} // namespace velarix::inspect
