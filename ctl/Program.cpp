#include "ctl/Program.h"

#include <exception>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "ctl/verbs/Verbs.h"

namespace velarix::ctl
{

namespace
{

constexpr char kName[] = "velarixctl";

void setUp(CLI::App& app, std::string& root, Context& context)
{
	app.set_version_flag("--version", std::string(kName) + " " VELARIX_VERSION);
	app.add_option("--root", root, "look for the node's files below DIR; the kernel is not asked then")
	    ->type_name("DIR")
	    ->check(CLI::ExistingDirectory);
	app.require_subcommand(1);
	app.fallthrough();
	for (const AddVerb add : kVerbs)
	{
		add(app, context);
	}
}

/// A monitoring system takes the first line of standard output, and every status
/// of its own four as a verdict on the node.
int unknownToPlugin(const std::string& reason, Context& context)
{
	context.out << "VELARIX UNKNOWN - " << reason << '\n';
	return number(ExitCode::notRunning);
}

/// @return the status for a command line that asks for help or is wrong
int explain(const CLI::App& app, const CLI::ParseError& error, Context& context)
{
	if (app.get_subcommands().empty() && !app.remaining().empty())
	{
		context.err << kName << ": there is no verb \"" << app.remaining().front() << "\"; see --help\n";
		return number(ExitCode::usage);
	}
	const bool asked = app.exit(error, context.out, context.err) == number(ExitCode::fine);
	return number(asked ? ExitCode::fine : ExitCode::usage);
}

/// @return whether the verb is the monitoring plug-in, in a line that need not be right
bool isPlugin(const std::vector<std::string>& arguments)
{
	auto word = arguments.begin();
	while (word != arguments.end() && word->starts_with('-'))
	{
		word += *word == "--root" && word + 1 != arguments.end() ? 2 : 1;
	}
	return word != arguments.end() && *word == "nagios";
}

/// A full disk behind standard output must not pass for an answer.
ExitCode delivered(ExitCode code, const Context& context)
{
	context.out.flush();
	if (!context.out)
	{
		throw Failure(ExitCode::cannotWrite, "cannot write standard output");
	}
	return code;
}

} // namespace

int run(const std::vector<std::string>& arguments, Context& context)
{
	const bool plugin = isPlugin(arguments);
	CLI::App app("Sets up, checks, watches and moves a node of a Velarix HA pair.", kName);
	std::string root;
	setUp(app, root, context);
	try
	{
		app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
		if (!root.empty())
		{
			context.paths = Paths(std::filesystem::absolute(root));
		}
		return number(delivered(context.action(), context));
	}
	catch (const CLI::ParseError& error)
	{
		const bool asked = error.get_exit_code() == number(ExitCode::fine);
		return plugin && !asked ? unknownToPlugin(error.what(), context) : explain(app, error, context);
	}
	catch (const Failure& failure)
	{
		if (plugin)
		{
			return unknownToPlugin(failure.what(), context);
		}
		context.err << kName << ": " << failure.what() << '\n';
		return number(failure.code());
	}
}

} // namespace velarix::ctl
