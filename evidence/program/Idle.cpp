#include "evidence/program/Idle.h"

#include <algorithm>
#include <iostream>

#include "evidence/idle/IdleRun.h"
#include "lab/campaigns/Campaign.h"
#include "lab/campaigns/matrix/Children.h"
#include "lab/campaigns/matrix/Machine.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

namespace
{

constexpr Millis toRest{200000};

std::vector<IdlePlan> plansFor(const IdleOptions& options)
{
	std::vector<IdlePlan> plans;
	for (const std::string& guard : options.guards.empty() ? idleGuards() : options.guards)
	{
		requireGuard(guard);
		IdlePlan plan;
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

void measureAll(const std::vector<IdlePlan>& plans, IdleResults& results)
{
	std::vector<std::vector<IdleFigures>> found(plans.size());
	runInChildren(
	    plans.size(), static_cast<int>(plans.size()), plans.front().length * plans.front().windows + toRest,
	    [&](std::size_t index) { return toJson(measureIdle(plans[index])); },
	    [&](const ChildResult& result)
	    {
		    const std::string& guard = plans[result.index].guard;
		    std::cerr << guard << ": " << (result.problem.empty() ? "measured" : result.problem) << '\n';
		    if (result.problem.empty())
		    {
			    found[result.index] = idleFiguresFrom(result.text);
		    }
		    else
		    {
			    results.problems.push_back(guard + ": " + result.problem);
		    }
	    });
	for (const std::vector<IdleFigures>& both : found)
	{
		results.nodes.insert(results.nodes.end(), both.begin(), both.end());
	}
}

/// Handed over as the one figure of a node that is otherwise empty.
void measureEachAlone(const std::vector<IdlePlan>& plans, IdleResults& results)
{
	// Both nodes of a guard, one guard after the other.
	const auto nodeOf = [](std::size_t index) { return index % 2 == 0 ? HostId::a : HostId::b; };
	runInChildren(
	    plans.size() * 2, 1, toRest,
	    [&](std::size_t index)
	    {
		    IdleFigures alone;
		    alone.memory = measureAlone(plans[index / 2], nodeOf(index));
		    return toJson(std::vector<IdleFigures>{alone});
	    },
	    [&](const ChildResult& result)
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
		    for (IdleFigures& node : results.nodes)
		    {
			    if (node.guard == guard && node.node == name)
			    {
				    node.memoryAlone = idleFiguresFrom(result.text).front().memory;
			    }
		    }
	    });
}

} // namespace

int runIdle(const IdleOptions& options)
{
	const std::vector<IdlePlan> plans = plansFor(options);
	requireLab(options.installRoot);
	IdleResults results;
	results.machine = machineText();
	measureAll(plans, results);
	measureEachAlone(plans, results);
	keepRecords(toJson(results), options.records);
	deliver(options.form == "json" ? toJson(results) : toText(results), options.output);
	return results.problems.empty() ? 0 : 1;
}

} // namespace velarix::lab
