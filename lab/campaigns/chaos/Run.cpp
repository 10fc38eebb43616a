#include "lab/campaigns/chaos/Run.h"

#include <algorithm>
#include <thread>

#include "lab/campaigns/Measure.h"
#include "lab/campaigns/Observe.h"

namespace velarix::lab::chaos
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

/// Injected by what the nodes are now. The master is the node that holds the address alone, or else node a.
Fault resolved(Lab& lab, const DrawnFault& drawn)
{
	const std::optional<HostId> owner = hostNamed(lab.owners());
	const HostId master = owner && isNode(*owner) ? *owner : HostId::a;
	return {drawn.kind, drawn.onMaster ? master : otherNode(master)};
}

std::vector<Fault> injectAll(Lab& lab, const Step& step)
{
	std::vector<Fault> injected;
	for (const DrawnFault& drawn : step.faults)
	{
		std::this_thread::sleep_for(drawn.pause);
		const Fault fault = resolved(lab, drawn);
		if (attempted([&] { lab.inject(fault); }))
		{
			injected.push_back(fault);
		}
	}
	return injected;
}

/// @return when the last repair began
Millis repairAll(Lab& lab, const std::vector<Fault>& injected, Millis pause)
{
	std::optional<Millis> last;
	for (auto fault = injected.rbegin(); fault != injected.rend(); ++fault)
	{
		if (infoOf(fault->name).repair != nullptr)
		{
			std::this_thread::sleep_for(last ? pause : Millis(0));
			last = lab.clock().now();
			attempted([&] { lab.repair(*fault); });
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

StepRecord runStep(Lab& lab, const Step& step, const CampaignTimes& times)
{
	StepRecord record;
	record.faults = toText(step);
	PhaseRecord whole;
	whole.from = lab.clock().now();
	const std::vector<Fault> injected = injectAll(lab, step);
	std::this_thread::sleep_for(step.stands);
	const Millis repaired = repairAll(lab, injected, step.betweenRepairs);
	const PhaseRecord after = observe(lab, repaired, times.quiet(), 8 * times.quiet());
	whole.to = after.to;
	measure(lab.timeline(), whole);
	for (const Fault& fault : injected)
	{
		record.injected.push_back(toName(fault));
	}
	record.recovery = after.steadyAfter;
	record.noAnswer = whole.noAnswer;
	record.splitBrain = whole.splitBrain;
	record.violations = violationsOf(after, whole.ended, agentsOf(lab));
	if (record.violations.empty())
	{
		record.violations = leftOn(lab);
	}
	record.timeline = record.violations.empty() ? "" : timelineFrom(lab.timeline(), whole.from) + errorsIn(lab);
	return record;
}

/// Made ready for the faults that are drawn.
std::unique_ptr<Lab> servingPair(const Options& options)
{
	LabOptions labOptions(options.installRoot, options.times.pair);
	labOptions.seed = options.seed;
	labOptions.prepareFor(options.kinds);
	auto lab = std::make_unique<Lab>(labOptions);
	letServe(*lab, HostId::a, options.times.serveLimit());
	return lab;
}

void runSteps(const Options& options, const std::function<void(const StepRecord&)>& report)
{
	Schedule schedule(options.seed, options.worker, options.kinds);
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
		StepRecord record = runStep(*lab, schedule.next(), options.times);
		record.worker = options.worker;
		record.step = step;
		report(record);
		if (!record.violations.empty())
		{
			lab.reset();
		}
	}
}

} // namespace

std::vector<std::string> violationsOf(const PhaseRecord& after, const std::string& ended, const std::string& agents)
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

std::string runWorker(const Options& options, const std::function<void(const StepRecord&)>& report)
{
	try
	{
		runSteps(options, report);
		return "";
	}
	catch (const LabError& error)
	{
		return error.what();
	}
}

} // namespace velarix::lab::chaos
