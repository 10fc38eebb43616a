/// The faults a lab can inject, one row of a table each.
///
/// A new fault is a row of the table it belongs to (HostFaults.cpp, ServiceFaults.cpp,
/// NetworkFaults.cpp) with its actions, and the cells of lab/tables/faults.toml that tell
/// what comes of it. Scenarios, command line and pictures take it up by themselves.
///
/// A fault that has no place at present is refused: what it needs is looked at
/// before anything is done, so an inject that throws has changed nothing.
#pragma once

#include <string>
#include <vector>

#include "lab/core/Basics.h"

namespace velarix::lab
{

class Lab;
struct LabOptions;

struct Fault
{
	std::string name;        ///< see FaultInfo
	HostId node = HostId::a; ///< not used by faults that are not on a node
};

struct FaultInfo
{
	using Step = void (*)(Lab& lab, HostId node);

	const char* name;     ///< on the command line
	bool onNode;          ///< it is injected into one node
	const char* what;     ///< in the timeline, when it is injected
	const char* repaired; ///< in the timeline, when it is repaired; null when it repairs by itself
	Step inject;
	Step repair; ///< null when it repairs by itself
	/// Throws LabError when the fault has no place at present, and changes nothing;
	/// null: it always has, or its only step is one that happens or does not.
	Step require = nullptr;
	/// What the lab has to be made with; null: nothing.
	void (*prepare)(LabOptions& options) = nullptr;
};

/// All faults.
const std::vector<FaultInfo>& allFaults();

/// @throws LabError when there is no fault of that name
const FaultInfo& infoOf(const std::string& name);

/// Reads "NAME:NODE", or "NAME" for a fault that is not on a node.
/// @throws LabError in words for the person who wrote it
Fault faultFrom(const std::string& text);

/// The reverse.
std::string toName(const Fault& fault);

} // namespace velarix::lab
