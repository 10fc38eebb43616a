#include "inspect/Paths.h"

#include "velarix/paths.h"

namespace velarix::inspect
{

Paths::Paths(const std::filesystem::path& rootDirectory)
    : root(rootDirectory.lexically_normal()), settings(below(kSettingsPath)), runInfo(below(kRunInfoPath)),
      pid(below(kPidPath)), runScript(below(kRunScriptPath))
{
}

std::filesystem::path Paths::below(const std::filesystem::path& absolute) const
{
	return root / absolute.relative_path();
}

} // namespace velarix::inspect
