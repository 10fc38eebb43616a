#include "lab/core/Lab.h"

#include <csignal>
#include <filesystem>
#include <functional>

#include "lab/core/Node.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

/// The files of a node fail in the library's own words.
void inLabErrors(const std::function<void()>& step)
{
	try
	{
		step();
	}
	catch (const std::filesystem::filesystem_error& error)
	{
		throw LabError(error.what());
	}
}

} // namespace

void LabOptions::prepareFor(const std::string& fault)
{
	if (const auto prepare = infoOf(fault).prepare)
	{
		prepare(*this);
	}
}

Lab::Lab(const LabOptions& options)
    : m_seed(options.seed), m_installRoot(findInstallRoot(options.installRoot)),
      m_rootHost({"lab-root", HostKind::root, 0, 0, {}}), m_wiring(m_rootHost)
{
	m_gateway = makeHost(HostId::gateway);
	m_client = makeHost(HostId::client);
	m_wiring.plugIn(HostId::gateway, *m_gateway);
	m_wiring.plugIn(HostId::client, *m_client);

	m_logWatch.emplace(m_timeline, m_clock);
	m_addressSampler.emplace(m_timeline, m_clock);
	m_serviceSampler.emplace(m_timeline, m_clock, *m_client);
	for (const HostId id : nodes)
	{
		const NodeSettings& settings = id == HostId::a ? options.settingsA : options.settingsB;
		m_nodes[indexOf(id)] = std::make_unique<Node>(id, m_rootHost, m_installRoot, firstProcessOf(id, m_seed));
		node(id).writeSettings(settings);
		node(id).wrapAgent(options.wrapper);
		if (options.clockShim)
		{
			node(id).useClockShim();
		}
		m_logWatch->follow(id, node(id).diskFile(settings.get("LOG.PATH")));
		bootAndConnect(id);
	}
	if (options.settingsA.usesTunnel())
	{
		makeTunnel(node(HostId::a), node(HostId::b));
		for (const HostId id : nodes)
		{
			node(id).writeSettings(id == HostId::a ? options.settingsA : options.settingsB);
			startTunnel(node(id));
		}
	}
}

Lab::~Lab() = default;

std::unique_ptr<Host> Lab::makeHost(HostId id) const
{
	return std::make_unique<Host>(HostSpec{nameOf(id), HostKind::host, firstProcessOf(id, m_seed), 0, {}});
}

const Host& Lab::host(HostId id)
{
	switch (id)
	{
	case HostId::gateway:
		return *m_gateway;
	case HostId::client:
		return *m_client;
	case HostId::third:
		if (!m_third)
		{
			auto made = std::make_unique<Host>(HostSpec{"attacker", HostKind::host, 40000, 0, {}});
			m_wiring.plugIn(id, *made);
			m_third = std::move(made);
		}
		return *m_third;
	default:
		return node(id).host();
	}
}

void Lab::setRole(HostId id, const std::string& role)
{
	m_timeline.change(roleTrack(id), m_clock.now(), role);
}

void Lab::bootAndConnect(HostId id)
{
	node(id).boot();
	m_wiring.plugIn(id, node(id).host());
	m_addressSampler->attach(id, node(id).host());
	setRole(id, "no agent");
	if (std::filesystem::exists(node(id).file(plan::partnerKey)))
	{
		startTunnel(node(id));
	}
}

void Lab::startAgents()
{
	for (const HostId id : nodes)
	{
		startAgent(id);
	}
}

void Lab::startAgent(HostId id)
{
	if (node(id).agent())
	{
		throw LabError(nodeText(id) + " has an agent already");
	}
	node(id).host();
	setRole(id, "starting");
	try
	{
		node(id).startAgent();
	}
	catch (const LabError&)
	{
		setRole(id, "no agent");
		throw;
	}
	if (const std::optional<Process> agent = node(id).agent())
	{
		m_logWatch->agentRuns(id, agent->pid);
	}
}

void Lab::killAgent(HostId id, int signal)
{
	if (!node(id).agent())
	{
		throw LabError(nodeText(id) + " has no agent to kill");
	}
	m_logWatch->forgetAgent(id);
	node(id).signalAgent(signal);
	if (!waitFor([&] { return !node(id).agent(); }, Millis(30000), "the killed agent to be gone"))
	{
		throw LabError("the agent of " + nodeText(id) + " does not end");
	}
	m_logWatch->catchUp(id);
	setRole(id, "no agent");
}

