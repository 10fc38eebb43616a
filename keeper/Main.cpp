// keeper: acts by the name it is called by (ha-address, ha-NAME), else by its first word.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <map>
#include <string>

#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "keeper/Commands.h"
#include "keeper/Guard.h"
#include "keeper/Network.h"
#include "keeper/Runtime.h"

namespace
{

using namespace velarix::keeper;

constexpr const char* kUsage = "usage: keeper {raise|drop|stop PROGRAM|mark|unmark|reach|status [--json]|check|help}\n";

// keeper status: what the state files say of what lives.

struct Program
{
	explicit Program(const std::string& program) : name(program), fields(readState(program))
	{
		// Only root can ask for the lock.
		const std::string pid = at("pid");
		const bool listed = ::geteuid() != 0 && !pid.empty() && ::access(("/proc/" + pid).c_str(), F_OK) == 0;
		running = listed || holderOf(name, Part::worker) != 0;
		const std::string last = at("state");
		state = running ? (last.empty() ? "starting" : last) : (last == "failed" ? last : "stopped");
		const long long seconds = std::strtoll(at("since").c_str(), nullptr, 10);
		since = seconds > 0 ? timeText(seconds, 0) : "";
	}

	std::string at(const char* key) const { return valueOf(fields, key); }
	/// Of ha-reach while it lives.
	std::vector<TargetState> targets() const { return running ? targetsOf(fields) : std::vector<TargetState>(); }

	std::string name;
	Fields fields;
	bool running = false;
	std::string state;
	std::string since;
};

std::string sentence(const Program& address)
{
	const std::string holder = address.at("holder");
	const std::string advice = "; nothing to do here, repair the network between the nodes";
	const std::map<std::string, std::string> sentences{
	    {"announcing", "held here"},
	    {"holding", "held here"},
	    {"rechecking", "held here; asks whether another host holds it, too"},
	    {"waiting", "waits: " + holder + " holds it and serves" + advice},
	    {"yielded", "given up to " + holder + ", which serves" + advice},
	    {"offline", "cannot be held: " + address.at("interface") + " is missing, down or without carrier"},
	    {"stopped", "not held here: this node is the standby, or its agent does not run"}};
	const auto found = sentences.find(address.state);
	return found == sentences.end() ? "asks whether it is free" : found->second;
}

std::string reachText(const ReachSettings& settings)
{
	const Program reach(kReachProgram);
	std::string text = settings.address + " on lo: " + reach.state + (reach.running ? " since " + reach.since : "") +
	                   ", partner " + (reach.running ? reach.at("partner") : "unknown");
	for (const TargetState& target : reach.targets())
	{
		text += "\n  target " + target.address + ": " + target.state + " since " + timeText(target.since, 0);
	}
	return text + "\n";
}

void printText(const Settings& all, const Program& address, const std::vector<Program>& services, bool marker)
{
	const AddressSettings& settings = all.address;
	const std::string since = address.running && !address.since.empty() ? " since " + address.since : "";
	std::string text =
	    settings.text + " on " + settings.interface + ": " + sentence(address) + " (" + address.state + since + ")\n";
	if (!marker)
	{
		text +=
		    "the marker of " + settings.text + " is missing: the next take-over sets it again, or \"keeper mark\"\n";
	}
	for (const Program& service : services)
	{
		text += service.name + ": " + service.state;
		if (service.running)
		{
			text +=
			    " since " + service.since + ", restarts " + service.at("restarts") + ", check " + service.at("check");
		}
		const std::string reason = service.at("reason");
		text += (reason.empty() ? "" : "; last death: " + reason) + "\n";
	}
	text += all.reach.line != 0 ? reachText(all.reach) : "";
	std::fputs(text.c_str(), stdout);
}

using Json = nlohmann::ordered_json;

Json textOrNull(const std::string& text)
{
	return text.empty() ? Json() : Json(text);
}

long number(const Program& program, const char* key)
{
	return std::strtol(program.at(key).c_str(), nullptr, 10);
}

Json reachJson(const ReachSettings& settings)
{
	const Program reach(kReachProgram);
	Json targets = Json::array();
	for (const TargetState& target : reach.targets())
	{
		targets.push_back({{"address", target.address}, {"state", target.state}, {"since", timeText(target.since, 0)}});
	}
	return {{"address", settings.address},
	        {"running", reach.running},
	        {"state", reach.state},
	        {"held", reach.running && reach.at("held") == "yes"},
	        {"since", textOrNull(reach.running ? reach.since : "")},
	        {"needed", settings.needed},
	        {"partner", textOrNull(reach.running ? reach.at("partner") : "")},
	        {"targets", std::move(targets)}};
}

void printJson(const Settings& all, const Program& address, const std::vector<Program>& services, bool marker)
{
	const AddressSettings& settings = all.address;
	Json json;
	json["address"] = {{"address", settings.text},
	                   {"interface", settings.interface},
	                   {"on_conflict", settings.defend ? "defend" : "yield"},
	                   {"running", address.running},
	                   {"state", address.state},
	                   {"held", address.running && address.at("held") == "yes"},
	                   {"since", textOrNull(address.running ? address.since : "")},
	                   {"holder", textOrNull(address.running ? address.at("holder") : "")},
	                   {"conflicts", number(address, "conflicts")},
	                   {"removals", number(address, "removals")},
	                   {"marker", marker}};
	json["services"] = Json::array();
	for (const Program& service : services)
	{
		json["services"].push_back({{"name", service.name},
		                            {"running", service.running},
		                            {"state", service.state},
		                            {"since", textOrNull(service.since)},
		                            {"restarts", number(service, "restarts")},
		                            {"check", textOrNull(service.at("check"))},
		                            {"reason", textOrNull(service.at("reason"))}});
	}
	if (all.reach.line != 0)
	{
		json["reachability"] = reachJson(all.reach);
	}
	std::printf("%s\n", json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

int printStatus(const Settings& settings, bool json)
{
	std::vector<Program> services;
	for (const ServiceSettings& service : settings.services)
	{
		services.emplace_back(service.program);
	}
	const bool marker = look(settings.address).value_or(Sight()).marker;
	(json ? printJson : printText)(settings, Program(kAddressProgram), services, marker);
	return EX_OK;
}

// The rest.

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
	    {"status", [&] { return printStatus(parsed.settings, json); }}};
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
