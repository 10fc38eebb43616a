/// The tables of faults, and what their actions share. For Fault.cpp and them only: everybody
/// else goes through Lab::inject and Lab::repair.
///
/// What a fault needs has been looked at when its action begins.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "lab/core/Fault.h"
#include "lab/core/Host.h"

namespace velarix::lab
{

/// Of the servers, the agents and their files.
std::span<const FaultInfo> hostFaults();
/// Of the address, the managed program, the commands and the keeper.
std::span<const FaultInfo> serviceFaults();
/// Of the wires, and what a third host does.
std::span<const FaultInfo> networkFaults();

/// @throws LabError when it has to be refused
inline void refuse(bool refused, const std::string& why)
{
	if (refused)
	{
		throw LabError(why);
	}
}

/// @throws LabError when the node is off
void nodeOn(Lab& lab, HostId node);

// Programs that a fault keeps running in the background of a host, one of each name. They are
// no part of the pair, and end with the host.

bool jobUnderWay(const Host& host, const std::string& name);
/// @throws LabError when a job of that name is under way
void startJob(const Host& host, const std::string& name, const std::vector<std::string>& argv);
/// Ends the job, and waits until everything it has started is gone. It is not under way afterwards.
/// @throws LabError when there is none of that name, or when it had ended by itself, with its words
void endJob(const Host& host, const std::string& name);

} // namespace velarix::lab
