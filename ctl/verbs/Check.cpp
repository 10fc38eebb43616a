#include "ctl/check/Check.h"

#include <memory>

#include "ctl/render/CheckOutput.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"

namespace velarix::ctl
{

namespace
{

struct CheckOptions
{
	std::string file;
	std::string partner;
	bool filesOnly = false;
	bool strict = false;
	bool json = false;
	std::vector<std::string> ignored;
};

ExitCode runCheck(const CheckOptions& options, const Context& context)
{
	CheckRequest request{.file = options.file.empty() ? context.paths.settings : std::filesystem::path(options.file),
	                     .partner = {},
	                     .filesOnly = options.filesOnly,
	                     .ignored = options.ignored};
	if (!options.partner.empty())
	{
		request.partner = options.partner;
	}
	const CheckReport report = check(request, context.paths);
	options.json ? printReportJson(context.out, report) : printReport(context.out, report, context.colour);
	const bool wrong = report.count(Severity::error) > 0 || (options.strict && report.count(Severity::warning) > 0);
	return wrong ? ExitCode::settings : ExitCode::fine;
}

} // namespace

void addCheck(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<CheckOptions>();
	Verb(app, "check", "find what would abort or cripple the agent, before it is started")
	    .option("FILE", options->file, "TEXT", "settings file; the installed one without it")
	    .option("--partner", options->partner, "FILE", "the partner's settings file: check that the two fit")
	    .flag("--files-only", options->filesOnly, "look at the settings alone, not at this machine, and try no command")
	    .flag("--strict", options->strict, "let warnings count as errors")
	    .option("--ignore", options->ignored, "NAME", "let the findings of this name not count (again for more)")
	    .flag("--json", options->json, "print the findings as JSON")
	    .run(context, [options, &context] { return runCheck(*options, context); });
}

} // namespace velarix::ctl
