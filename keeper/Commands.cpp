#include "keeper/Commands.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sysexits.h>
#include <unistd.h>

#include "keeper/Guard.h"
#include "keeper/Network.h"
#include "keeper/Process.h"
#include "keeper/Runtime.h"

namespace velarix::keeper::commands
{

namespace
{

/// Probing, a few times backing off, and a loaded machine: longer takes nothing that works.
constexpr Millis kRaiseLimit = 5'000;
constexpr Millis kAddressPatience = 2'000;
constexpr Millis kStartPatience = 2'000;
/// More than a supervisor needs after stop_timeout.
constexpr Millis kSupervisorPatience = 3'000;

void say(const std::string& text)
{
	std::printf("%s\n", text.c_str());
	std::fflush(stdout);
}

/// TERM, and KILL after `patience`, to both processes of a program.
void endProgram(const std::string& program, Millis patience)
{
	for (const Part part : {Part::guard, Part::worker})
	{
		const LivingProcess process(program, part);
		if (!process)
		{
			continue;
		}
		process.signal(SIGTERM);
		// Frozen, it would not hear it.
		process.signal(SIGCONT);
		if (process.waitForEnd(patience))
		{
			continue;
		}
		// The guard ends what is left of a worker that is killed.
		LivingProcess(program, Part::worker).signal(SIGKILL);
		if (!process.waitForEnd(kSupervisorPatience))
		{
			process.signal(SIGKILL);
			process.waitForEnd(kSupervisorPatience);
		}
	}
}

int endAddress(const Settings& settings)
{
	if (settings.address.address == 0 || settings.address.interface.empty())
	{
		say("keeper.ini has no address");
		return EX_CONFIG;
	}
	waitForStart(kStartPatience);
	endProgram(kAddressProgram, kAddressPatience);
	if (const int error = removeAddress(settings.address); error != 0)
	{
		say(settings.address.text + " cannot be removed from " + settings.address.interface + ": " +
		    std::strerror(error));
		return EX_OSERR;
	}
	return EX_OK;
}

/// A copy of this process becomes ha-address, with nothing of our caller's.
void startHolder(const Settings& settings)
{
	if (::fork() == 0)
	{
		const int null = ::open("/dev/null", O_RDWR);
		for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
		{
			::dup2(null, standard);
		}
		::_exit(runAddress(settings));
	}
}

/// Why it is not held, when that is known for certain.
std::string obstacle(const Fields& fields)
{
	const std::string state = valueOf(fields, "state");
	if (state == "waiting" || state == "yielded")
	{
		return valueOf(fields, "address") + " is held by " + valueOf(fields, "holder") + " since " +
		       timeText(std::strtoll(valueOf(fields, "since").c_str(), nullptr, 10), 0);
	}
	if (state == "offline")
	{
		return valueOf(fields, "interface") + " is missing, down or without carrier";
	}
	return {};
}

} // namespace

int raise(const Settings& settings)
{
	beInTime();
	makeRuntimeDirectory();
	AddressWatch watch;
	// Without it an agent whose address is held elsewhere tries this for good, as a master that hears nothing.
	setMarker(settings.address);
	const bool started = holderOf(kAddressProgram, Part::guard) == 0;
	if (started)
	{
		startHolder(settings);
	}
	const Millis end = now() + kRaiseLimit;
	for (Fields seen = watch.look(); valueOf(seen, "held") != "yes"; seen = watch.look())
	{
		std::string reason = obstacle(seen);
		if (reason.empty() && now() >= end)
		{
			reason = settings.address.text + " could not be raised within 5 s";
		}
		if (!reason.empty())
		{
			say(reason);
			started ? endProgram(kAddressProgram, kAddressPatience) : void();
			return EX_TEMPFAIL;
		}
		pollfd waiting{watch.changes(), POLLIN, 0};
		::poll(&waiting, 1, static_cast<int>(std::max<Millis>(end - now(), 0)));
	}
	return EX_OK;
}

int drop(const Settings& settings)
{
	const int result = endAddress(settings);
	for (const ServiceSettings& service : settings.services)
	{
		// A frozen supervisor would keep its service running without the address.
		for (const Part part : {Part::guard, Part::worker})
		{
			LivingProcess(service.program, part).signal(SIGCONT);
		}
		// Both were killed while it ran: nobody else ends it.
		if (hasEnded(service.program))
		{
			endOrphans(service);
		}
	}
	if (settings.address.address != 0)
	{
		setMarker(settings.address);
	}
	return result;
}

int stop(const Settings& settings, const std::string& program)
{
	if (program == kAddressProgram)
	{
		return endAddress(settings);
	}
	if (const std::string whole = std::string(kPrefix) + program; settings.find(whole) != nullptr)
	{
		say(program + " is called " + whole + ": keeper stop " + whole);
		return EX_USAGE;
	}
	if (!program.starts_with(kPrefix) || program.size() > kLongestName || program.find('/') != std::string::npos)
	{
		say(program + " is no program of the keeper: make it a [service]");
		return EX_USAGE;
	}
	ServiceSettings service;
	service.program = program;
	if (const ServiceSettings* found = settings.find(program); found != nullptr)
	{
		service = *found;
	}
	endProgram(program, service.stopTimeout * 1000LL + kSupervisorPatience);
	// Both processes were killed while the service ran.
	if (!endOrphans(service))
	{
		say("something of " + program + " is left and does not end");
		return EX_OSERR;
	}
	return EX_OK;
}

int mark(const Settings& settings)
{
	const int error = setMarker(settings.address);
	if (error != 0)
	{
		say("the marker of " + settings.address.text + " cannot be set (" + std::strerror(error) +
		    "): neither IPv6 on lo nor an interface of the kinds dummy or bridge");
	}
	return error != 0 ? EX_UNAVAILABLE : EX_OK;
}

int unmark(const Settings& settings)
{
	const int error = look(settings.address).value_or(Sight()).marker ? removeMarker(settings.address) : 0;
	if (error != 0)
	{
		say("the marker of " + settings.address.text + " cannot be removed: " + std::strerror(error));
	}
	return error != 0 ? EX_OSERR : EX_OK;
}

int check()
{
	ParsedSettings parsed = readSettings();
	const std::vector<Finding> more = checkMachine(parsed.settings);
	parsed.findings.insert(parsed.findings.end(), more.begin(), more.end());
	std::ranges::stable_sort(parsed.findings, {}, &Finding::line);
	for (const Finding& finding : parsed.findings)
	{
		say(std::string(kSettingsFile) + ":" + std::to_string(finding.line) + ": " +
		    (finding.status == 0 ? "warning: " : "error: ") + finding.text + "; " + finding.cure);
	}
	const Finding* error = parsed.error();
	return error != nullptr ? error->status : EX_OK;
}

} // namespace velarix::keeper::commands
