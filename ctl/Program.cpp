#include "ctl/Program.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <numeric>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>

#include <poll.h>
#include <unistd.h>

#include "ctl/verbs/Verbs.h"
#include "inspect/Host.h"

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
	context.out << "VELARIX UNKNOWN - " << printable(reason) << '\n';
	return number(ExitCode::notRunning);
}

/// @return how many letters must be put in, left out or replaced to make one the other
std::size_t distance(std::string_view from, std::string_view to)
{
	std::vector<std::size_t> row(to.size() + 1);
	std::iota(row.begin(), row.end(), std::size_t{0});
	for (std::size_t i = 0; i < from.size(); ++i)
	{
		std::size_t diagonal = std::exchange(row[0], i + 1);
		for (std::size_t j = 0; j < to.size(); ++j)
		{
			const std::size_t replaced = diagonal + (from[i] == to[j] ? 0U : 1U);
			diagonal = row[j + 1];
			row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
		}
	}
	return row.back();
}

/// @return "; did you mean status?"; the way to the list when no verb is like the word
std::string suggestion(const CLI::App& app, const std::string& word)
{
	constexpr std::size_t likely = 2;
	std::string nearest;
	std::size_t least = likely + 1;
	for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; }))
	{
		if (const std::size_t away = distance(word, verb->get_name()); away < least)
		{
			least = away;
			nearest = verb->get_name();
		}
	}
	return nearest.empty() ? "; see velarixctl --help" : "; did you mean " + nearest + "?";
}

/// @return the status for a command line that asks for help or is wrong
int explain(const CLI::App& app, const CLI::ParseError& error, Context& context)
{
	if (error.get_exit_code() == number(ExitCode::fine))
	{
		return app.exit(error, context.out, context.err);
	}
	const std::vector<CLI::App*> verbs = app.get_subcommands();
	if (verbs.empty() && !app.remaining().empty())
	{
		const std::string word = app.remaining().front();
		complain(context, "there is no verb \"" + word + "\"" + suggestion(app, word));
		return number(ExitCode::usage);
	}
	const std::string verb = verbs.empty() ? "" : verbs.front()->get_name() + " ";
	complain(context, std::string(error.what()) + "; see velarixctl " + verb + "--help");
	return number(ExitCode::usage);
}

/// @return the first word that is no global option
std::vector<std::string>::const_iterator verbIn(const std::vector<std::string>& arguments)
{
	auto word = arguments.begin();
	while (word != arguments.end() && word->starts_with('-'))
	{
		word += *word == "--root" && word + 1 != arguments.end() ? 2 : 1;
	}
	return word;
}

/// "help", "help VERB" and "version" as the options of that meaning.
std::vector<std::string> withoutWords(const CLI::App& app, std::vector<std::string> arguments)
{
	const auto word = arguments.begin() + (verbIn(arguments) - arguments.cbegin());
	if (word != arguments.end() && *word == "version" && word + 1 == arguments.end())
	{
		*word = "--version";
	}
	else if (word != arguments.end() && *word == "help")
	{
		arguments.erase(word);
		const auto verb = verbIn(arguments);
		// Of a verb that is none the usual error tells.
		const auto isIt = [&](const CLI::App* each) { return each->get_name() == *verb; };
		if (verb == arguments.end() || !app.get_subcommands(isIt).empty())
		{
			arguments.emplace_back("--help");
		}
	}
	return arguments;
}

/// Lacking rights have one cure.
void adviseRoot(ExitCode code, const Context& context)
{
	if (code == ExitCode::noPermission && host::user() != 0)
	{
		complain(context, "run it as root");
	}
}

/// @return the status of a run that ends with an error
int fail(const std::string& text, ExitCode code, bool plugin, Context& context)
{
	if (plugin)
	{
		return unknownToPlugin(text, context);
	}
	complain(context, text);
	adviseRoot(code, context);
	return number(code);
}

/// Poco blocks SIGPIPE, so that a switchover goes on when nobody reads its steps any more.
bool readerIsGone()
{
	pollfd output{STDOUT_FILENO, 0, 0};
	return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

/// A full disk behind standard output must not pass for an answer. A reader that has seen
/// enough is no failure.
ExitCode delivered(ExitCode code, const Context& context)
{
	context.out.flush();
	if (!context.out && !readerIsGone())
	{
		throw Failure(ExitCode::cannotWrite, "cannot write standard output");
	}
	return code;
}

} // namespace

int run(const std::vector<std::string>& arguments, Context& context)
{
	const auto verb = verbIn(arguments);
	const bool plugin = verb != arguments.end() && (*verb == "nagios" || *verb == "pair");
	CLI::App app("Sets up, checks, watches and moves a node of a Velarix HA pair.", kName);
	std::string root;
	setUp(app, root, context);
	try
	{
		const std::vector<std::string> words = withoutWords(app, arguments);
		app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
		if (!root.empty())
		{
			context.paths = Paths(std::filesystem::absolute(root));
		}
		const ExitCode code = delivered(context.action(), context);
		adviseRoot(code, context);
		return number(code);
	}
	catch (const CLI::ParseError& error)
	{
		const bool asked = error.get_exit_code() == number(ExitCode::fine);
		return plugin && !asked ? unknownToPlugin(error.what(), context) : explain(app, error, context);
	}
	catch (const Failure& failure)
	{
		return fail(failure.what(), failure.code(), plugin, context);
	}
	catch (const std::exception& error)
	{
		return fail(std::string("internal error: ") + error.what(), ExitCode::internal, plugin, context);
	}
}

} // namespace velarix::ctl
