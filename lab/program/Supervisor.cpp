#include "lab/program/Supervisor.h"

#include <csignal>
#include <iterator>
#include <sstream>

#include <nlohmann/json.hpp>
#include <sys/signalfd.h>
#include <unistd.h>

#include "lab/core/Lab.h"
#include "lab/program/ControlSocket.h"

namespace velarix::lab::program
{

namespace
{

/// Before any thread: all of them keep the signals blocked.
Descriptor endingSignals()
{
	sigset_t ending;
	sigemptyset(&ending);
	sigaddset(&ending, SIGTERM);
	sigaddset(&ending, SIGINT);
	::sigprocmask(SIG_BLOCK, &ending, nullptr);
	return Descriptor(::signalfd(-1, &ending, SFD_CLOEXEC));
}

std::string statusOf(const std::string& name, Lab& lab)
{
	nlohmann::ordered_json answer{{"name", name},
	                              {"supervisor", ::getpid()},
	                              {"upMs", lab.clock().now().count()},
	                              {"address", lab.owners()},
	                              {"service", lab.answeredBy()}};
	for (const HostId id : nodes)
	{
		const std::optional<Process> agent = lab.node(id).agent();
		answer["nodes"][nameOf(id)] = {
		    {"role", lab.role(id)}, {"on", lab.node(id).isOn()}, {"agentPid", agent ? agent->pidInside : -1}};
	}
	return answer.dump();
}

/// Of a fault that is on no node, the node means nothing.
Fault faultOrThrow(const std::string& name, const std::string& node)
{
	return faultFrom(infoOf(name).onNode && !node.empty() ? name + ":" + node : name);
}

std::string answerOf(const std::string& name, Lab& lab, const std::string& request)
{
	std::istringstream words(request);
	std::string verb;
	std::string first;
	std::string second;
	words >> verb >> first >> second;
	if (verb == "status")
	{
		return statusOf(name, lab);
	}
	if (verb == "timeline")
	{
		return toText(lab.timeline());
	}
	if (verb == "pid")
	{
		const std::optional<HostId> host = hostNamed(first);
		if (!host)
		{
			throw LabError("there is no host \"" + first + "\" (a, b, gateway, client)");
		}
		return std::to_string(lab.host(*host).pid());
	}
	if (verb == "inject")
	{
		lab.inject(faultOrThrow(first, second));
	}
	else if (verb == "repair")
	{
		lab.repair(faultOrThrow(first, second));
	}
	else if (verb != "down")
	{
		throw LabError("unknown request: " + verb);
	}
	return "ok";
}

} // namespace

void supervise(StateDirectory& directory, const SupervisorOptions& options)
{
	const Descriptor signals = endingSignals();
	directory.lock();
	std::error_code ignored;
	std::filesystem::remove(directory.controlSocket(), ignored);

	LabOptions labOptions(options.installRoot, options.times);
	std::istringstream words(options.wrapper);
	labOptions.wrapper = {std::istream_iterator<std::string>(words), {}};
	Lab lab(labOptions);
	if (options.startAgents)
	{
		lab.startAgents();
	}
	bool down = false;
	const auto answer = [&](const std::string& request)
	{
		down = request == "down";
		try
		{
			return answerOf(directory.name(), lab, request);
		}
		catch (const std::exception& error)
		{
			return std::string("error: ") + error.what();
		}
	};
	serve(directory.controlSocket(), signals.get(), answer, [&] { return !down; });
	directory.remove();
}

} // namespace velarix::lab::program
