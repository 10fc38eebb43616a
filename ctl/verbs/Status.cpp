#include <memory>

#include "ctl/render/StatusJson.h"
#include "ctl/render/StatusText.h"
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

ExitCode runStatus(bool json, const Context& context)
{
	const NodeState state = Observer(context.paths).look(context.now());
	const Judgement judgement = judge(state);
	if (json)
	{
		context.out << jsonText(statusJson(state, judgement), 2) << '\n';
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
	const auto json = std::make_shared<bool>(false);
	Verb(app, "status", "how this node and its pair are now, and whether a failover works")
	    .flag("--json", *json, "print it as JSON")
	    .run(context, [json, &context] { return runStatus(*json, context); });
}

} // namespace velarix::ctl
