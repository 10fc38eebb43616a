/// The faults a lab can inject, one row of a table each.
///
/// A new fault is an enumerator, a row of the table in Fault.cpp, the actions that
/// the row names (FaultActions.h; they work on the public operations of Lab, Node
/// and Wiring), and the cells of lab/expectations that tell what comes of it.
/// Scenarios, command line and pictures take it up by themselves.
///
/// A fault that has no place at present is refused: what it needs is looked at
/// before anything is done, so an inject that throws has changed nothing.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lab/core/Basics.h"

namespace velarix::lab
{

class Lab;
struct LabOptions;

enum class FaultKind
{
	powerOff,
	reboot,
	agentKilled,
	agentFrozen,
	programKilled,
	serviceInterfacePulled,
	communicationInterfacePulled,
	communicationCut,
	gatewayGone,
	agentTerminated,
	programCrashes,
	programCrashesEverywhere,
	programZombie,
	gatewayGoneForOne,
	addressRemoved,
	startHangs,
	startFails,
	startPrints,
	stopFails,
	killFails,
	runInfoMissing,
	runInfoReadOnly,
	diskFull,
	clockAhead,
	clockBehind,
	coldStart,
	coldStartAlone,
	heartbeatGarbage,
	heartbeatReplay,
	askReplay,
	serviceLoss10,
	serviceLoss30,
	serviceLoss50,
	serviceDelay,
	communicationLoss10,
	communicationLoss30,
	communicationLoss50,
	communicationDelay,
	communicationDeaf,
	communicationMute,
	hostFrozen,
	programHangs,
	serviceCut,
	bothCut,
	rogueAddress,
	addressKeeperKilled,
	serviceKeeperKilled,
	markerMissing
};

struct Fault
{
	FaultKind kind = FaultKind::powerOff;
	HostId node = HostId::a; ///< not used by faults that are not on a node
};

struct FaultInfo
{
	FaultKind kind;
	const char* name;     ///< on the command line
	bool onNode;          ///< it is injected into one node
	const char* what;     ///< in the timeline, when it is injected
	const char* repaired; ///< in the timeline, when it is repaired; null when it repairs by itself
	void (*inject)(Lab& lab, HostId node);
	void (*repair)(Lab& lab, HostId node); ///< null when it repairs by itself
	/// Throws LabError when the fault has no place at present, and changes nothing;
	/// null: it always has, or its only step is one that happens or does not.
	void (*require)(Lab& lab, HostId node) = nullptr;
	/// What the lab has to be made with; null: nothing.
	void (*prepare)(LabOptions& options) = nullptr;
};

/// All faults, in the order of the enumerators.
std::span<const FaultInfo> allFaults();

const FaultInfo& infoOf(FaultKind kind);

/// @return the fault of that command line name; empty when there is none
std::optional<FaultKind> faultNamed(std::string_view name);

/// "power-off of node a"
std::string toText(const Fault& fault);

/// Reads "NAME:NODE", or "NAME" for a fault that is not on a node.
/// @throws LabError in words for the person who wrote it
Fault faultFrom(std::string_view text);

/// The reverse.
std::string toName(const Fault& fault);

} // namespace velarix::lab
