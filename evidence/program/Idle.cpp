#include "evidence/program/Idle.h"

#include <algorithm>
#include <iostream>

#include "evidence/idle/Run.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/Machine.h"
#include "lab/campaigns/Workers.h"
#include "lab/core/Lab.h"

namespace velarix::evidence
{

namespace
{

constexpr Millis toRest{200000};

std::vector<idle::Plan> plansFor(const IdleOptions& options)
{
	std::vector<idle::Plan> plans;
	for (const std::string& guard : options.guards.empty() ? idle::allGuards() : options.guards)
	{
		idle::requireGuard(guard);
		idle::Plan plan;
		plan.guard = guard;
		plan.length = std::chrono::seconds(options.seconds);
		plan.windows = options.windows;
		plan.settle = std::min(plan.settle, plan.length);
		plan.times = options.times;
		plan.installRoot = options.installRoot;
		plans.push_back(plan);
	}
	return plans;
}

void measureAll(const std::vector<idle::Plan>& plans, idle::Results& results)
{
	std::vector<std::vector<idle::Figures>> found(plans.size());
	runInWorkers(
	    plans.size(), static_cast<int>(plans.size()), plans.front().length * plans.front().windows + toRest,
	    [&](std::size_t index) { return jsonText(idle::measureIdle(plans[index])); },
	    [&](const WorkerResult& result)
	    {
		    const std::string& guard = plans[result.index].guard;
		    std::cerr << guard << ": " << (result.problem.empty() ? "measured" : result.problem) << '\n';
		    if (result.problem.empty())
		    {
			    found[result.index] = recordIn<std::vector<idle::Figures>>(result.text);
		    }
		    else
		    {
			    results.problems.push_back(guard + ": " + result.problem);
		    }
	    });
	for (const std::vector<idle::Figures>& both : found)
	{
		results.nodes.insert(results.nodes.end(), both.begin(), both.end());
	}
}

void measureEachAlone(const std::vector<idle::Plan>& plans, idle::Results& results)
{
	// Both nodes of a guard, one guard after the other.
	const auto nodeOf = [](std::size_t index) { return index % 2 == 0 ? HostId::a : HostId::b; };
	runInWorkers(
	    plans.size() * 2, 1, toRest,
	    [&](std::size_t index) { return jsonText(idle::measureAlone(plans[index / 2], nodeOf(index))); },
	    [&](const WorkerResult& result)
	    {
		    const std::string& guard = plans[result.index / 2].guard;
		    const std::string name = nameOf(nodeOf(result.index));
		    std::cerr << guard << " alone, node " << name << ": "
		              << (result.problem.empty() ? "measured" : result.problem) << '\n';
		    if (!result.problem.empty())
		    {
			    results.problems.push_back(guard + " alone, node " + name + ": " + result.problem);
			    return;
		    }
		    for (idle::Figures& node : results.nodes)
		    {
			    if (node.guard == guard && node.node == name)
			    {
				    node.memoryAlone = recordIn<idle::MemoryFigures>(result.text);
			    }
		    }
	    });
}

} // namespace

int runIdle(const IdleOptions& options)
{
	const std::vector<idle::Plan> plans = plansFor(options);
	requireLab(options.installRoot);
	idle::Results results;
	results.machine = machineText();
	measureAll(plans, results);
	measureEachAlone(plans, results);
	deliver(options, toText(results), jsonOf(results));
	return results.problems.empty() ? 0 : 1;
}

} // namespace velarix::evidence
