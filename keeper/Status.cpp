// "keeper status": what the state files say of what lives.
#include "Commands.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include <sysexits.h>
#include <unistd.h>

#include "AddressHolder.h"
#include "Journal.h"
#include "Runtime.h"

namespace velarix::keeper::commands
{

namespace
{

struct Program
{
	std::string name;
	bool running = false;
	Fields fields;
};

Program programOf(const std::string& name)
{
	Program program{name, false, readState(name)};
	const pid_t worker = holderOf(name, Part::worker);
	// Only root can ask for the lock.
	const std::string pid = valueOf(program.fields, "pid");
	program.running =
	    worker != 0 || (::geteuid() != 0 && !pid.empty() && ::access(("/proc/" + pid).c_str(), F_OK) == 0);
	return program;
}

std::string stateOf(const Program& program)
{
	const std::string state = valueOf(program.fields, "state");
	if (!program.running)
	{
		return state == "failed" ? "failed" : "stopped";
	}
	return state.empty() ? "starting" : state;
}

std::string sinceOf(const Program& program)
{
	const long long since = std::strtoll(valueOf(program.fields, "since").c_str(), nullptr, 10);
	return since > 0 ? timeText(since, 0) : "";
}

std::string quoted(const std::string& text)
{
	std::string json = "\"";
	for (const char sign : text)
	{
		if (sign == '"' || sign == '\\')
		{
			json += '\\';
		}
		if (static_cast<unsigned char>(sign) < 0x20)
		{
			std::array<char, 8> escaped{};
			std::snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(sign));
			json += escaped.data();
			continue;
		}
		json += sign;
	}
	return json + "\"";
}

std::string member(const std::string& name, const std::string& value)
{
	return quoted(name) + ": " + (value.empty() ? "null" : quoted(value));
}

std::string numberMember(const std::string& name, const std::string& value)
{
	return quoted(name) + ": " + (value.empty() ? "0" : value);
}

std::string truth(const std::string& name, bool value)
{
	return quoted(name) + ": " + (value ? "true" : "false");
}

std::string sentence(const Program& address)
{
	const std::string state = stateOf(address);
	const std::string holder = valueOf(address.fields, "holder");
	if (state == "announcing" || state == "holding")
	{
		return "held here";
	}
	if (state == "rechecking")
	{
		return "held here; asks whether another host holds it, too";
	}
	if (state == "waiting")
	{
		return "waits: " + holder + " holds it and serves; nothing to do here, repair the network between the nodes";
	}
	if (state == "yielded")
	{
		return "given up to " + holder + ", which serves; nothing to do here, repair the network between the nodes";
	}
	if (state == "offline")
	{
		return "cannot be held: " + valueOf(address.fields, "interface") + " is missing, down or without carrier";
	}
	return state == "stopped" ? "not held here: this node is the standby, or its agent does not run"
	                          : "asks whether it is free";
}

void printText(const Settings& settings, const Program& address, const std::vector<Program>& services, bool marker)
{
	const std::string since = sinceOf(address);
	std::printf("%s on %s: %s (%s%s%s)\n", settings.address.text.c_str(), settings.address.interface.c_str(),
	            sentence(address).c_str(), stateOf(address).c_str(), since.empty() || !address.running ? "" : " since ",
	            address.running ? since.c_str() : "");
	if (!marker)
	{
		std::printf("the marker ::%s is missing: a take-over takes five seconds longer; \"keeper mark\" sets it\n",
		            settings.address.text.c_str());
	}
	for (const Program& service : services)
	{
		const std::string reason = valueOf(service.fields, "reason");
		std::printf("%s: %s", service.name.c_str(), stateOf(service).c_str());
		if (service.running)
		{
			std::printf(" since %s, restarts %s, check %s", sinceOf(service).c_str(),
			            valueOf(service.fields, "restarts").c_str(), valueOf(service.fields, "check").c_str());
		}
		std::printf("%s%s\n", reason.empty() ? "" : "; last death: ", reason.c_str());
	}
}

void printJson(const Settings& settings, const Program& address, const std::vector<Program>& services, bool marker)
{
	const auto field = [&](const char* key) { return valueOf(address.fields, key); };
	std::string json =
	    "{\"address\": {" + member("address", settings.address.text) + ", " +
	    member("interface", settings.address.interface) + ", " +
	    member("on_conflict", settings.address.defend ? "defend" : "yield") + ", " + truth("running", address.running) +
	    ", " + member("state", stateOf(address)) + ", " + truth("held", address.running && field("held") == "yes") +
	    ", " + member("since", address.running ? sinceOf(address) : "") + ", " +
	    member("holder", address.running ? field("holder") : "") + ", " +
	    numberMember("conflicts", field("conflicts")) + ", " + numberMember("removals", field("removals")) + ", " +
	    truth("marker", marker) + "}, \"services\": [";
	const char* separator = "";
	for (const Program& service : services)
	{
		json += separator;
		json += "{" + member("name", service.name) + ", " + truth("running", service.running) + ", " +
		        member("state", stateOf(service)) + ", " + member("since", sinceOf(service)) + ", " +
		        numberMember("restarts", valueOf(service.fields, "restarts")) + ", " +
		        member("check", valueOf(service.fields, "check")) + ", " +
		        member("reason", valueOf(service.fields, "reason")) + "}";
		separator = ", ";
	}
	std::printf("%s]}\n", json.c_str());
}

} // namespace

int status(const Settings& settings, bool json)
{
	const Program address = programOf(kAddressProgram);
	std::vector<Program> services;
	for (const ServiceSettings& service : settings.services)
	{
		services.push_back(programOf(service.program));
	}
	Netlink netlink;
	const bool marker = hasMarker(netlink, settings.address.address);
	json ? printJson(settings, address, services, marker) : printText(settings, address, services, marker);
	return EX_OK;
}

} // namespace velarix::keeper::commands
