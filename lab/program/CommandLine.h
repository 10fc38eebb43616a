/// What the parts of the command line share.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "Chaos.h"
#include "Controls.h"
#include "Demo.h"
#include "Hostile.h"
#include "Idle.h"
#include "Matrix.h"
#include "PairCommands.h"
#include "Soak.h"
#include "Takeover.h"

namespace velarix::lab
{

/// What the options of all commands are read into.
struct Arguments
{
	DemoOptions demo;
	SupervisorOptions pair;
	MatrixOptions matrix;
	ChaosCommand chaos;
	SoakCommand soak;
	int slack = 2000;
	ControlOptions controls;
	HostileOptions hostile;
	TakeoverOptions takeover;
	IdleOptions idle;
	std::string installRoot;
	PairTimes times;
	std::string name = "lab";
	std::string stateBase = "/run/velarix-lab";
	bool noWait = false;
	bool noAgents = false;
	std::string wrapper;
	bool json = false;
	std::string fault;
	std::string node;
	std::string form = "text";
};

/// The options of every command that makes a pair: the installed tree and the waits.
void addLabOptions(CLI::App& command, Arguments& arguments);

/// The commands that run many pairs, or one for long: matrix, controls, hostile,
/// takeover, idle, chaos, soak. Each writes its exit status to `status`.
void addCampaigns(CLI::App& app, Arguments& arguments, int& status);

} // namespace velarix::lab
