#include "lab/campaigns/chaos/ChaosRun.h"

#include <algorithm>
#include <thread>

#include "lab/campaigns/matrix/Measure.h"
#include "lab/campaigns/matrix/Observe.h"
#include "lab/core/Owners.h"

namespace velarix::lab
{

namespace
{

/// Two faults may exclude each other: a node that is off has no program to kill,
/// and comes back with an agent.
bool attempted(const std::function<void()>& step)
{
	try
	{
		step();
		return true;
	}
	catch (const LabError&)
	{
		return false;
	}
}

std::vector<Fault> strike(Lab& lab, const ChaosStep& step)
{
	std::vector<Fault> struck;
	for (const DrawnFault& drawn : step.faults)
	{
		std::this_thread::sleep_for(drawn.pause);
		const Fault fault = resolved(lab, drawn);
		if (attempted([&] { lab.inject(fault); }))
		{
			struck.push_back(fault);
		}
	}
	return struck;
}

/// @return when the last healing began
Millis healAll(Lab& lab, const std::vector<Fault>& struck, Millis pause)
{
	std::optional<Millis> last;
	for (auto fault = struck.rbegin(); fault != struck.rend(); ++fault)
	{
		if (infoOf(fault->kind).heal != nullptr)
		{
			std::this_thread::sleep_for(last ? pause : Millis(0));
			last = lab.clock().now();
			attempted([&] { lab.heal(*fault); });
		}
	}
	return last.value_or(lab.clock().now());
}

std::string agentsOf(Lab& lab)
{
	return ownersText(lab.node(HostId::a).agent().has_value(), lab.node(HostId::b).agent().has_value());
}

std::string timelineFrom(const Timeline& timeline, Millis from)
{
	std::string text;
	for (const Event& event : timeline.events())
	{
		text += event.at >= from ? toText(event) + "\n" : std::string();
	}
	return text;
}

ChaosStepRecord runStep(Lab& lab, const ChaosStep& step, const MatrixTimes& times)
{
	ChaosStepRecord record;
	record.faults = toText(step);
	LegRecord whole;
	whole.from = lab.clock().now();
	const std::vector<Fault> struck = strike(lab, step);
	std::this_thread::sleep_for(step.stands);
	const Millis healed = healAll(lab, struck, step.betweenHealings);
	const LegRecord after = observe(lab, healed, times.quiet(), 8 * times.quiet());
	whole.to = after.to;
	measure(lab.timeline(), whole);
	for (const Fault& fault : struck)
	{
		record.struck.push_back(toName(fault));
	}
	record.recovery = after.steadyAfter;
	record.noAnswer = whole.noAnswer;
	record.twoOwners = whole.twoOwners;
	record.violations = violationsOf(after, whole.ended, agentsOf(lab));
	if (record.violations.empty())
	{
		record.violations = leftOn(lab);
	}
	record.timeline = record.violations.empty() ? "" : timelineFrom(lab.timeline(), whole.from) + errorsIn(lab);
	return record;
}

void runSteps(const ChaosOptions& options, const std::function<void(const ChaosStepRecord&)>& told)
{
	ChaosSchedule schedule(options.seed, options.lane, options.kinds);
	const LabClock clock;
	std::unique_ptr<Lab> lab;
	for (int step = 1; !options.steps || step <= *options.steps; ++step)
	{
		if (options.duration && clock.now() >= *options.duration)
		{
			break;
		}
		if (!lab)
		{
			lab = servingPair(options);
		}
		ChaosStepRecord record = runStep(*lab, schedule.next(), options.times);
		record.lane = options.lane;
		record.step = step;
		told(record);
		if (!record.violations.empty())
		{
			lab.reset();
		}
	}
}

} // namespace

std::unique_ptr<Lab> servingPair(const ChaosOptions& options)
{
	LabOptions labOptions;
	labOptions.installRoot = options.installRoot;
	labOptions.settingsA = NodeSettings::standard(HostId::a, options.times.pair);
	labOptions.settingsB = NodeSettings::standard(HostId::b, options.times.pair);
	labOptions.seed = options.seed;
	for (const FaultKind kind : options.kinds)
	{
		const FaultInfo& info = infoOf(kind);
		if (info.prepare != nullptr)
		{
			info.prepare(labOptions);
		}
	}
	auto lab = std::make_unique<Lab>(labOptions);
	lab->startAgents();
	if (!lab->waitForService(HostId::a, options.times.serveLimit()))
	{
		throw LabError("a fresh pair did not come to serve: " + lab->stateText());
	}
	return lab;
}

Fault resolved(Lab& lab, const DrawnFault& drawn)
{
	const std::optional<HostId> owner = hostNamed(lab.owners());
	const HostId master = owner && isNode(*owner) ? *owner : HostId::a;
	return {drawn.kind, drawn.onMaster ? master : otherNode(master)};
}

std::vector<std::string> violationsOf(const LegRecord& after, const std::string& ended, const std::string& agents)
{
	std::vector<std::string> found;
	const auto require = [&](bool well, const std::string& otherwise)
	{
		if (!well)
		{
			found.push_back(otherwise);
		}
	};
	require(after.steady, "the pair does not come to rest");
	require(isSingle(after.owner), "owner of the address: " + after.owner);
	require(after.answer == after.owner, "the client is answered by: " + after.answer);
	require(after.programs == after.owner, "the managed program runs on: " + after.programs);
	require(ended.empty(), "an agent has ended by itself on: " + ended);
	for (const HostId node : nodes)
	{
		require(holds(agents, node), "no agent on " + nodeText(node));
	}
	for (const std::string& disagreement : after.disagreements)
	{
		found.push_back("log and observation: " + disagreement);
	}
	return found;
}

std::string runChaosLane(const ChaosOptions& options, const std::function<void(const ChaosStepRecord&)>& told)
{
	try
	{
		runSteps(options, told);
		return "";
	}
	catch (const LabError& error)
	{
		return error.what();
	}
}

} // namespace velarix::lab
