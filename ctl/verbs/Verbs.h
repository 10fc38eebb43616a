/// The verbs of the program: what the command line says to each (Program.cpp), and what it does.
#pragma once

#include "ctl/Program.h"
#include "ctl/init/NodeFiles.h"

namespace velarix::ctl
{

struct InitOptions
{
	Answers answers;
	InterfaceNames interfaces;
	std::string output = "velarix-pair";
	/// The node that this machine is; empty: its files go to `output` too.
	std::string here;
	PlacementRules rules;
};
ExitCode runInit(const InitOptions& given, const Context& context);

struct CheckRequest;
ExitCode runCheck(const CheckRequest& request, const Context& context);

struct StatusOptions
{
	bool json = false;
	bool pair = false;
};
ExitCode runStatus(const StatusOptions& options, const Context& context);

struct PairOptions
{
	std::string ssh;
	std::string ownFile;
	std::string partnerFile;
	std::string page;
	double timeOut = 15;
	bool json = false;
};
ExitCode runPair(const PairOptions& options, const Context& context);

struct WatchOptions
{
	double interval = 1;
	/// 0: without end.
	int count = 0;
	bool json = false;
};
ExitCode runWatch(const WatchOptions& options, const Context& context);

struct EventsOptions
{
	std::string since;
	std::string log;
	bool follow = false;
	bool json = false;
};
ExitCode runEvents(const EventsOptions& options, const Context& context);

struct ExplainOptions
{
	std::vector<std::string> words;
	bool json = false;
};
ExitCode runExplain(const ExplainOptions& options, const Context& context);

struct SwitchoverOptions
{
	bool dryRun = false;
	/// Seconds; 0: what the settings make it take, three times, a minute at least,
	/// and a check cycle.
	double timeOut = 0;
	/// The partner for ssh.
	std::string ssh;
};
ExitCode runSwitchover(const SwitchoverOptions& options, const Context& context);

struct MaintenanceOptions
{
	std::string word;
	std::string reason;
	/// Seconds.
	double time = 4 * 3600;
	bool force = false;
	bool pair = false;
	/// The partner for ssh.
	std::string ssh;
};
ExitCode runMaintenance(const MaintenanceOptions& options, const Context& context);

/// @param textfile empty: to standard output, without counters
ExitCode runMetrics(const std::string& textfile, const Context& context);

struct NagiosLimits;
ExitCode runNagios(const NagiosLimits& limits, const Context& context);

struct NotifyOptions
{
	bool test = false;
	/// Seconds that a notifier may take.
	double timeOut = 30;
};
ExitCode runNotify(const NotifyOptions& options, const Context& context);

} // namespace velarix::ctl
