#include "ctl/render/StateViews.h"

#include <memory>

#include "ctl/OutputFile.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"
#include "inspect/InputFile.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

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

void addMetrics(CLI::App& app, Context& context)
{
	const auto textfile = std::make_shared<std::string>();
	Verb(app, "metrics", "the state as Prometheus metrics")
	    .option("--textfile", *textfile, "FILE",
	            "write FILE (whole or not at all) instead of standard output, with counters that go on from run to run")
	    .run(context, [textfile, &context] { return runMetrics(*textfile, context); });
}

} // namespace velarix::ctl
