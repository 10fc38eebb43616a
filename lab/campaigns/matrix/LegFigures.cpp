#include "lab/campaigns/matrix/LegFigures.h"

#include <algorithm>

#include "lab/campaigns/matrix/Statistics.h"
#include "lab/tables/Table.h"

namespace velarix::lab
{

namespace
{

template <typename Value> std::vector<Value> valuesOf(const std::vector<LegRecord>& legs, Value LegRecord::*part)
{
	std::vector<Value> values;
	values.reserve(legs.size());
	for (const LegRecord& leg : legs)
	{
		values.push_back(leg.*part);
	}
	return values;
}

std::vector<Millis> presentOf(const std::vector<LegRecord>& legs, std::optional<Millis> LegRecord::*part)
{
	std::vector<Millis> values;
	for (const LegRecord& leg : legs)
	{
		if (leg.*part)
		{
			values.push_back(*(leg.*part));
		}
	}
	return values;
}

std::string figures(const std::vector<LegRecord>& legs, Millis LegRecord::*part)
{
	return toText(summaryOf(valuesOf(legs, part)));
}

} // namespace

LegFigures::LegFigures(const std::vector<RunRecord>& records, const std::string& cell, std::size_t index)
{
	for (const RunRecord& record : records)
	{
		if (record.cell == cell && record.legs.size() > index)
		{
			m_legs.push_back(record.legs[index]);
		}
	}
}

std::string LegFigures::owners() const
{
	std::vector<std::string> owners;
	owners.reserve(m_legs.size());
	for (const LegRecord& leg : m_legs)
	{
		owners.push_back(leg.steady ? leg.owner : "unsteady");
	}
	return tally(owners);
}

std::string LegFigures::answers() const
{
	return tally(valuesOf(m_legs, &LegRecord::answer));
}

std::string LegFigures::programs() const
{
	return tally(valuesOf(m_legs, &LegRecord::programs));
}

std::string LegFigures::outage() const
{
	std::vector<LegRecord> ended;
	std::copy_if(m_legs.begin(), m_legs.end(), std::back_inserter(ended),
	             [](const LegRecord& leg) { return !leg.outageOpen; });
	const std::size_t open = m_legs.size() - ended.size();
	if (open == 0)
	{
		return figures(ended, &LegRecord::outage);
	}
	return ended.empty() ? "for good" : figures(ended, &LegRecord::outage) + ", for good " + std::to_string(open);
}

std::string LegFigures::twoOwners() const
{
	return figures(m_legs, &LegRecord::twoOwners);
}

std::string LegFigures::noOwner() const
{
	return figures(m_legs, &LegRecord::noOwner);
}

std::string LegFigures::moves() const
{
	int most = 0;
	for (const LegRecord& leg : m_legs)
	{
		most = std::max(most, leg.moves);
	}
	return std::to_string(most);
}

std::string LegFigures::log() const
{
	const auto differ =
	    std::count_if(m_legs.begin(), m_legs.end(), [](const LegRecord& leg) { return !leg.disagreements.empty(); });
	return differ == 0 ? "agrees" : "differs " + std::to_string(differ);
}

std::vector<Millis> LegFigures::noticed() const
{
	return presentOf(m_legs, &LegRecord::noticed);
}

std::vector<Millis> LegFigures::overheads() const
{
	return presentOf(m_legs, &LegRecord::overhead);
}

} // namespace velarix::lab
