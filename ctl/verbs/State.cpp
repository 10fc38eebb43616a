// The state of this node for people and programs, for a monitoring system and for Prometheus.

#include <memory>

#include "ctl/OutputFile.h"
#include "ctl/pair/NodeReport.h"
#include "ctl/render/StateViews.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

/// The statuses that init scripts give.
ExitCode codeOf(const NodeState& state)
{
	switch (state.agent.state)
	{
	case AgentState::dead:
	case AgentState::otherProgram:
		return ExitCode::notAsWished;
	case AgentState::noPidFile:
		return ExitCode::notRunning;
	case AgentState::running:
	case AgentState::frozen:
	case AgentState::notKnown:
		break;
	}
	return state.role.known() ? ExitCode::fine : ExitCode::notKnown;
}

struct StatusOptions
{
	bool json = false;
	bool pair = false;
};

ExitCode runStatus(const StatusOptions& options, const Context& context)
{
	const NodeState state = Observer(context.paths).look(context.now());
	const Judgement judgement = judge(state);
	if (options.json || options.pair)
	{
		nlohmann::ordered_json json = statusJson(state, judgement);
		if (options.pair)
		{
			json["pair"] = pairJson(state, context.paths);
		}
		context.out << jsonText(json, 2) << '\n';
	}
	else
	{
		context.out << statusText(state, judgement, context.colour);
	}
	return codeOf(state);
}

/// Some thirty years.
constexpr double kLongestLimit = 1e9;

ExitCode runNagios(const NagiosLimits& limits, const Context& context)
{
	const NodeState state = Observer(context.paths, false).look(context.now());
	const NagiosLine line = nagiosLine(state, judge(state), limits);
	context.out << line.text << '\n';
	return static_cast<ExitCode>(line.status);
}

/// @return the counts that the former run left; zeros when there is none
Counters formerCounters(const std::filesystem::path& file)
{
	return host::fileFacts(file).kind == host::FileKind::missing ? Counters{} : readCounters(readInputFile(file));
}

ExitCode runMetrics(const std::string& textfile, const Context& context)
{
	Counters counters = textfile.empty() ? Counters{} : formerCounters(textfile);
	const NodeState state = Observer(context.paths, !counters.roleChanged).look(context.now());
	if (!textfile.empty() && state.tail.problem.empty())
	{
		countOn(counters, state.logWish());
	}
	const std::string text = metricsText(state, judge(state), counters);
	textfile.empty() ? void(context.out << text) : replaceFile(textfile, text);
	if (!state.settingsProblem.empty())
	{
		complain(context, state.settingsProblem);
		return state.settingsCode;
	}
	return ExitCode::fine;
}

} // namespace

void addStatus(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<StatusOptions>();
	Verb(app, "status", "how this node and its pair are now, and whether a failover works")
	    .flag("--json", options->json, "print it as JSON")
	    .flag("--for-pair", options->pair, "print it as JSON, with what velarixctl pair compares")
	    .run(context, [options, &context] { return runStatus(*options, context); });
}

void addMetrics(CLI::App& app, Context& context)
{
	const auto textfile = std::make_shared<std::string>();
	Verb(app, "metrics", "the state as Prometheus metrics")
	    .option("--textfile", *textfile, "FILE",
	            "write FILE (whole or not at all) instead of standard output, with counters that go on from run to run")
	    .run(context, [textfile, &context] { return runMetrics(*textfile, context); });
}

void addNagios(CLI::App& app, Context& context)
{
	const auto limits = std::make_shared<NagiosLimits>();
	Verb(app, "nagios", "the state as one line of a monitoring plug-in, with its exit status")
	    .option("--warning", limits->warning, "SECONDS", "warn when the partner's last heartbeat is this old (15)")
	    .within(0.0, kLongestLimit)
	    .option("--critical", limits->critical, "SECONDS", "alarm when it is this old (60)")
	    .within(0.0, kLongestLimit)
	    .run(
	        context, [limits, &context] { return runNagios(*limits, context); },
	        [limits] { return limits->critical < limits->warning ? "--critical is below --warning" : ""; });
}

} // namespace velarix::ctl
