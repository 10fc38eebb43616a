#include <memory>

#include "ctl/pair/NodeReport.h"
#include "ctl/render/StateViews.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"

namespace velarix::ctl
{

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

} // namespace

void addStatus(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<StatusOptions>();
	Verb(app, "status", "how this node and its pair are now, and whether a failover works")
	    .flag("--json", options->json, "print it as JSON")
	    .flag("--for-pair", options->pair, "print it as JSON, with what velarixctl pair compares")
	    .run(context, [options, &context] { return runStatus(*options, context); });
}

} // namespace velarix::ctl
