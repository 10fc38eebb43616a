#include "ctl/Program.h"

#include <exception>
#include <sstream>

#include <CLI/CLI.hpp>

#include "ctl/Nearest.h"
#include "ctl/Options.h"
#include "ctl/OutputFile.h"
#include "ctl/check/Findings.h"
#include "ctl/render/StateViews.h"
#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"

namespace velarix::ctl
{

namespace
{

constexpr char kName[] = "velarixctl";
constexpr char kVersion[] = "velarixctl " VELARIX_VERSION;

/// Some thirty years.
constexpr double kLongestLimit = 1e9;
constexpr double kMinute = 60;
constexpr double kDay = 86400;

/// Adds a verb, which acts when the whole command line has been read and is right.
/// @return it, and where its options go
template <typename Options>
std::pair<CLI::App&, Options&> verb(CLI::App& app, Context& context, const std::string& name, const std::string& text,
                                    ExitCode (*act)(const Options&, const Context&))
{
	const auto options = std::make_shared<Options>();
	CLI::App* added = app.add_subcommand(name, text);
	added->callback([=, &context] { context.code = act(*options, context); });
	return {*added, *options};
}

/// The library's own range lets "nan" through, which is no number to wait for.
CLI::Validator seconds(double least, double most)
{
	std::ostringstream refusal;
	refusal << "is no number from " << least << " to " << most;
	return {[=, text = refusal.str()](std::string& given)
	        {
		        double value = 0;
		        const bool fits = CLI::detail::lexical_cast(given, value) && value >= least && value <= most;
		        return fits ? std::string() : "\"" + given + "\" " + text;
	        },
	        ""};
}

void addSsh(CLI::App& verb, std::string& target)
{
	option(verb, "--ssh", target, "TARGET", "the partner for ssh (VELARIX_PARTNER_SSH, else the settings' PARTNER_IP)");
}

void addInit(CLI::App& app, Context& context)
{
	auto [init, given] =
	    verb(app, context, "init", "write settings, firewall rules and run-info records of both nodes", runInit);
	addAnswers(init, given.answers);
	preset(init, "--master", given.answers.master, "a|b", "the node that serves when both are well")
	    ->check(CLI::IsMember({"a", "b"}).description(""));
	preset(init, "--output", given.output, "DIR", "where the files go, in a directory for each node");
	option(init, "--this", given.here, "a|b", "put the files of this node in place; the other one's go to --output")
	    ->check(CLI::IsMember({"a", "b"}).description(""));
	option(init, "--service-interface", given.interfaces.service, "NAME",
	       "this machine's interface that is to be eth0; alone with the next one: only that");
	option(init, "--communication-interface", given.interfaces.communication, "NAME", "the one that is to be eth1");
	init.add_flag("--force", given.rules.force, "replace files that are there, keeping a copy of each");
	init.add_flag("--dry-run", given.rules.dryRun, "write nothing; say which files would be written");
}

/// What tells how the nodes are.
void addViews(CLI::App& app, Context& context)
{
	auto [status, shown] =
	    verb(app, context, "status", "how this node and its pair are now, and whether a failover works", runStatus);
	status.add_flag("--json", shown.json, "print it as JSON");
	status.add_flag("--for-pair", shown.pair, "print it as JSON, with what velarixctl pair compares");

	auto [pair, both] = verb(app, context, "pair", "both nodes side by side, and what neither can know alone", runPair);
	addSsh(pair, both.ssh);
	option(pair, "--timeout", both.timeOut, "SECONDS", "how long the partner may take to answer (15)")
	    ->check(seconds(1, 300));
	option(pair, "--partner-json", both.partnerFile, "FILE", "the partner's \"status --for-pair\", in place of ssh");
	option(pair, "--own-json", both.ownFile, "FILE", "the same of this node, in place of looking here");
	pair.add_flag("--json", both.json, "print it as JSON");
	option(pair, "--html", both.page, "FILE", "write a page for browsers as well, whole or not at all");

	auto [watch, looks] = verb(app, context, "watch", "the status again and again", runWatch);
	option(watch, "-n,--interval", looks.interval, "SECONDS", "seconds between two looks (1)")
	    ->check(seconds(0.1, 3600));
	option(watch, "--count", looks.count, "N", "end after this many looks")->check(CLI::Range(1, 1'000'000));
	watch.add_flag("--json", looks.json, "print a line of JSON at the begin and at each change");
}

void addCheck(CLI::App& app, Context& context)
{
	auto [check, given] =
	    verb(app, context, "check", "find what would abort or cripple the agent, before it is started", runCheck);
	option(check, "FILE", given.file, "TEXT", "settings file; the installed one without it");
	option(check, "--partner", given.partner, "FILE", "the partner's settings file: check that the two fit");
	check.add_flag("--files-only", given.filesOnly,
	               "look at the settings alone, not at this machine, and try no command");
	check.add_flag("--strict", given.strict, "let warnings count as errors");
	option(check, "--ignore", given.ignored, "NAME", "let the findings of this name not count (again for more)")
	    ->allow_extra_args(false);
	check.add_flag("--json", given.json, "print the findings as JSON");
}

/// What has happened, and what it means.
void addLogs(CLI::App& app, Context& context)
{
	auto [events, wanted] = verb(app, context, "events",
	                             "what has happened on this node, reported from the log and its archives", runEvents);
	option(events, "--since", wanted.since, "TIME",
	       "begin there: a span (2h), a date (2026-11-21 09:07) or a time of today");
	events.add_flag("-f,--follow", wanted.follow, "go on with what happens from now on");
	events.add_flag("--json", wanted.json, "print an object of JSON a line");
	option(events, "--log", wanted.log, "FILE", "read this log instead of the one that the settings name");

	auto [explain, given] =
	    verb(app, context, "explain", "what a message of the agent means and what to do", runExplain);
	option(explain, "MESSAGE", given.words, "TEXT",
	       "LABEL:NUMBER, a line of the log or of the console, a text or a part of it; \"-\" reads standard input")
	    ->allow_extra_args()
	    ->required();
	explain.add_flag("--json", given.json, "print an object of JSON a line");
}

/// What moves the service, or keeps it where it is.
void addActs(CLI::App& app, Context& context)
{
	auto [switchover, move] =
	    verb(app, context, "switchover", "on the master: hand the service over to the partner", runSwitchover);
	switchover.add_flag("--dry-run", move.dryRun, "tell what would be done, or why it is refused, and do nothing");
	option(switchover, "--timeout", move.timeOut, "SECONDS",
	       "give up waiting after this time (three times what the settings make it take, 60 at least, and a "
	       "check cycle)")
	    ->check(seconds(0.1, kDay));
	addSsh(switchover, move.ssh);

	const std::map<std::string, double> units{{"s", 1}, {"m", kMinute}, {"h", 60 * kMinute}, {"d", kDay}};
	auto [maintenance, work] = verb(app, context, "maintenance",
	                                "nothing fails over or is restarted while somebody works here", runMaintenance);
	option(maintenance, "WORD", work.word, "on|off",
	       "on: begin it, on the standby first; off: end it, on the master first")
	    ->check(CLI::IsMember({"on", "off"}).description(""))
	    ->required();
	option(maintenance, "--reason", work.reason, "TEXT", "what is being done; status shows it");
	option(maintenance, "--for", work.time, "TIME", "afterwards it counts as forgotten, and is reported (4h)")
	    ->transform(CLI::AsNumberWithUnit(units))
	    ->check(CLI::Range(kMinute, 30 * kDay));
	maintenance.add_flag("--force", work.force,
	                     "end it also where the service moves then: a master without programs, address or network");
	maintenance.add_flag("--pair", work.pair,
	                     "do it on both nodes, the partner's by ssh, in the order that moves nothing");
	addSsh(maintenance, work.ssh);
}

/// What other programs of the operator call.
void addMonitoring(CLI::App& app, Context& context)
{
	auto [metrics, textfile] = verb(app, context, "metrics", "the state as Prometheus metrics", runMetrics);
	option(metrics, "--textfile", textfile, "FILE",
	       "write FILE (whole or not at all) instead of standard output, with counters that go on from run to run");

	auto [nagios, limits] =
	    verb(app, context, "nagios", "the state as one line of a monitoring plug-in, with its exit status", runNagios);
	option(nagios, "--warning", limits.warning, "SECONDS", "warn when the partner's last heartbeat is this old (15)")
	    ->check(seconds(0, kLongestLimit));
	option(nagios, "--critical", limits.critical, "SECONDS", "alarm when it is this old (60)")
	    ->check(seconds(0, kLongestLimit));

	auto [notify, given] =
	    verb(app, context, "notify", "pass events on to the programs in /etc/velarix-ha/notify.d", runNotify);
	notify.add_flag("--test", given.test, "give each of them a test event once, tell what came of it, and end");
	option(notify, "--timeout", given.timeOut, "SECONDS", "kill one that takes longer, and try again later (30)")
	    ->check(seconds(1, 3600));
}

/// "help", "help VERB" and "version" as the options of that meaning, before whatever was typed
/// already. The help does not list them.
void addWords(CLI::App& app, Context& context)
{
	const auto word = [&](const char* name)
	{
		CLI::App* added = app.add_subcommand(name)->group("")->fallthrough(false)->allow_extras();
		added->set_help_flag();
		return added;
	};
	word("version")->callback([&] { context.out << kVersion << '\n'; });
	const auto verb = std::make_shared<std::string>();
	CLI::App* help = word("help");
	help->add_option("VERB", *verb);
	help->callback(
	    [=, &app, &context]
	    {
		    const auto isIt = [&](const CLI::App* each) { return each->get_name() == *verb; };
		    const bool known = verb->empty() || !app.get_subcommands(isIt).empty();
		    context.code = static_cast<ExitCode>(run({*verb, known ? "--help" : ""}, context));
	    });
}

/// The verbs come in the order of the help text: a node's life from its installation on.
void setUp(CLI::App& app, Context& context)
{
	app.set_version_flag("--version", kVersion);
	const auto setRoot = [&](const std::string& root) { context.paths = Paths(std::filesystem::absolute(root)); };
	app.add_option_function<std::string>("--root", setRoot,
	                                     "look for the node's files below DIR; the kernel is not asked then")
	    ->type_name("DIR")
	    ->check(CLI::ExistingDirectory);
	app.require_subcommand(1);
	app.fallthrough();
	for (const auto add : {addWords, addInit, addCheck, addViews, addLogs, addActs, addMonitoring})
	{
		add(app, context);
	}
}

/// @return what is wrong with a command line
std::string textOf(const CLI::ParseError& error, const CLI::App& app)
{
	const std::vector<CLI::App*> chosen = app.get_subcommands();
	if (!chosen.empty() || app.remaining().empty())
	{
		return std::string(error.what()) + "; see velarixctl " + (chosen.empty() ? "" : chosen[0]->get_name() + " ") +
		       "--help";
	}
	const std::string word = app.remaining().front();
	std::vector<std::string> verbs;
	for (const CLI::App* verb : app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); }))
	{
		verbs.push_back(verb->get_name());
	}
	const std::string likely = nearest(word, verbs, 2);
	return "there is no verb \"" + word + "\"" +
	       (likely.empty() ? "; see velarixctl --help" : "; did you mean " + likely + "?");
}

