#include <nlohmann/json.hpp>

#include "ctl/handover/HandOver.h"
#include "ctl/handover/NodeLock.h"
#include "ctl/pair/PairReport.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/SettingsKeys.h"
#include "inspect/TimeText.h"

namespace velarix::ctl
{

namespace
{

using std::chrono::milliseconds;

/// A service that has to move waits no longer for a partner's word.
constexpr std::chrono::seconds kPatience{10};

milliseconds allowed(const SwitchoverOptions& options, const NodeState& state)
{
	if (options.timeOut > 0)
	{
		return milliseconds(static_cast<long>(options.timeOut * 1000));
	}
	// The partner's heartbeats tell of its programs what its checker saw last.
	return std::max<milliseconds>(std::chrono::minutes(1), 3 * state.timing.handOver()) + state.timing.checkCycle;
}

ExitCode refuse(const HandOverPlan& plan, const Context& context)
{
	for (const std::string& refusal : plan.refusals)
	{
		complain(context, "refused: " + refusal);
	}
	return ExitCode::refused;
}

/// @return what stands in the way on the partner, which its heartbeats do not tell; none when nothing does
std::vector<std::string> askPartner(const SwitchoverOptions& options, const NodeState& state, const Context& context)
{
	std::string why;
	const Json report = Partner(options.ssh, kPatience, context.paths).status(state, why);
	if (isAt(report, "/fail_over/works", false))
	{
		std::string reasons = "its status says that a failover would not work";
		for (const Json& reason : listAt(report, "/fail_over/reasons"))
		{
			reasons += "; " + (reason.is_string() ? reason.get<std::string>() : reason.dump());
		}
		return {"the partner could not take the service: " + reasons};
	}
	if (!isAt(report, "/fail_over/works", true))
	{
		complain(context, "could not ask the partner: " + (why.empty() ? "it does not know itself" : why) +
		                      "; as far as its heartbeats tell it is well");
	}
	return {};
}

void describe(const HandOverPlan& plan, const NodeState& state, const Context& context)
{
	context.out << "would hand the service over to " << printable(state.setting(key::kPartnerIP)) << ":\n";
	for (const std::string& command : plan.commands)
	{
		context.out << "  run without a network: " << printable(command) << '\n';
	}
	for (const host::Process& process : processesNamed(plan.names))
	{
		context.out << "  which is to end " << printable(process.name) << ", process " << process.pid << '\n';
	}
	context.out << "  the agent then misses its programs, drops " << printable(state.setting(key::kVirtualIP))
	            << " and asks its partner\nexpected to take about " << spanText(state.timing.handOver()) << '\n';
}

} // namespace

ExitCode runSwitchover(const SwitchoverOptions& options, const Context& context)
{
	if (!options.dryRun && host::user() != 0)
	{
		throw Failure(ExitCode::noPermission, "only root may end the programs");
	}
	Observer observer(context.paths, false);
	NodeState before = observer.look(context.now());
	if (before.settingsCode == ExitCode::noPermission)
	{
		throw Failure(before.settingsCode, before.settingsProblem);
	}
	HandOverPlan plan = planHandOver(before, judge(before), context.paths);
	Descriptor lock;
	if (plan.refusals.empty())
	{
		const std::vector<std::string> refusals = askPartner(options, before, context);
		lock = options.dryRun ? Descriptor() : lockNode(context.paths);
		// A partner that does not answer may have died in the time that asking it took.
		before = observer.look(context.now());
		plan = planHandOver(before, judge(before), context.paths);
		plan.refusals.insert(plan.refusals.end(), refusals.begin(), refusals.end());
	}
	if (!plan.refusals.empty())
	{
		return refuse(plan, context);
	}
	if (options.dryRun)
	{
		describe(plan, before, context);
		return ExitCode::fine;
	}
	recordAct(context, kSwitchover, "to " + before.setting(key::kPartnerIP));
	return handOver(plan, before.setting(key::kPartnerIP), observer, allowed(options, before), context);
}

} // namespace velarix::ctl
