/// What a run of the matrix is remembered by, and how it travels: a run has a
/// process of its own and hands its record back as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Basics.h"

namespace velarix::lab
{

/// One leg of a run: a fault stands, or has been healed.
struct LegRecord
{
	Millis from{0}; ///< just before the fault or the healing
	Millis to{0};
	Millis took{0};        ///< for the lab to inject or heal; booting a host is the longest
	bool steady = false;   ///< nothing changed any more for the quiet time
	Millis steadyAfter{0}; ///< the last change, since the beginning of the leg
	std::string owner;     ///< in the end: none, a, b, a+b
	std::string answer;    ///< who answered most of the last seconds: none, a, b, or mixed
	std::string programs;  ///< nodes on which the managed program runs: none, a, b, a+b
	Millis outage{0};      ///< longest time without an answer to the client
	Millis outageBegin{0};
	Millis outageEnd{0};
	bool outageOpen = false; ///< it had not ended when the leg did
	Millis noAnswer{0};      ///< all the time without an answer
	Millis twoOwners{0};
	Millis noOwner{0};
	int moves = 0;                          ///< of the address from one node to the other
	std::string ended;                      ///< nodes whose agent ended by itself: "", a, b, a+b
	std::vector<std::string> disagreements; ///< between the logs and what was observed
	std::optional<Millis> overhead;         ///< outage beyond the prescribed waits; empty: another path, or no outage
};

struct RunRecord
{
	std::string cell;
	int run = 0;
	std::uint64_t seed = 0;
	std::vector<LegRecord> legs;
	std::vector<std::string> left;        ///< what was left on the nodes in the end
	std::vector<std::string> differences; ///< from what was expected; empty: all as expected
	std::string timeline;                 ///< as text, when there are differences
};

std::string toJson(const RunRecord& record);
/// @throws LabError when the text is no record
RunRecord recordFrom(const std::string& json);

} // namespace velarix::lab
