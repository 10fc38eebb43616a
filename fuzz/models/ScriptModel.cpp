#include "ScriptModel.h"

namespace fuzz
{

namespace
{

std::vector<std::string> partsOf(const std::string& path)
{
	std::vector<std::string> parts(path.empty() ? 0 : 1);
	for (const char letter : path)
	{
		if (letter == '/')
		{
			parts.emplace_back();
		}
		else
		{
			parts.back() += letter;
		}
	}
	return parts;
}

} // namespace

ScriptModel scriptOf(const std::string& kill, const std::vector<std::string>& paths)
{
	ScriptModel model;
	for (const std::string& path : paths)
	{
		const std::vector<std::string> parts = partsOf(path);
		std::string directory;
		for (std::size_t i = 0; i + 1 < parts.size(); ++i)
		{
			directory += parts[i] + "/";
		}
		model.script += "cd " + directory + "\n" + path + " &\n";
		model.commands += kill + " " + (parts.empty() ? "" : parts.back()) + "\n";
		if (parts.empty())
		{
			// An empty path has no last part, which is told.
			model.console += "**ERROR**(Utill:178)Out of range\n";
		}
	}
	return model;
}

} // namespace fuzz
