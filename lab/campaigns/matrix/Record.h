/// What a run of the matrix is remembered by, and how it travels: a run has a
/// process of its own and hands its record back as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"

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
	Millis twoOwnersLongest{0}; ///< longest stretch of it
	Millis noOwner{0};
	std::optional<Millis> firstChange; ///< of the owner, since the beginning; empty: it did not change
	int moves = 0;     ///< of the address from one node to the other, the last owner before the leg included
	std::string ended; ///< nodes whose agent ended by itself: "", a, b, a+b
	std::vector<std::string> disagreements; ///< between the logs and what was observed
	std::optional<Millis> noticed;          ///< from the beginning of the outage to the decision; empty: as overhead
	std::optional<Millis> overhead;         ///< outage beyond the prescribed waits; empty: another path, or no outage
	std::optional<Millis> pings; ///< part of the overhead: silent probes beyond a second each; empty: as overhead
	std::vector<std::string> differences; ///< from what was expected of the leg; empty: all as expected
};

struct RunRecord
{
	std::string cell;
	int run = 0;
	std::uint64_t seed = 0;
	std::vector<LegRecord> legs;
	std::vector<std::string> left;        ///< what was left on the nodes in the end
	std::vector<std::string> differences; ///< of the run as a whole, beside those of its legs
	std::string timeline;                 ///< as text; of the matrix only when something differs

	/// @return true when neither a leg nor the whole differs
	bool asExpected() const;
};

/// @return one line for each difference; "fault: " and "healed: " tell the leg
std::vector<std::string> differencesOf(const RunRecord& record);

/// An object with the members of RunRecord; times in milliseconds have names that
/// end in "Ms", "overheadMs" is null where there is none.
std::string toJson(const RunRecord& record);
/// @throws LabError when the text is no record
RunRecord recordFrom(const std::string& json);

} // namespace velarix::lab
