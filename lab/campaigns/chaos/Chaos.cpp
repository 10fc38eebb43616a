#include "lab/campaigns/chaos/Chaos.h"

#include <algorithm>
#include <sstream>
#include <thread>

#include "lab/campaigns/Measure.h"

namespace velarix::lab::chaos
{

namespace
{

/// Long enough for every path of a take-over to be caught in its midst.
constexpr Millis longestStand{24000};
constexpr Millis shortestStand{500};
constexpr Millis longestPause{4000};
constexpr std::uint64_t twoFaultsPercent = 35;

/// Two seeds that differ by one bit give schedules that have nothing in common.
std::uint64_t mixed(std::uint64_t value)
{
	value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9U;
	value = (value ^ (value >> 27U)) * 0x94d049bb133111ebU;
	return value ^ (value >> 31U);
}

} // namespace

Schedule::Schedule(std::uint64_t seed, int worker, std::vector<std::string> kinds)
    : m_state(mixed(mixed(seed) + static_cast<std::uint64_t>(worker))), m_kinds(std::move(kinds))
{
	if (m_kinds.empty())
	{
		throw LabError("there are no faults to draw from");
	}
}

std::uint64_t Schedule::draw(std::uint64_t below)
{
	m_state += 0x9e3779b97f4a7c15U;
	return mixed(m_state) % below;
}

Millis Schedule::drawTime(Millis longest)
{
	return Millis(static_cast<Millis::rep>(draw(static_cast<std::uint64_t>(longest.count()) + 1)));
}

DrawnFault Schedule::drawFault(Millis longest)
{
	DrawnFault fault;
	fault.kind = m_kinds[draw(m_kinds.size())];
	fault.onMaster = draw(2) == 0;
	fault.pause = drawTime(longest);
	return fault;
}

Step Schedule::next()
{
	Step step;
	step.faults.push_back(drawFault(longestPause));
	if (draw(100) < twoFaultsPercent)
	{
		step.faults.push_back(drawFault(longestStand));
	}
	step.stands = shortestStand + drawTime(longestStand);
	step.betweenRepairs = drawTime(longestPause);
	return step;
}

std::string toText(const Step& step)
{
	std::string text;
	for (const DrawnFault& fault : step.faults)
	{
		const FaultInfo& info = infoOf(fault.kind);
		text += (text.empty() ? "" : ", ") + std::string(info.name);
		text += info.onNode ? (fault.onMaster ? " of the master" : " of the other one") : "";
	}
	return text;
}

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

/// How often a keeper announces the address that it holds (keeper/AddressMachine.h).
constexpr Millis announcement{60000};

/// Until nothing changes any more. Where the nodes did not receive each other on the service network, a client
/// may still ask the one that gave the address up just before the repair: it has until the holder's announcement.
/// A client that a loaded machine lets wait now and then is looked at again.
PhaseRecord observeRecovery(Lab& lab, const std::vector<Fault>& injected, Millis repaired, const CampaignTimes& times)
{
	const Millis limit = 8 * times.quiet();
	const bool split = std::ranges::any_of(injected, [](const Fault& fault)
	                                       { return fault.name == "both-cut" || fault.name == "service-cut"; });
	const Millis announced = split && times.pair.profile == Profile::keeper ? announcement : Millis(0);
	PhaseRecord after = observe(lab, repaired, times.quiet(), limit);
	while (after.steady && after.answer != after.owner && (after.answer == "mixed" || announced != Millis(0)) &&
	       after.to < repaired + limit + announced)
	{
		std::this_thread::sleep_for(Millis(1000));
		after = observe(lab, repaired, times.quiet(), limit + announced);
	}
	return after;
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
	const PhaseRecord after = observeRecovery(lab, injected, repaired, times);
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
	std::ranges::for_each(options.kinds, [&](const std::string& kind) { labOptions.prepareFor(kind); });
	auto lab = std::make_unique<Lab>(labOptions);
	letServe(*lab, HostId::a, options.times.serveLimit());
	return lab;
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

void runWorker(const Options& options, const std::function<void(const StepRecord&)>& report)
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

namespace
{

std::string replayCommand(const Results& results, int worker, int step)
{
	const PairSettings& times = results.times;
	std::ostringstream text;
	text << "velarix-lab chaos --settings " << nameOf(times.profile) << " --seed " << results.seed << " --worker "
	     << worker << " --steps " << step << " --interval " << times.interval << " --receiving-time "
	     << times.receivingTime << " --waiting-time " << times.waitingTime;
	return text.str();
}

} // namespace

bool Results::good() const
{
	return !records.empty() && problems.empty() &&
	       std::all_of(records.begin(), records.end(),
	                   [](const StepRecord& record) { return record.violations.empty(); });
}

std::string toText(const Results& results)
{
	std::ostringstream text;
	std::size_t faults = 0;
	std::size_t without = 0;
	for (const StepRecord& record : results.records)
	{
		faults += record.injected.size();
		without += record.injected.empty() ? 1U : 0U;
	}
	text << results.records.size() << " steps of faults and repairs, " << faults << " faults, seed " << results.seed
	     << "\nin " << without << " of the steps no fault found a place (a standby runs no program to kill)\n\n";
	for (const StepRecord& record : results.records)
	{
		for (const std::string& violation : record.violations)
		{
			text << "worker " << record.worker << ", step " << record.step << " (" << record.faults
			     << "): " << violation << '\n';
		}
		if (!record.violations.empty())
		{
			text << "  again: " << replayCommand(results, record.worker, record.step) << '\n';
		}
	}
	for (const Problem& problem : results.problems)
	{
		text << "worker " << problem.worker << " did not get to its end, step " << problem.step << ": "
		     << problem.problem << "\n  again: " << replayCommand(results, problem.worker, problem.step) << '\n';
	}
	text << (results.good() ? "the invariants held after every step\n" : "the invariants did NOT hold\n");
	return text.str();
}

nlohmann::json jsonOf(const Results& results)
{
	return {{"campaign", "chaos"},    {"seed", results.seed},         {"times", results.times},
	        {"good", results.good()}, {"problems", results.problems}, {"steps", results.records}};
}

} // namespace velarix::lab::chaos
