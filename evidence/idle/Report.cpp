#include <cstdio>

#include "evidence/idle/Figures.h"

namespace velarix::evidence::idle
{

std::string toText(const Results& results)
{
	std::string text = results.machine + "\n\n";
	for (const Figures& node : results.nodes)
	{
		char figures[96];
		std::snprintf(figures, sizeof figures, "%.3f %% of a processor, %.1f MB resident, %.1f MB proportional",
		              node.cpuPercent(), static_cast<double>(node.memory.resident) * 1024 / 1e6,
		              static_cast<double>(node.memory.proportional) * 1024 / 1e6);
		text += node.guard + ", node " + node.node + " (" + node.role + "): " + figures + "\n";
	}
	for (const std::string& problem : results.problems)
	{
		text += "not measured: " + problem + "\n";
	}
	return text;
}

nlohmann::json jsonOf(const Results& results)
{
	return {{"campaign", "idle"},
	        {"machine", results.machine},
	        {"goals",
	         {{"resident", goal::resident}, {"proportional", goal::proportional}, {"cpuPercent", goal::cpuPercent}}},
	        {"nodes", results.nodes},
	        {"problems", results.problems}};
}

} // namespace velarix::evidence::idle
