/// What the rows of the table of faults need and do. For Fault.cpp only: everybody
/// else goes through Lab::inject and Lab::repair.
///
/// What a fault needs has been looked at when its action begins.
#pragma once

#include "lab/core/CommandHooks.h"
#include "lab/core/Fault.h"

namespace velarix::lab::action
{

// What a fault needs: each throws LabError when it is not so.
void nodeOn(Lab& lab, HostId node);
void agentRuns(Lab& lab, HostId node);
void agentNotFrozen(Lab& lab, HostId node);
void hostNotFrozen(Lab& lab, HostId node);
void clockSteppable(Lab& lab, HostId node);
void programRuns(Lab& lab, HostId node);
void programNoZombie(Lab& lab, HostId node);
void noCrashing(Lab& lab, HostId node);
void noCrashingAnywhere(Lab& lab, HostId node);
void addressHeld(Lab& lab, HostId node);
void runInfoThere(Lab& lab, HostId node);
void runInfoWritable(Lab& lab, HostId node);
void hasKeeper(Lab& lab, HostId node);

// The server.
void reboot(Lab& lab, HostId node);
/// Both are off, also one that was so before; then both come up together.
void coldStart(Lab& lab, HostId node);
/// Both are off, likewise; then only this one comes up.
void coldStartAlone(Lab& lab, HostId node);

// The agent.

// The managed program.
void killProgram(Lab& lab, HostId node);
void crashProgram(Lab& lab, HostId node);
void endCrashing(Lab& lab, HostId node);
void crashEverywhere(Lab& lab, HostId node);
void endCrashingEverywhere(Lab& lab, HostId node);
/// Ended, but its entry in the process table stays.
void makeZombie(Lab& lab, HostId node);
void reapZombie(Lab& lab, HostId node);

// The wires.
/// The gateway answers everybody but this node.
void loseGateway(Lab& lab, HostId node);
void findGateway(Lab& lab, HostId node);
/// The node does not get what the other one sends.
void makeDeaf(Lab& lab, HostId node);

// Addresses, commands, files.
void removeAddress(Lab& lab, HostId node);
void removeRunInfo(Lab& lab, HostId node);
/// Puts it back and starts the agent, should it have ended.
void restoreRunInfo(Lab& lab, HostId node);
void protectRunInfo(Lab& lab, HostId node);
void freeRunInfo(Lab& lab, HostId node);
/// Returns when the log has come to its end, too: its last page has room left.
void fillDisk(Lab& lab, HostId node);

// The keeper: its processes of that name.
void keeperRuns(Lab& lab, HostId node, const char* program);
/// Both at once: the one that the agent counts, and its child that works.
void killKeeper(Lab& lab, HostId node, const char* program);
void removeMarker(Lab& lab, HostId node);
void restoreMarker(Lab& lab, HostId node);
/// A third host on the service network announces the address once, and answers for it.
void raiseRogue(Lab& lab, HostId node);
void dropRogue(Lab& lab, HostId node);

// An attacker on the communication network.
/// @param messages  for a shell: one connection after the other, each with the next of them, as
///                  printf knows them
void sendMessages(Lab& lab, const Fault& fault, const char* messages);
void endMessages(Lab& lab, const Fault& fault);

} // namespace velarix::lab::action
