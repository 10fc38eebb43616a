#include <memory>

#include <CLI/CLI.hpp>

#include "ctl/render/NagiosLine.h"
#include "ctl/status/Judgement.h"
#include "ctl/status/NodeState.h"
#include "ctl/verbs/Seconds.h"
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
	CLI::App* verb =
	    app.add_subcommand("nagios", "the state as one line of a monitoring plug-in, with its exit status");
	const auto limits = std::make_shared<NagiosLimits>();
	verb->add_option("--warning", limits->warning, "warn when the partner's last heartbeat is this old (15)")
	    ->type_name("SECONDS")
	    ->check(secondsFrom(0, kLongestLimit));
	verb->add_option("--critical", limits->critical, "alarm when it is this old (60)")
	    ->type_name("SECONDS")
	    ->check(secondsFrom(0, kLongestLimit));
	verb->callback(
	    [limits, &context]
	    {
		    if (limits->critical < limits->warning)
		    {
			    throw CLI::ValidationError("--critical", "is below --warning");
		    }
		    context.action = [limits, &context] { return runNagios(*limits, context); };
	    });
}

} // namespace velarix::ctl
