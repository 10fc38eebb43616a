#include "lab/program/Supervisor.h"

#include <csignal>
#include <iostream>
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

class Supervisor
{
public:
	Supervisor(std::string name, Lab& lab) : m_name(std::move(name)), m_lab(lab) {}

	bool goOn() const { return !m_down; }

	std::string answer(const std::string& request)
	{
		std::istringstream words(request);
		std::string verb;
		std::string first;
		std::string second;
		words >> verb >> first >> second;
		try
		{
			return act(verb, first, second);
		}
		catch (const std::exception& error)
		{
			return std::string("error: ") + error.what();
		}
	}

private:
	std::string m_name;
	Lab& m_lab;
	bool m_down = false;

	std::string act(const std::string& verb, const std::string& first, const std::string& second)
	{
		if (verb == "status")
		{
			return status();
		}
		if (verb == "pid")
		{
			return std::to_string(m_lab.host(hostOrThrow(first)).pid());
		}
		if (verb == "inject")
		{
			m_lab.inject(faultOrThrow(first, second));
			return "ok";
		}
		if (verb == "repair")
		{
			m_lab.repair(faultOrThrow(first, second));
			return "ok";
		}
		if (verb == "timeline")
		{
			return toText(m_lab.timeline());
		}
		if (verb == "down")
		{
			m_down = true;
			return "ok";
		}
		throw LabError("unknown request: " + verb);
	}

	static HostId hostOrThrow(const std::string& name)
	{
		const std::optional<HostId> host = hostNamed(name);
		if (!host)
		{
			throw LabError("there is no host \"" + name + "\" (a, b, gateway, client)");
		}
		return *host;
	}

	/// Of a fault that is on no node, the node means nothing.
	static Fault faultOrThrow(const std::string& name, const std::string& node)
	{
		const std::optional<FaultKind> kind = faultNamed(name);
		return faultFrom(kind && infoOf(*kind).onNode && !node.empty() ? name + ":" + node : name);
	}

	std::string status()
	{
		nlohmann::ordered_json answer{{"name", m_name},
		                              {"supervisor", ::getpid()},
		                              {"upMs", m_lab.clock().now().count()},
		                              {"address", m_lab.owners()},
		                              {"service", m_lab.answeredBy()}};
		for (const HostId id : nodes)
		{
			const std::optional<Process> agent = m_lab.node(id).agent();
			answer["nodes"][nameOf(id)] = {
			    {"role", m_lab.role(id)}, {"on", m_lab.node(id).isOn()}, {"agentPid", agent ? agent->pidInside : -1}};
		}
		return answer.dump();
	}
};

} // namespace

void supervise(StateDirectory& directory, const SupervisorOptions& options)
{
	const Descriptor signals = endingSignals();
	directory.lock();
	std::error_code ignored;
	std::filesystem::remove(directory.controlSocket(), ignored);
	requireLab(options.installRoot);

	LabOptions labOptions(options.installRoot, options.times);
	std::istringstream words(options.wrapper);
	labOptions.wrapper = {std::istream_iterator<std::string>(words), {}};
	Lab lab(labOptions);
	if (options.startAgents)
	{
		lab.startAgents();
	}
	Supervisor supervisor(directory.name(), lab);
	ControlServer server(directory.controlSocket());
	server.serve(
	    signals.get(), [&](const std::string& request) { return supervisor.answer(request); },
	    [&] { return supervisor.goOn(); });
	directory.remove();
}

} // namespace velarix::lab::program
