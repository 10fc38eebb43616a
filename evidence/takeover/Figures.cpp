#include "evidence/takeover/Figures.h"

#include <algorithm>
#include <array>

namespace velarix::evidence::takeover
{

namespace
{

/// The plainest cells of each path: no lossy wires, where luck decides what is heard.
constexpr std::array<const char*, 26> standingFor{"power-off/a/master",
                                                  "power-off/b/master",
                                                  "reboot/a/master",
                                                  "reboot/b/master",
                                                  "cold-start/a/master",
                                                  "cold-start/b/master",
                                                  "cold-start-alone/a",
                                                  "cold-start-alone/b",
                                                  "cold-start-apart-1/a",
                                                  "cold-start-apart-1/b",
                                                  "agent-kill/a/master",
                                                  "agent-kill/b/master",
                                                  "program-kill/a/master",
                                                  "program-kill/b/master",
                                                  "communication-card/a/master",
                                                  "communication-card/b/master",
                                                  "gateway/a/master",
                                                  "gateway/b/master",
                                                  "gateway-for/b/master",
                                                  "replay-master/a/master",
                                                  "address-removed/a/master",
                                                  "address-removed/b/master",
                                                  "start-prints/b/takes-over",
                                                  "start-prints/a/takes-over",
                                                  "start-hangs/b/takes-over",
                                                  "start-hangs/a/takes-over"};

/// Of the phase that a campaign watches.
const std::string& pathOf(const Cell& cell, const Expectations& expectations)
{
	const bool first = cell.repair.empty() || expectations.paths.contains(cell.stands.path);
	return first ? cell.stands.path : cell.repaired.path;
}

} // namespace

std::vector<PathCells> pathsFor(const Expectations& expectations, const std::vector<std::string>& only)
{
	for (const std::string& name : only)
	{
		const auto found = expectations.paths.find(name);
		if (found == expectations.paths.end() || found->second.anchor.empty())
		{
			throw LabError("there is no path \"" + name + "\" with an overhead");
		}
	}
	std::vector<PathCells> paths;
	for (const auto& [name, path] : expectations.paths)
	{
		const bool filtered = only.empty() || std::find(only.begin(), only.end(), name) != only.end();
		if (path.anchor.empty() || !filtered)
		{
			continue;
		}
		paths.push_back({path, {}});
		for (const Cell& cell : expectations.cells)
		{
			const bool stands = std::find(standingFor.begin(), standingFor.end(), cell.name) != standingFor.end();
			if (stands && pathOf(cell, expectations) == name)
			{
				paths.back().cells.push_back(cell);
			}
		}
		if (paths.back().cells.empty())
		{
			throw LabError("no cell stands for the path \"" + name + "\"");
		}
	}
	return paths;
}

std::optional<Sample> sampleOf(const RunRecord& record)
{
	const bool done = record.differences.empty() && !record.phases.empty();
	if (!done || !record.phases.back().overhead)
	{
		return std::nullopt;
	}
	const PhaseRecord& phase = record.phases.back();
	return Sample{record.cell,     record.run,
	              phase.outage,    phase.noticed.value_or(Millis(0)),
	              *phase.overhead, phase.pings.value_or(Millis(0))};
}

bool Results::complete() const
{
	return std::all_of(paths.begin(), paths.end(),
	                   [&](const Path& path)
	                   {
		                   const auto found = samples.find(path.name);
		                   return found != samples.end() && found->second.size() >= static_cast<std::size_t>(runs);
	                   });
}

} // namespace velarix::evidence::takeover
