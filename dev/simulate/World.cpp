#include "dev/simulate/World.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "dev/simulate/Programs.h"

namespace velarix::simulate
{

namespace
{

World* g_pWorld = nullptr;

/// After so long without an answer the client asks anew who has the address.
constexpr Micros kClientPatience = 8 * kSecond;
/// From power on to the agent's start.
constexpr Micros kBoot = 300 * kMilli;
constexpr Micros kCommandsSlower = 10;
constexpr Micros kClientLooks = 500 * kMilli;

} // namespace

World& world()
{
	return *g_pWorld;
}

World::World(Profile itsProfile, std::uint64_t seed, bool itRecords)
    : profile(itsProfile), recording(itRecords), random(seed),
      scheduler({[](const Task& task) { return !task.process->stopped && !task.process->node->frozen; },
                 [](Task& task) { g_specialAsking = task.process->node->asking; },
                 [](Task& task) { task.process->node->asking = g_specialAsking; },
                 [this] { observe ? observe() : void(); }})
{
	g_pWorld = this;
	for (const Host id : {hostA, hostB})
	{
		node(id).id = id;
		writeSettings(node(id), profile);
	}
	clientAsks();
}

World::~World() = default;

void World::powerOn(Node& node)
{
	if (node.on)
	{
		return;
	}
	node.on = true;
	node.marker = profile == Profile::keeper;
	++node.announcer;
	scheduler.at(now() + random.between(kBoot / 3, kBoot), [this, &node, boot = node.announcer]
	             { node.on&& node.announcer == boot ? startAgent(node) : void(); });
}

void World::powerOff(Node& node)
{
	for (const auto& process : node.processes)
	{
		process->parent = nullptr;
		end(*process, SIGKILL);
	}
	node.on = false;
	node.frozen = false;
	node.address = false;
	node.marker = false;
	node.reachAddress = false;
	node.datagrams.clear();
	node.states.clear();
	node.arp.clear();
	++node.announcer;
}

void World::startAgent(Node& node)
{
	if (node.on && find(node, kAgent) == nullptr)
	{
		node.asking = 0;
		node.threadEnded = false;
		node.loggedRole = nullptr;
		const bool reaches = profile == Profile::plain || find(node, keeper::kReachProgram) != nullptr;
		reaches ? void() : startManaged(node, keeper::kReachProgram);
		runTask(start(node, kAgent, nullptr), runAgent);
	}
}

void World::freeze(Node& node, bool frozen)
{
	node.frozen = frozen;
	for (const auto& process : node.processes)
	{
		frozen ? void() : wake(*process);
	}
}

Process& World::start(Node& node, const std::string& name, Process* parent, Micros visibleIn)
{
	std::erase_if(node.processes, [](const auto& old)
	              { return !old->alive && old->tasks.empty() && (old->reaped || old->parent == nullptr); });
	Process& process = *node.processes.emplace_back(std::make_unique<Process>());
	process.pid = ++node.lastPid;
	process.node = &node;
	process.name = name;
	process.parent = parent;
	process.visibleAt = now() + visibleIn;
	return process;
}

void World::runTask(Process& process, std::function<void()> body)
{
	process.tasks.push_back(&scheduler.spawn(process, std::move(body)));
}

void World::end(Process& process, int status)
{
	if (!process.alive)
	{
		return;
	}
	process.alive = false;
	process.status = status;
	for (Task* task : process.tasks)
	{
		task->finished ? void() : scheduler.kill(*task);
	}
	if (process.parent != nullptr && process.parent->alive)
	{
		process.parent->signals.push_back(SIGCHLD);
		wake(*process.parent);
	}
	for (const auto& child : process.node->processes)
	{
		child->parent = child->parent == &process ? nullptr : child->parent;
	}
	for (const auto& one : process.node->processes)
	{
		wake(*one); // whoever waits for its end
	}
	if (Scheduler::current() != nullptr && Scheduler::current()->process == &process)
	{
		throw Killed{};
	}
}

void World::endIn(Micros time, const Process& process, int status)
{
	scheduler.at(now() + time,
	             [this, pNode = process.node, pid = process.pid, status]
	             {
		             Process* found = processOf(*pNode, pid);
		             found != nullptr ? end(*found, status) : void();
	             });
}

void World::terminate(Process& process)
{
	process.name == kService ? endIn(stopTime, process, SIGTERM) : end(process, SIGTERM);
}

void World::signal(Process& process, int number)
{
	if (!process.alive)
	{
		return;
	}
	switch (number)
	{
	case SIGSTOP:
		process.stopped = true;
		return;
	case SIGCONT:
		wake(process);
		std::exchange(process.stopped, false) && process.termPending ? terminate(process) : void();
		return;
	case SIGTERM:
		if (process.takesSignals)
		{
			process.signals.push_back(number);
			wake(process);
			return;
		}
		process.termPending = true;
		process.stopped ? void() : terminate(process);
		return;
	default:
		end(process, number);
	}
}

Process* World::find(const Node& node, std::string_view name) const
{
	const auto found = std::ranges::find_if(node.processes, [&](const auto& process)
	                                        { return process->alive && process->name == name; });
	return found == node.processes.end() ? nullptr : found->get();
}

void World::wake(Process& process)
{
	for (Task* task : process.tasks)
	{
		scheduler.catchUp(*task);
		scheduler.wakeAt(*task, now() + random.between(10, 80) * pace);
	}
}

void World::wakeKeeper(Node& node, const char* program)
{
	Process* process = find(node, program);
	process != nullptr && process->takesSignals ? wake(*process) : void();
}

void World::ring(Node& node)
{
	for (const char* program : {keeper::kAddressProgram, keeper::kReachProgram})
	{
		if (Process* process = find(node, program))
		{
			process->bell = true;
			wakeKeeper(node, program);
		}
	}
}

void World::stateChanged(Node& node)
{
	node.watches.assign(node.watches.size(), true);
	for (const auto& process : node.processes)
	{
		wake(*process);
	}
}

void World::setAddress(Node& node, bool held)
{
	if (node.address != held)
	{
		node.address = held;
		ring(node);
	}
}

void World::sleepUntil(Micros moment)
{
	do
	{
		scheduler.pause(moment);
	} while (now() < moment);
}

Micros World::effort(const Node& node, Micros usual)
{
	// Commands are slow because of many things: the root of the pace is 1, 3 or 10.
	usual *= pace > kCommandsSlower ? kCommandsSlower : pace > 1 ? 3 : 1;
	return node.slow ? random.between(usual, 1'500 * kMilli) : random.between(usual / 2, usual * 2);
}

bool World::reaches(Network network, Host from, Host to) const
{
	const auto up = [&](Host host)
	{
		if (host == hostA || host == hostB)
		{
			const Node& node = nodes.at(host);
			return node.on && !node.frozen && node.interfaces.at(network).carrier;
		}
		return host != hostGateway || gateway;
	};
	const bool gatewayLost = (from == hostGateway && to < hostGateway && gatewayCut.at(to)) ||
	                         (to == hostGateway && from < hostGateway && gatewayCut.at(from));
	const bool separated = from < hostGateway && to < hostGateway && cut.at(network).at(from);
	return up(from) && up(to) && !separated && !gatewayLost;
}

bool World::linked(Network network, Host from, Host to) const
{
	return reaches(network, from, to) && reaches(network, to, from);
}

bool World::delivers(Network network, Host from, Host to)
{
	int loss = 0;
	for (const Host end : {from, to})
	{
		loss = std::max(loss, end < hostGateway ? nodes.at(end).interfaces.at(network).loss : 0);
	}
	return reaches(network, from, to) && (loss == 0 || !random.chance(loss));
}

Micros World::latency(Network network, Host from, Host /*to*/)
{
	return random.between(20, 60) * pace + (from < hostGateway ? nodes.at(from).interfaces.at(network).delay : 0);
}

bool World::holds(Host host) const
{
	return host == hostRogue ? rogue : host < hostGateway && nodes.at(host).on && nodes.at(host).address;
}

/// An ARP packet about the address to everybody. The kernel of a host that holds it answers a
/// probe, and answers alone a host that does not.
void World::arp(Host from, keeper::ArpKind kind)
{
	for (const Host to : {hostA, hostB, hostClient, hostRogue})
	{
		if (to == from || !delivers(serviceNetwork, from, to))
		{
			continue;
		}
		const Micros at = now() + latency(serviceNetwork, from, to);
		scheduler.at(at,
		             [this, from, to, kind]
		             {
			             if (to == hostClient)
			             {
				             clientKnows = kind == keeper::ArpKind::claim ? from : clientKnows;
				             return;
			             }
			             if (to < hostGateway && !nodes.at(to).on)
			             {
				             return;
			             }
			             if (to < hostGateway)
			             {
				             node(to).arp.push_back({kind, macOf(from)});
				             wakeKeeper(node(to), keeper::kAddressProgram);
			             }
			             const bool asked = kind == keeper::ArpKind::foreignProbe && holds(to);
			             if (asked && from < hostGateway && delivers(serviceNetwork, to, from))
			             {
				             scheduler.at(now() + latency(serviceNetwork, to, from),
				                          [this, from, to]
				                          {
					                          node(from).arp.push_back({keeper::ArpKind::claim, macOf(to)});
					                          wakeKeeper(node(from), keeper::kAddressProgram);
				                          });
			             }
		             });
	}
}

bool World::serves(const Node& node) const
{
	return std::ranges::any_of(node.processes, [](const auto& process)
	                           { return process->alive && !process->stopped && process->name == kService; });
}

std::string World::owners() const
{
	const auto& [a, b] = nodes;
	return a.owns() ? (b.owns() ? "a+b" : "a") : b.owns() ? "b" : "none";
}

bool World::answersFrom(Host host) const
{
	return host < hostGateway && nodes.at(host).address && linked(serviceNetwork, hostClient, host) &&
	       serves(nodes.at(host));
}

Host World::answers() const
{
	return answersFrom(clientKnows) ? clientKnows : hostNone;
}

void World::clientAsks()
{
	m_answered = answers() != hostNone ? now() : m_answered;
	if (now() - m_answered >= kClientPatience)
	{
		for (const Host host : {hostA, hostB, hostRogue})
		{
			clientKnows = holds(host) && linked(serviceNetwork, hostClient, host) ? host : clientKnows;
		}
	}
	scheduler.at(now() + kClientLooks, [this] { clientAsks(); });
}

} // namespace velarix::simulate
