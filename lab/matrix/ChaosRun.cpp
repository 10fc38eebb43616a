#include "ChaosRun.h"

#include <algorithm>
#include <memory>
#include <thread>

#include "Lab.h"
#include "Measure.h"
#include "Observe.h"

namespace velarix::lab
{

namespace
{

constexpr Millis serveLimit{90000};
constexpr Millis recoveryLimit{120000};

std::unique_ptr<Lab> freshPair(const ChaosOptions& options)
{
	LabOptions labOptions;
	labOptions.installRoot = options.installRoot;
	labOptions.settingsA = NodeSettings::standard(HostId::a, options.times.pair);
	labOptions.settingsB = NodeSettings::standard(HostId::b, options.times.pair);
	labOptions.seed = options.seed;
	for (const FaultKind kind : options.kinds)
	{
		const FaultInfo& info = infoOf(kind);
		info.prepare != nullptr ? info.prepare(labOptions) : void();
	}
	auto lab = std::make_unique<Lab>(labOptions);
	lab->startAgents();
	if (!lab->waitForService(HostId::a, serveLimit))
	{
		throw LabError("a fresh pair did not come to serve: " + lab->stateText());
	}
	return lab;
}

/// The master is the node that holds the address alone, or else node a.
Fault resolved(Lab& lab, const DrawnFault& drawn)
{
	const std::optional<HostId> owner = hostNamed(lab.owners());
	const HostId master = owner && isNode(*owner) ? *owner : HostId::a;
	return {drawn.kind, drawn.onMaster ? master : otherNode(master)};
}

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

void healAll(Lab& lab, const std::vector<Fault>& struck, Millis pause)
{
	for (auto fault = struck.rbegin(); fault != struck.rend(); ++fault)
	{
		if (infoOf(fault->kind).heal != nullptr)
		{
			attempted([&] { lab.heal(*fault); });
			std::this_thread::sleep_for(pause);
		}
	}
}

std::vector<std::string> violationsOf(Lab& lab, const LegRecord& after, const LegRecord& whole)
{
	std::vector<std::string> found;
	const bool single = after.owner == "a" || after.owner == "b";
	const auto check = [&](bool well, const std::string& text) { well ? void() : found.push_back(text); };
	check(after.steady, "the pair does not come to rest");
	check(single, "owner of the address: " + after.owner);
	check(after.answer == after.owner, "the client is answered by: " + after.answer);
	check(after.programs == after.owner, "the managed program runs on: " + after.programs);
	check(whole.ended.empty(), "an agent has ended by itself on: " + whole.ended);
	for (const HostId node : nodes)
	{
		check(lab.node(node).agent().has_value(), std::string("no agent on node ") + nameOf(node));
	}
	for (const std::string& disagreement : after.disagreements)
	{
		found.push_back("log and observation: " + disagreement);
	}
	if (found.empty())
	{
		found = leftOn(lab);
	}
	return found;
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
	healAll(lab, struck, step.betweenHealings);
	const LegRecord after = observe(lab, lab.clock().now(), times.quiet(), recoveryLimit);
	whole.to = after.to;
	measure(lab.timeline(), whole);
	for (const Fault& fault : struck)
	{
		record.struck.push_back(toName(fault));
	}
	record.recovery = after.steadyAfter;
	record.noAnswer = whole.noAnswer;
	record.twoOwners = whole.twoOwners;
	record.violations = violationsOf(lab, after, whole);
	record.timeline = record.violations.empty() ? "" : timelineFrom(lab.timeline(), whole.from) + errorsIn(lab);
	return record;
}

} // namespace

std::vector<ChaosStepRecord> runChaosLane(const ChaosOptions& options,
                                          const std::function<void(const ChaosStepRecord&)>& told)
{
	ChaosSchedule schedule(options.seed, options.lane, options.kinds);
	std::vector<ChaosStepRecord> records;
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
			lab = freshPair(options);
		}
		ChaosStepRecord record = runStep(*lab, schedule.next(), options.times);
		record.lane = options.lane;
		record.step = step;
		told(record);
		if (!record.violations.empty())
		{
			lab.reset();
		}
		records.push_back(std::move(record));
	}
	return records;
}

} // namespace velarix::lab
