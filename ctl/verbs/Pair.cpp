#include <memory>

#include "ctl/OutputFile.h"
#include "ctl/pair/PairReport.h"
#include "ctl/pair/Partner.h"
#include "ctl/render/StateViews.h"
#include "ctl/verbs/Verb.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/InputFile.h"

namespace velarix::ctl
{

using namespace inspect;

namespace
{

using std::chrono::milliseconds;

constexpr double kLongestWait = 300;

struct PairOptions
{
	std::string ssh;
	std::string ownFile;
	std::string partnerFile;
	std::string page;
	double timeOut = 15;
	bool json = false;
};

/// @return null for what is no report
Json reportIn(const std::string& text)
{
	Json report = Json::parse(text, nullptr, false);
	return report.is_object() && report.contains("schema_version") && report.contains("pair") ? report : Json();
}

Json reportOf(const std::string& file)
{
	Json report = reportIn(readInputFile(file));
	if (report.is_null())
	{
		throw Failure(ExitCode::noInput, file + " holds no output of velarixctl status --for-pair");
	}
	return report;
}

void askPartner(const PairOptions& options, const Context& context, PairReports& reports)
{
	const Partner partner(options.ssh, milliseconds(static_cast<long>(options.timeOut * 1000)), context.paths);
	const auto begin = context.now();
	const host::ProgramEnd end = partner.run({"status", "--for-pair"});
	reports.asked = std::chrono::duration_cast<milliseconds>(context.now() - begin);
	// A node without an agent tells so with its status, and is a good answer.
	reports.partner = end.inTime ? reportIn(end.output) : Json();
	reports.whyNot = "ssh " + partner.target() + " " + end.reason();
}

PairReports look(const PairOptions& options, const Context& context)
{
	PairReports reports;
	reports.time = context.now();
	if (!options.partnerFile.empty())
	{
		reports.partner = reportOf(options.partnerFile);
	}
	else
	{
		askPartner(options, context, reports);
	}
	if (!options.ownFile.empty())
	{
		reports.own = reportOf(options.ownFile);
		return reports;
	}
	const NodeState state = Observer(context.paths).look(context.now());
	reports.own = statusJson(state, judge(state));
	reports.own["pair"] = pairJson(state, context.paths);
	return reports;
}

ExitCode runPair(const PairOptions& options, const Context& context)
{
	const PairReports reports = look(options, context);
	const std::vector<PairProblem> problems = judgePair(reports);
	if (!options.page.empty())
	{
		replaceFile(options.page, pairPage(reports, problems));
	}
	context.out << (options.json ? jsonText(pairReportJson(reports, problems), 2) + "\n" : pairText(reports, problems));
	return static_cast<ExitCode>(verdictOf(problems));
}

} // namespace

void addPair(CLI::App& app, Context& context)
{
	const auto options = std::make_shared<PairOptions>();
	Verb(app, "pair", "both nodes side by side, and what neither can know alone")
	    .ssh(options->ssh)
	    .option("--timeout", options->timeOut, "SECONDS", "how long the partner may take to answer (15)")
	    .within(1.0, kLongestWait)
	    .option("--partner-json", options->partnerFile, "FILE", "the partner's \"status --for-pair\", in place of ssh")
	    .option("--own-json", options->ownFile, "FILE", "the same of this node, in place of looking here")
	    .flag("--json", options->json, "print it as JSON")
	    .option("--html", options->page, "FILE", "write a page for browsers as well, whole or not at all")
	    .run(context, [options, &context] { return runPair(*options, context); });
}

} // namespace velarix::ctl
