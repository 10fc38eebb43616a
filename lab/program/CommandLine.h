/// What the parts of the command line share.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "lab/program/Campaigns.h"
#include "lab/program/PairCommands.h"

namespace velarix::lab::program
{

/// What the options of all commands are read into.
struct Arguments
{
	SupervisorOptions pair;
	MatrixOptions matrix;
	ChaosCommand chaos;
	int slack = 2000;
	hostile::Options hostile;
	std::string installRoot;
	PairSettings times{.profile = Profile::keeper};
	std::string name = "lab";
	std::string stateBase = "/run/velarix-lab";
	bool noWait = false;
	bool noAgents = false;
	std::string wrapper;
	bool json = false;
	std::string fault;
	std::string node;
};

/// The options of every command that makes a pair: the installed tree and the waits.
void addLabOptions(CLI::App& command, std::string& installRoot, PairSettings& times);

/// The commands that run many pairs: matrix, hostile, chaos. Each
/// writes its exit status to `status`.
void addCampaigns(CLI::App& app, Arguments& arguments, int& status);

} // namespace velarix::lab::program