void Lab::freezeAgent(HostId id)
{
	if (!node(id).signalAgent(SIGSTOP))
	{
		throw LabError(nodeText(id) + " has no agent to freeze");
	}
	m_logWatch->catchUp(id);
	m_roleBeforeFreeze[indexOf(id)] = role(id);
	setRole(id, "frozen");
}

void Lab::thawAgent(HostId id)
{
	if (role(id) != "frozen")
	{
		throw LabError("the agent of " + nodeText(id) + " is not frozen");
	}
	setRole(id, m_roleBeforeFreeze[indexOf(id)]);
	node(id).signalAgent(SIGCONT);
}

void Lab::freezeHost(HostId id)
{
	const pid_t init = node(id).host().pid();
	m_logWatch->catchUp(id);
	m_roleBeforeFreeze[indexOf(id)] = role(id);
	m_wiring.setBridged(id, false);
	// Until none is left that could start another one.
	for (bool running = true; running;)
	{
		running = false;
		for (const Process& entry : processesOf(init))
		{
			if (entry.pidInside != 1 && entry.state != 'T' && entry.state != 'Z')
			{
				running = signalInHost(init, entry.pid, SIGSTOP) || running;
			}
		}
	}
	m_addressSampler->detach(id);
	setRole(id, "frozen");
}

void Lab::thawHost(HostId id)
{
	if (role(id) != "frozen")
	{
		throw LabError(nodeText(id) + " is not frozen");
	}
	const pid_t init = node(id).host().pid();
	setRole(id, m_roleBeforeFreeze[indexOf(id)]);
	m_addressSampler->attach(id, node(id).host());
	m_wiring.setBridged(id, true);
	for (const Process& entry : processesOf(init))
	{
		signalInHost(init, entry.pid, SIGCONT);
	}
}

void Lab::powerOff(HostId id)
{
	node(id).host();
	m_logWatch->forgetAgent(id);
	m_wiring.setAllPorts(id, false);
	node(id).switchOff();
	m_addressSampler->detach(id);
	m_logWatch->catchUp(id);
	setRole(id, "off");
	m_wiring.unplug(id);
}

void Lab::powerOn(HostId id, bool withAgent)
{
	if (node(id).isOn())
	{
		throw LabError(nodeText(id) + " is on already");
	}
	bootAndConnect(id);
	if (withAgent)
	{
		startAgent(id);
	}
}

void Lab::carryOut(EventKind kind, const Fault& fault, FaultInfo::Step step)
{
	const FaultInfo& info = infoOf(fault.name);
	const std::optional<HostId> host = info.onNode ? std::optional<HostId>(fault.node) : std::nullopt;
	m_timeline.add({m_clock.now(), kind, host, kind == EventKind::fault ? info.what : info.repaired});
	try
	{
		inLabErrors([&] { step(*this, fault.node); });
	}
	catch (const LabError& error)
	{
		m_timeline.add(
		    {m_clock.now(), EventKind::action, std::nullopt, toName(fault) + " did not come about: " + error.what()});
		throw;
	}
}

void Lab::inject(const Fault& fault)
{
	const FaultInfo& info = infoOf(fault.name);
	if (info.require != nullptr)
	{
		inLabErrors([&] { info.require(*this, fault.node); });
	}
	carryOut(EventKind::fault, fault, info.inject);
}

void Lab::repair(const Fault& fault)
{
	const FaultInfo& info = infoOf(fault.name);
	if (info.repair == nullptr)
	{
		throw LabError(std::string("there is nothing to repair after ") + info.name);
	}
	carryOut(EventKind::repair, fault, info.repair);
}

CommandResult Lab::run(HostId id, const std::vector<std::string>& argv, Millis limit)
{
	return lab::run({argv, {}, host(id).inside(), limit});
}

std::string Lab::stateText() const
{
	return "address " + owners() + ", answer " + answeredBy() + ", a " + role(HostId::a) + ", b " + role(HostId::b);
}

bool Lab::waitForService(HostId node, Millis limit, Millis steady, const WaitObserver& observer)
{
	std::optional<Millis> since;
	const auto holds = [&]
	{
		const bool well = owners() == nameOf(node) && answeredBy() == nameOf(node);
		since = well ? since.value_or(m_clock.now()) : std::optional<Millis>();
		return since && m_clock.now() - *since >= steady;
	};
	const std::string what = nodeText(node) + " to serve alone";
	return Wait{what, limit, [&] { return stateText(); }, observer}.until(holds);
}

void requireLab(const std::filesystem::path& installRoot)
{
	if (const std::optional<std::string> problem = namespaceProblem())
	{
		throw NamespacesUnavailable(*problem);
	}
	requireTools();
	findInstallRoot(installRoot);
}

} // namespace velarix::lab
