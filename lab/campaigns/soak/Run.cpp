#include "lab/campaigns/soak/Run.h"

#include <algorithm>
#include <array>
#include <memory>
#include <thread>

#include "lab/campaigns/Measure.h"
#include "lab/campaigns/Observe.h"
#include "lab/campaigns/chaos/Run.h"
#include "lab/campaigns/soak/AgentSampler.h"
#include "lab/core/Owners.h"

namespace velarix::lab::soak
{

namespace
{

constexpr Millis tick{100};

constexpr std::array endAgents{FaultKind::powerOff,        FaultKind::reboot,    FaultKind::agentKilled,
                               FaultKind::agentTerminated, FaultKind::coldStart, FaultKind::coldStartAlone};

chaos::Options pairOf(const Options& options)
{
	chaos::Options pair;
	pair.installRoot = options.installRoot;
	pair.times = options.times;
	pair.kinds = options.kinds;
	pair.seed = options.seed;
	return pair;
}

/// One soak. Faults and samples come from one thread, in turns, so that no sample
/// meets a node that is just switched off.
class Soak
{
public:
	Soak(const Options& options, const std::function<void(const std::string&)>& report)
	    : m_options(options), m_report(report), m_schedule(options.seed, 0, options.kinds),
	      m_settle(options.settle > Millis(0) ? options.settle : options.times.quiet()),
	      m_lab(chaos::servingPair(pairOf(options))), m_sampler(*m_lab)
	{
	}

	Results run();

private:
	const Options& m_options;
	const std::function<void(const std::string&)>& m_report;
	chaos::Schedule m_schedule;
	Millis m_settle;
	std::unique_ptr<Lab> m_lab;
	AgentSampler m_sampler;
	Results m_results{};

	// The step that is under way.
	bool m_stepRuns = false;
	chaos::Step m_step{};
	std::size_t m_injected = 0;
	std::vector<Fault> m_standing{};
	Millis m_nextAct{0};
	std::optional<Millis> m_lastFault{};
	std::size_t m_seriesReported = 0;

