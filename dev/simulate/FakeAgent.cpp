/// What the agent's decision code stands on, in place of the daemon's own objects: settings,
/// log, run-info record, run script, fatal conditions, commands, pings, threads and waits.

#include <algorithm>
#include <cstdarg>
#include <ctime>

#include <Poco/Exception.h>
#include <Poco/Runnable.h>
#include <Poco/Thread.h>

#include "CAgent.h"
#include "Configuraion.h"
#include "Outside.h"
#include "QuorinINI.h"
#include "Utilities.h"
#include "VelarixLog.h"
#include "dev/simulate/Programs.h"
#include "lab/core/LogWatch.h"
#include "velarix/fatal.h"

using velarix::simulate::kMilli;
using velarix::simulate::kSecond;
using velarix::simulate::self;
using velarix::simulate::selfProcess;
using velarix::simulate::world;

namespace sim = velarix::simulate;
namespace inspect = velarix::inspect;
namespace lab = velarix::lab;

// Settings.

Configuraion* Configuraion::pConf = nullptr;

Configuraion::Configuraion(const std::string& /*path*/)
{
}

Configuraion* Configuraion::getInstance(const std::string& path)
{
	static Configuraion settings(path);
	return &settings;
}

std::string Configuraion::getString(const std::string& key)
{
	return self().settings.at(key);
}

int Configuraion::getInt(const std::string& key)
{
	return std::atoi(self().settings.at(key).c_str());
}

// The log: nobody reads its texts.

namespace
{

VelarixLog g_log;

constexpr MODE kMaster = MODE_MASTER;
constexpr MODE kSlave = MODE_SLAVE;

/// @return the role that the line reports; null for none. By number, since that is fast; no two labels
///         share one that reports a role
const MODE* reportedBy(const char* label, int number)
{
	constexpr std::size_t kNumbers = 1000;
	static const std::array reports = []
	{
		std::array<const lab::LogMeaning*, kNumbers> meanings{};
		inspect::LogLine line;
		for (const char* each : {"CAgent", "CHeartReciver"})
		{
			line.label = each;
			for (line.number = 0; line.number < std::ssize(meanings); ++line.number)
			{
				const lab::LogMeaning* found = lab::meaningOf(line);
				if (found != nullptr && found->role != nullptr)
				{
					meanings.at(static_cast<std::size_t>(line.number)) = found;
				}
			}
		}
		return meanings;
	}();
	const lab::LogMeaning* meaning =
	    std::cmp_less(number, kNumbers) ? reports.at(static_cast<std::size_t>(number)) : nullptr;
	return meaning == nullptr || meaning->label != label ? nullptr
	       : std::string_view(meaning->role) == "master" ? &kMaster
	                                                     : &kSlave;
}

void note(const char* label, int number)
{
	const MODE* role = reportedBy(label, number);
	self().loggedRole = role != nullptr ? role : self().loggedRole;
	world().recording ? world().logged(self(), label, number) : void();
}

} // namespace

VelarixLog* velarixLog = &g_log;

#define LEVEL(name)                                                                                                    \
	void VelarixLog::name(const char* file, int line, const char* /*format*/, ...)                                     \
	{                                                                                                                  \
		note(file, line);                                                                                              \
	}
LEVEL(debug)
LEVEL(info)
LEVEL(notice)
LEVEL(warning)
LEVEL(error)
#undef LEVEL

// The run-info record and the run script.

bool initialization::loadFile(const std::string& /*path*/)
{
	return true;
}

std::string initialization::getString(const std::string& /*key*/)
{
	return self().startTime;
}

bool initialization::changeINI(const std::string& /*key*/, const std::string& value)
{
	self().startTime = value;
	return true;
}

void CAgent::makeProcessRunShellScript()
{
}

// The end.

void velarix::fatal(const char* /*expression*/, const char* /*source*/, unsigned /*line*/, const char* /*function*/)
{
	self().threadEnded = true;
	world().end(selfProcess(), SIGABRT);
	throw sim::Killed{};
}

// Commands and pings.

