// keeper: acts by the name it is called by (ha-address, ha-NAME), else by its first word.
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <map>
#include <string>

#include <sys/stat.h>
#include <sysexits.h>

#include "keeper/Commands.h"
#include "keeper/Guard.h"
#include "keeper/Journal.h"

namespace
{

using namespace velarix::keeper;

constexpr const char* kUsage = "usage: keeper {raise|drop|stop PROGRAM|mark|unmark|reach|status [--json]|check|help}\n";

std::string placeOf(const Finding& finding)
{
	return finding.line > 0 ? "keeper.ini line " + std::to_string(finding.line) + ": " : "";
}

int refuse(const std::string& program, const Finding& finding)
{
	const std::string text = placeOf(finding) + finding.text + "; " + finding.cure;
	Journal(program).event("failed", text);
	std::fprintf(stderr, "%s: %s\n", program.c_str(), text.c_str());
	return finding.status;
}

/// A managed program refuses what it cannot run, and nothing that does not concern it.
int runProgram(const std::string& program)
{
	const ParsedSettings parsed = readSettings();
	const ServiceSettings* service = parsed.settings.find(program);
	if (const Finding* error = parsed.error(); error != nullptr)
	{
		return refuse(program, *error);
	}
	if (program == kAddressProgram)
	{
		return runAddress(parsed.settings);
	}
	if (program == kReachProgram)
	{
		return parsed.settings.reach.line != 0
		           ? runReach(parsed.settings)
		           : refuse(program, {0, EX_CONFIG, "keeper.ini has no [reachability]", "write one"});
	}
	if (service == nullptr)
	{
		const std::string name = program.substr(kPrefix.size());
		return refuse(program, {0, EX_CONFIG, "keeper.ini has no [service " + name + "]", "write one"});
	}
	const ParsedSettings alone{{}, checkMachine({{}, {}, {*service}})};
	const Finding* error = alone.error();
	return error != nullptr ? refuse(program, *error) : runService(parsed.settings.address, *service);
}

int runVerb(const std::string& verb, const std::string& argument)
{
	if (verb == "help" || verb == "--help")
	{
		std::fputs(kUsage, stdout);
		return EX_OK;
	}
	if (verb == "check")
	{
		return commands::check();
	}
	if (verb == "reach")
	{
		return runProgram(kReachProgram);
	}
	const ParsedSettings parsed = readSettings();
	// What is to be ended is ended as long as it can be understood.
	if (verb == "drop")
	{
		return commands::drop(parsed.settings);
	}
	if (verb == "stop" && !argument.empty())
	{
		return commands::stop(parsed.settings, argument);
	}
	const bool json = verb == "status" && argument == "--json";
	const std::map<std::string, std::function<int()>> verbs{
	    {"raise", [&] { return commands::raise(parsed.settings); }},
	    {"mark", [&] { return commands::mark(parsed.settings); }},
	    {"unmark", [&] { return commands::unmark(parsed.settings); }},
	    {"status", [&] { return commands::status(parsed.settings, json); }}};
	const auto found = verbs.find(verb);
	if (found == verbs.end() || (!argument.empty() && !json))
	{
		std::fputs(kUsage, stderr);
		return EX_USAGE;
	}
	if (const Finding* error = parsed.error(); error != nullptr)
	{
		std::printf("%s%s; %s\n", placeOf(*error).c_str(), error->text.c_str(), error->cure.c_str());
		return error->status;
	}
	return found->second();
}

} // namespace

int main(int argc, char** argv)
{
	const char* slash = argc > 0 ? std::strrchr(argv[0], '/') : nullptr;
	const std::string name = argc > 0 ? (slash != nullptr ? slash + 1 : argv[0]) : "";
	::umask(022);
	try
	{
		if (name.starts_with(kPrefix))
		{
			return runProgram(name);
		}
		return runVerb(argc > 1 ? argv[1] : "", argc > 2 ? argv[2] : "");
	}
	catch (const std::exception& exc)
	{
		// The agent reads standard output.
		std::printf("keeper: %s\n", exc.what());
		return EX_OSERR;
	}
}