	bool atRest(Millis now) const { return !m_stepRuns && (!m_lastFault || now - *m_lastFault >= m_settle); }
	void begin(Millis now);
	void advance(Millis now);
	bool act(const Fault& fault, bool repair);
	void reportSeries();
	void finish(Millis from);
};

Results Soak::run()
{
	const Millis from = m_lab->clock().now();
	Millis nextStep = from + m_options.period;
	Millis nextSample = from;
	Millis nextLook = from;
	for (Millis now = from; now - from < m_options.duration; now = m_lab->clock().now())
	{
		if (now >= nextSample)
		{
			m_sampler.sample(atRest(now));
			nextSample = now + m_options.betweenSamples;
			nextLook = now + m_options.betweenLooks;
		}
		else if (now >= nextLook)
		{
			m_sampler.look(atRest(now));
			nextLook = now + m_options.betweenLooks;
		}
		reportSeries();
		if (!m_stepRuns && now >= nextStep)
		{
			begin(now);
			nextStep += m_options.period;
		}
		advance(now);
		std::this_thread::sleep_for(tick);
	}
	finish(from);
	return std::move(m_results);
}

void Soak::begin(Millis now)
{
	m_step = m_schedule.next();
	m_injected = 0;
	m_standing.clear();
	m_nextAct = now + m_step.faults.front().pause;
	m_stepRuns = true;
}

/// Does what is due of the step: injects one fault after the other, lets them
/// stand, repairs the last one first.
void Soak::advance(Millis now)
{
	if (!m_stepRuns || now < m_nextAct)
	{
		return;
	}
	if (m_injected < m_step.faults.size())
	{
		const Fault fault = chaos::resolved(*m_lab, m_step.faults[m_injected]);
		if (act(fault, false) && infoOf(fault.kind).repair != nullptr)
		{
			m_standing.push_back(fault);
		}
		++m_injected;
		m_nextAct = now + (m_injected < m_step.faults.size() ? m_step.faults[m_injected].pause : m_step.stands);
		return;
	}
	if (!m_standing.empty())
	{
		act(m_standing.back(), true);
		m_standing.pop_back();
		m_nextAct = now + m_step.betweenRepairs;
	}
	if (m_standing.empty())
	{
		m_stepRuns = false;
		m_lastFault = m_lab->clock().now();
	}
}

/// Two faults may exclude each other: one that has no place is left out.
bool Soak::act(const Fault& fault, bool repair)
{
	const std::string what = (repair ? "repair " : "inject ") + toText(fault);
	try
	{
		repair ? m_lab->repair(fault) : m_lab->inject(fault);
	}
	catch (const LabError& error)
	{
		m_report(what + ": has no place: " + error.what());
		return false;
	}
	m_results.faults.push_back({m_lab->clock().now(), fault, repair});
	m_report(what);
	return true;
}

void Soak::reportSeries()
{
	for (const std::size_t count = m_sampler.series().size(); m_seriesReported < count; ++m_seriesReported)
	{
		const Series& series = m_sampler.series()[m_seriesReported];
		m_report(nodeText(series.node) + ": a series begins, agent " + std::to_string(series.pid));
	}
}

/// Heals what stands, and looks whether the pair is well.
void Soak::finish(Millis from)
{
	for (; !m_standing.empty(); m_standing.pop_back())
	{
		act(m_standing.back(), true);
	}
	const Millis repaired = m_lab->clock().now();
	const PhaseRecord after = observe(*m_lab, repaired, m_options.times.quiet(), 8 * m_options.times.quiet());
	PhaseRecord whole;
	whole.from = from;
	whole.to = after.to;
	measure(m_lab->timeline(), whole);
	const std::string agents =
	    ownersText(m_lab->node(HostId::a).agent().has_value(), m_lab->node(HostId::b).agent().has_value());
	m_results.problems = chaos::violationsOf(after, whole.ended, agents);
	const std::vector<std::string> left = leftOn(*m_lab);
	m_results.problems.insert(m_results.problems.end(), left.begin(), left.end());
	m_results.seed = m_options.seed;
	m_results.duration = m_options.duration;
	m_results.period = m_options.period;
	m_results.times = m_options.times.pair;
	m_results.bounds = m_options.bounds;
	m_results.series = m_sampler.series();
}

} // namespace

std::vector<FaultKind> kindsFor(const std::vector<FaultKind>& forChaos, bool restarts)
{
	std::vector<FaultKind> kinds = forChaos;
	if (!restarts)
	{
		std::erase_if(kinds, [](FaultKind kind)
		              { return std::find(endAgents.begin(), endAgents.end(), kind) != endAgents.end(); });
	}
	return kinds;
}

Results runSoak(const Options& options, const std::function<void(const std::string&)>& report)
{
	if (options.duration < options.bounds.warmUp + static_cast<int>(options.bounds.settled) * options.betweenSamples)
	{
		throw LabError("a soak of " + secondsText(options.duration) + " is too short for a warm-up of " +
		               secondsText(options.bounds.warmUp));
	}
	report(toText(options.bounds));
	return Soak(options, report).run();
}

int fewestFaults(const Results& results)
{
	return std::max(1, static_cast<int>(results.duration / results.period / 2));
}

std::vector<std::string> crossingsOf(const Results& results)
{
	std::vector<std::string> found = results.problems;
	const auto injected = std::count_if(results.faults.begin(), results.faults.end(),
	                                    [](const FaultRecord& fault) { return !fault.repair; });
	if (injected < fewestFaults(results))
	{
		found.push_back("only " + std::to_string(injected) + " faults were injected, expected are at least " +
		                std::to_string(fewestFaults(results)));
	}
	for (const HostId node : nodes)
	{
		const bool judged =
		    std::any_of(results.series.begin(), results.series.end(),
		                [&](const Series& series) { return series.node == node && isJudged(series, results.bounds); });
		if (!judged)
		{
			found.push_back(nodeText(node) + ": no series is long enough to be judged");
		}
	}
	for (const Series& series : results.series)
	{
		for (const std::string& crossing : crossingsOf(series, results.bounds))
		{
			found.push_back(nodeText(series.node) + ", agent " + std::to_string(series.pid) + ": " + crossing);
		}
	}
	return found;
}

} // namespace velarix::lab::soak
