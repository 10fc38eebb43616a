#include "lab/campaigns/chaos/Schedule.h"

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

} // namespace velarix::lab::chaos
