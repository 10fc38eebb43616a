#include "lab/demo/Phase.h"

#include <algorithm>

#include "lab/core/TextTable.h"

namespace velarix::lab::demo
{

namespace
{

void measure(Lab& lab, PhaseResult& result)
{
	const std::vector<Interval> service = lab.timeline().intervals(serviceTrack, result.to);
	const std::vector<Interval> address = lab.timeline().intervals(addressTrack, result.to);
	result.outage = longestWith(service, {"none"}, result.from, result.to);
	result.splitBrain = timeWith(address, {"a+b"}, result.from, result.to);
}

std::string verdictOf(const PhaseResult& result)
{
	return result.asExpected ? "as expected" : "NOT AS EXPECTED";
}

} // namespace

PhaseResult runPhase(Lab& lab, const Phase& phase, const WaitObserver& observer)
{
	PhaseResult result;
	result.title = phase.title;
	result.expected = nameOf(phase.ownerAfter);
	result.ownersBefore = lab.owners();
	result.from = lab.clock().now();
	lab.timeline().add({result.from, EventKind::phase, std::nullopt, phase.title});
	phase.happens(lab);
	const HostId other = otherNode(phase.ownerAfter);
	const std::string what = nodeText(other) + " to be " + (phase.otherAfter == "slave" ? "standby" : phase.otherAfter);
	const Wait role{what, phase.limit, [&] { return lab.stateText(); }, observer};
	const auto hasRole = [&] { return phase.otherAfter.empty() || lab.role(other) == phase.otherAfter; };
	// A master that does not find its programs in its first look is standby again for some seconds.
	const Millis end = result.from + phase.limit;
	bool reached = true;
	do
	{
		reached = role.until(hasRole) && lab.waitForService(phase.ownerAfter, phase.limit, Millis(3000), observer);
	} while (reached && !hasRole() && lab.clock().now() < end);
	result.to = lab.clock().now();
	result.ownersAfter = lab.owners();
	result.answeredAfter = lab.answeredBy();
	measure(lab, result);
	result.asExpected = reached && hasRole() && result.ownersAfter == result.expected &&
	                    (isSingle(result.ownersBefore) || !phase.ownerBefore);
	return result;
}

std::string toTable(const std::vector<PhaseResult>& results)
{
	std::vector<Row> rows;
	for (const PhaseResult& result : results)
	{
		rows.push_back({std::to_string(rows.size() + 1), result.title, result.expected, result.ownersBefore,
		                result.ownersAfter, result.answeredAfter, secondsText(result.outage),
		                secondsText(result.splitBrain), verdictOf(result)});
	}
	return aligned(
	    {"", "phase", "expected", "owner before", "owner after", "answers", "outage", "split-brain", "verdict"}, rows);
}

bool allAsExpected(const std::vector<PhaseResult>& results)
{
	return !results.empty() &&
	       std::all_of(results.begin(), results.end(), [](const PhaseResult& result) { return result.asExpected; });
}

} // namespace velarix::lab::demo
