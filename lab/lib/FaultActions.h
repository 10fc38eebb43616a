/// What the rows of the table of faults do. For Fault.cpp only: everybody else
/// goes through Lab::inject and Lab::heal.
#pragma once

#include "Basics.h"
#include "CommandHooks.h"
#include "Plan.h"

namespace velarix::lab
{

class Lab;
struct LabOptions;

namespace action
{

// The server.
void powerOff(Lab& lab, HostId node);
void powerOn(Lab& lab, HostId node);
void reboot(Lab& lab, HostId node);
/// Both are off; then both come up together.
void coldStart(Lab& lab, HostId node);
/// Both are off; then only this one comes up.
void coldStartAlone(Lab& lab, HostId node);
void powerOnOther(Lab& lab, HostId node);

// The agent.
void killAgent(Lab& lab, HostId node);
void terminateAgent(Lab& lab, HostId node);
void startAgent(Lab& lab, HostId node);
void freezeAgent(Lab& lab, HostId node);
void thawAgent(Lab& lab, HostId node);
void wantClockShim(LabOptions& options);
/// @param hours  ahead of the machine's clock
template <int hours> void stepClock(Lab& lab, HostId node);

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
template <Network network, bool up> void setCard(Lab& lab, HostId node);
template <bool isolated> void setCut(Lab& lab, HostId node);
template <bool up> void setGateway(Lab& lab, HostId node);
/// The gateway answers everybody but this node.
void loseGateway(Lab& lab, HostId node);
void findGateway(Lab& lab, HostId node);
/// Frames of the node's card are lost, each way.
template <Network network, int percent> void lose(Lab& lab, HostId node);
/// 200 ms with 50 ms of jitter, each way.
template <Network network> void delay(Lab& lab, HostId node);
/// The node does not get what the other one sends.
void makeDeaf(Lab& lab, HostId node);
/// The other node does not get what this one sends.
void makeMute(Lab& lab, HostId node);
template <Network network> void repairWire(Lab& lab, HostId node);

// Addresses, commands, files.
void removeAddress(Lab& lab, HostId node);
template <SetCommand command, void (*spoil)(const Node&, SetCommand)> void spoilCommand(Lab& lab, HostId node);
template <SetCommand command> void repairCommand(Lab& lab, HostId node);
void removeRunInfo(Lab& lab, HostId node);
/// Puts it back and starts the agent, should it have ended.
void restoreRunInfo(Lab& lab, HostId node);
void protectRunInfo(Lab& lab, HostId node);
void freeRunInfo(Lab& lab, HostId node);
/// Returns when the log has come to its end, too: its last page has room left.
void fillDisk(Lab& lab, HostId node);
void freeDisk(Lab& lab, HostId node);

// A stranger on the communication network.
void sendGarbage(Lab& lab, HostId node);
void endGarbage(Lab& lab, HostId node);
void replayMaster(Lab& lab, HostId node);
void endReplayMaster(Lab& lab, HostId node);
void replayAsk(Lab& lab, HostId node);
void endReplayAsk(Lab& lab, HostId node);

} // namespace action

} // namespace velarix::lab

#include "FaultTemplates.h"
