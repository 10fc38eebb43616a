/// The table of what has to happen, read from TOML: one row for each cell of the
/// matrix, and one for each path along which the service comes back. lab/tables/faults.toml
/// explains the keys where they are used.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/core/Basics.h"
#include "lab/core/Fault.h"
#include "lab/core/NodeSettings.h"

namespace velarix::lab
{

/// How the service comes back, and what the agent waits for on the way.
struct Path
{
	std::string name;
	std::string before;     ///< sum of the longest waits until the decision
	std::string after;      ///< sum of the waits from the decision on
	bool wholePass = false; ///< the decision begins with the pass that holds the anchor
	std::string anchor;     ///< action in a node's log; empty: none is waited for

	/// The longest outage that the fixed waits explain.
	Millis bound(const PairSettings& times) const;
};

/// What an outcome has in place of a path when the service is not out at all, or when
/// nothing bounds the outage.
inline constexpr const char* noOutagePath = "none";
inline constexpr const char* unboundedPath = "unbounded";

/// Where a phase of a cell has to end, and at what cost.
struct Outcome
{
	std::string owner;        ///< a, b, a+b, none, one (a or b), unsteady, any
	std::string answer;       ///< a, b, none, owner (the one that holds the address), served (a, b or both), any
	std::string programs;     ///< a, b, a+b, none, owner, not-both, any
	std::optional<int> moves; ///< at most; empty: any number
	std::optional<std::string> twice; ///< bound of double ownership, a sum of waits; empty: for good
	std::string path;                 ///< name of a path, noOutagePath or unboundedPath
	std::string ended;                ///< nodes whose agent ends by itself: "", a, b, a+b
	bool logDiffers = false;          ///< the logs do not tell who holds the address
	std::optional<std::string> since; ///< the owner does not change before, a sum of waits; empty: at any time
	std::optional<std::string> lasts; ///< how long the phase is watched, a sum of waits; empty: until it rests

	bool hasOutage() const { return path != noOutagePath; }
	bool isBounded() const { return path != unboundedPath; }
};

struct Cell
{
	std::string name;
	HostId master = HostId::a; ///< node that serves when the fault comes
	std::vector<Fault> inject;
	Outcome stands;            ///< while the fault stands
	std::vector<Fault> repair; ///< empty: the cell ends with the first phase
	Outcome repaired;
	std::string note;
};

struct Expectations
{
	std::map<std::string, Path> paths;
	std::vector<Cell> cells; ///< of one profile
	/// Faults after which, once repaired, the pair has to be well again by itself.
	std::vector<std::string> forChaos;
	/// Names of the cells that stand for the whole where time is short.
	std::vector<std::string> shortForm;
};

/// @throws LabError with the number of the line and what is wrong there
Expectations parseExpectations(const std::string& text, Profile profile = Profile::plain);

/// @param path  empty: the table of this build
/// @throws LabError also when the file cannot be read
Expectations readExpectations(const std::string& path, Profile profile = Profile::plain);

/// The bound of an outcome's outage. Empty: there is none.
/// @param blink  what counts as no outage
std::optional<Millis> outageBound(const Outcome& outcome, const std::map<std::string, Path>& paths,
                                  const PairSettings& times, Millis blink, Millis slack);

} // namespace velarix::lab