namespace
{

struct Output
{
	std::string text;
	std::size_t at = 0;
};

ssize_t readOutput(void* cookie, char* buffer, std::size_t size)
{
	auto* output = static_cast<Output*>(cookie);
	const std::size_t length = output->text.copy(buffer, size, output->at);
	output->at += length;
	return static_cast<ssize_t>(length);
}

int closeOutput(void* cookie)
{
	delete static_cast<Output*>(cookie);
	return 0;
}

/// The holder that answers a ping of the virtual address from `node`.
sim::Host holderFor(const sim::Node& node)
{
	for (const sim::Host host : {sim::hostA, sim::hostB, sim::hostRogue})
	{
		if (host != node.id && world().holds(host) && world().linked(sim::serviceNetwork, node.id, host))
		{
			return host;
		}
	}
	return sim::hostNone;
}

/// One echo request. The library takes a late answer to an earlier one of the series, too.
/// @return whether an answer came
bool echo(sim::Network network, sim::Host to, sim::Micros began)
{
	constexpr sim::Micros kSilence = 106 * kMilli; // it waits so long for each
	const sim::Host from = self().id;
	const sim::Micros trip =
	    to == sim::hostNone ? sim::kNoTime : world().latency(network, from, to) + world().latency(network, to, from);
	const bool inTime = trip < kSilence / 2 || world().now() - began >= trip;
	const bool answered =
	    to != sim::hostNone && inTime && world().delivers(network, from, to) && world().delivers(network, to, from);
	world().sleepFor(answered ? std::min(trip, kSilence) : kSilence);
	return answered;
}

} // namespace

namespace outside
{

std::FILE* openPipe(const std::string& command)
{
	auto* output = new Output{sim::runCommand(command)};
	return ::fopencookie(output, "r", {readOutput, nullptr, nullptr, closeOutput});
}

int closePipe(std::FILE* pipe)
{
	return std::fclose(pipe);
}

int runShell(const std::string& command)
{
	command.starts_with("chmod") ? world().sleepFor(world().effort(self(), 2 * kMilli)) : sim::runScript();
	return 0;
}

Poco::ProcessHandle launch(const std::string& path, const std::vector<std::string>& arguments)
{
	return Poco::Process::launch(path, arguments); // not called by the decision code
}

int ping(const std::string& address, int count)
{
	const sim::Node& node = self();
	const bool partner = address == node.settings.find("AGENT.PARTNER_IP")->second;
	const bool service = address == sim::kVirtualAddress;
	const bool reach = address == sim::kReachAddress;
	const sim::Micros began = world().now();
	int replies = 0;
	if (reach && !node.reachAddress)
	{
		throw Poco::IOException("Network is unreachable", address, ENETUNREACH);
	}
	for (int i = 0; i < count; ++i)
	{
		if (reach || (service && node.address))
		{
			replies += i % 2; // the library takes every second one for a foreign answer
			continue;
		}
		const sim::Host to = service ? holderFor(node) : partner ? world().other(node).id : sim::hostGateway;
		replies += echo(service ? sim::serviceNetwork : sim::communicationNetwork, to, began) ? 1 : 0;
	}
	return replies;
}

} // namespace outside

// Threads, waits, the clock.

extern "C"
{
	void __wrap__ZN4Poco10ThreadImpl9sleepImplEl(long milliseconds)
	{
		// A wait may be late, on an overloaded node much.
		world().sleepFor(milliseconds * kMilli + world().random.between(30, 300) +
		                 (self().slow ? world().random.below(300 * kMilli) : 0));
	}

	void __wrap__ZN4Poco6Thread5startERNS_8RunnableE(Poco::Thread* /*pThread*/, Poco::Runnable& target)
	{
		world().runTask(selfProcess(),
		                [&target]
		                {
			                try
			                {
				                target.run();
			                }
			                catch (const Poco::Exception&)
			                {
				                // The thread ends, the agent goes on.
			                }
			                self().threadEnded = true;
		                });
	}

	std::time_t __wrap_time(std::time_t* pResult)
	{
		constexpr std::time_t kStart = 1'790'000'000;
		const std::time_t now = kStart + world().now() / kSecond;
		return pResult != nullptr ? *pResult = now : now;
	}
}
