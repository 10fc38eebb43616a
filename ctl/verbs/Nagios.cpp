#include <memory>

#include "ctl/render/StateViews.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"

namespace velarix::ctl
{

namespace
{

/// Some thirty years.
constexpr double kLongestLimit = 1e9;

ExitCode runNagios(const NagiosLimits& limits, const Context& context)
{
	const NodeState state = Observer(context.paths, false).look(context.now());
	const NagiosLine line = nagiosLine(state, judge(state), limits);
	context.out << line.text << '\n';
	return static_cast<ExitCode>(line.status);
}

} // namespace

void addNagios(CLI::App& app, Context& context)
{
	const auto limits = std::make_shared<NagiosLimits>();
	Verb(app, "nagios", "the state as one line of a monitoring plug-in, with its exit status")
	    .seconds("--warning", limits->warning, 0, kLongestLimit,
	             "warn when the partner's last heartbeat is this old (15)")
	    .seconds("--critical", limits->critical, 0, kLongestLimit, "alarm when it is this old (60)")
	    .run(
	        context, [limits, &context] { return runNagios(*limits, context); },
	        [limits] { return limits->critical < limits->warning ? "--critical is below --warning" : ""; });
}

} // namespace velarix::ctl
