// keeper: acts by the name it is called by (ha-address, ha-NAME), else by its first word.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include <sys/stat.h>
#include <sysexits.h>

#include "Commands.h"
#include "Journal.h"
#include "Programs.h"
#include "Settings.h"

namespace
{

using namespace velarix::keeper;

constexpr const char* kUsage = "usage: keeper {raise|drop|stop PROGRAM|mark|unmark|status [--json]|check|help}\n";

int refuse(const std::string& program, const Finding& finding)
{
	const std::string place = finding.line > 0 ? "keeper.ini line " + std::to_string(finding.line) + ": " : "";
	Journal(program).event("failed", place + finding.text + "; " + finding.cure);
	std::fprintf(stderr, "%s: %s%s; %s\n", program.c_str(), place.c_str(), finding.text.c_str(), finding.cure.c_str());
	return finding.status;
}

/// A managed program refuses what it cannot run, and nothing that does not concern it.
int runProgram(const std::string& program)
{
	const ParsedSettings parsed = readSettings();
	if (const Finding* error = parsed.error(); error != nullptr)
	{
		return refuse(program, *error);
	}
	if (program == kAddressProgram)
	{
		return programs::runAddress(parsed.settings);
	}
	const ServiceSettings* service = parsed.settings.find(program);
	if (service == nullptr)
	{
		return refuse(
		    program, {0, EX_CONFIG, "keeper.ini has no [service " + program.substr(kPrefix.size()) + "]", "write one"});
	}
	Settings alone;
	alone.services.push_back(*service);
	for (const Finding& finding : checkMachine(alone))
	{
		if (finding.status != 0)
		{
			return refuse(program, finding);
		}
	}
	return programs::runService(*service);
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
	const bool known = verb == "raise" || verb == "mark" || verb == "unmark" || verb == "status";
	if (!known || (!argument.empty() && (verb != "status" || argument != "--json")))
	{
		std::fputs(kUsage, stderr);
		return EX_USAGE;
	}
	if (const Finding* error = parsed.error(); error != nullptr)
	{
		std::printf("keeper.ini line %d: %s; %s\n", error->line, error->text.c_str(), error->cure.c_str());
		return error->status;
	}
	if (verb == "status")
	{
		return commands::status(parsed.settings, !argument.empty());
	}
	return verb == "raise" ? commands::raise(parsed.settings)
	                       : (verb == "mark" ? commands::mark(parsed.settings) : commands::unmark(parsed.settings));
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
