#include "ctl/status/Judgement.h"

#include <algorithm>
#include <utility>

#include "ctl/status/Checklist.h"

namespace velarix::ctl
{

std::string_view wordOf(Grade grade)
{
	return grade == Grade::warning ? "warning" : grade == Grade::critical ? "critical" : "unknown";
}

std::vector<std::string> Judgement::reasons() const
{
	std::vector<std::string> texts;
	for (const Problem& problem : problems)
	{
		if (failOverWorks ? problem.blocks : problem.grade == Grade::unknown)
		{
			texts.push_back(problem.text);
		}
	}
	return texts;
}

Judgement judge(const NodeState& state)
{
	Checklist list(state);
	list.agent();
	list.sources();
	list.log();
	list.flapping();
	list.start();
	list.keeper();
	list.tunnel();
	if (state.role.known())
	{
		list.workers();
		list.interfaces();
		list.partner();
		state.role.is(Role::master) ? list.master() : list.standby();
	}
	Judgement judgement;
	judgement.problems = std::move(list).problems();
	const auto is = [&](const auto& test) { return std::ranges::any_of(judgement.problems, test); };
	if (is([](const Problem& problem) { return problem.blocks; }))
	{
		judgement.failOverWorks = false;
	}
	else if (!is([](const Problem& problem) { return problem.grade == Grade::unknown; }))
	{
		judgement.failOverWorks = true;
	}
	return judgement;
}

} // namespace velarix::ctl
