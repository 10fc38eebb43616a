/// The same leg of many runs, as the cells of a report's table.
#pragma once

#include <string>
#include <vector>

#include "lab/campaigns/matrix/Record.h"

namespace velarix::lab
{

class LegFigures
{
public:
	/// @param index  of the leg: 0 while the fault stands, 1 once it is healed
	LegFigures(const std::vector<RunRecord>& records, const std::string& cell, std::size_t index);

	std::string owners() const;   ///< in the end; "unsteady" where it did not come to rest
	std::string answers() const;  ///< who answered in the end
	std::string programs() const; ///< where the managed program ran in the end
	/// Median / p95 / max in seconds; "for good" when it never ended, and how often.
	std::string outage() const;
	std::string twoOwners() const; ///< as outage
	std::string noOwner() const;   ///< as outage
	std::string moves() const;     ///< the most of a run
	std::string log() const;       ///< "agrees", or in how many runs it differs
	std::vector<Millis> noticed() const;
	std::vector<Millis> overheads() const;

private:
	std::vector<LegRecord> m_legs;
};

} // namespace velarix::lab