/// Lacking rights have one cure.
int finish(ExitCode code, const Context& context)
{
	if (code == ExitCode::noPermission && host::user() != 0)
	{
		complain(context, "run it as root");
	}
	return number(code);
}

/// A monitoring system takes the first line of standard output, and every status
/// of its own four as a verdict on the node.
bool isPlugin(const CLI::App& app)
{
	return app.got_subcommand("nagios") || app.got_subcommand("pair");
}

/// @return the status of a run that ends with an error
int fail(const std::string& text, ExitCode code, const CLI::App& app, const Context& context)
{
	if (isPlugin(app))
	{
		context.out << "VELARIX UNKNOWN - " << printable(text) << '\n';
		return number(ExitCode::notRunning);
	}
	complain(context, text);
	return finish(code, context);
}

} // namespace

int run(const std::vector<std::string>& arguments, Context& context)
{
	CLI::App app("Sets up, checks, watches and moves a node of a Velarix HA pair.", kName);
	setUp(app, context);
	try
	{
		app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
		deliver(context.out);
		return finish(context.code, context);
	}
	catch (const CLI::ParseError& error)
	{
		const bool asked = error.get_exit_code() == number(ExitCode::fine);
		return asked ? app.exit(error, context.out, context.err)
		             : fail(isPlugin(app) ? error.what() : textOf(error, app), ExitCode::usage, app, context);
	}
	catch (const Failure& failure)
	{
		return fail(failure.what(), failure.code(), app, context);
	}
	catch (const std::exception& error)
	{
		return fail(std::string("internal error: ") + error.what(), ExitCode::internal, app, context);
	}
}

} // namespace velarix::ctl
