#include "dev/simulate/Programs.h"

#include <csignal>
#include <utility>

#include "CAgent.h"
#include "keeper/Commands.h"
#include "keeper/Guard.h"
#include "keeper/ServiceSupervisor.h"

/// The agent lets it see its role.
class AgentAccess
{
public:
	static const MODE& role(const CAgent& agent) { return agent.m_mode; }
};

namespace velarix::simulate
{

namespace
{

/// Between two gratuitous ARP packets of the plain start command.
constexpr Micros kAnnounceAgain = 4 * kSecond;
/// fork, exec, and a shell in between.
constexpr Micros kLaunch = 8 * kMilli;
/// From the fork to the exec, when the process gets its name.
constexpr Micros kExec = kMilli;
/// A shell ends and is waited for, and /proc is walked through.
constexpr Micros kSearch = 2 * kMilli;

const std::array kVerbs{"start", "stop", "kill"};

void announce(Node& node, int loop)
{
	if (node.address && node.announcer == loop)
	{
		world().arp(node.id, keeper::ArpKind::claim);
		world().scheduler.at(world().now() + kAnnounceAgain, [&node, loop] { announce(node, loop); });
	}
}

void killAll(Node& node, const std::string& name)
{
	while (Process* process = world().find(node, name))
	{
		world().signal(*process, SIGKILL);
	}
}

void runPlain(Node& node, const std::string& verb, const std::string& argument)
{
	if (verb == kVerbs[0])
	{
		world().setAddress(node, true);
		announce(node, ++node.announcer);
		return;
	}
	world().setAddress(node, false);
	argument.empty() ? void() : killAll(node, argument);
}

void runKeeper(Node& node, const std::string& verb, const std::string& argument)
{
	namespace commands = keeper::commands;
	verb == kVerbs[0]   ? commands::raise(node.keeperSettings)
	: verb == kVerbs[1] ? commands::drop(node.keeperSettings)
	                    : commands::stop(node.keeperSettings, argument);
}

/// The node's role is the agent's for as long as there is one.
class RoleShown
{
public:
	RoleShown(Node& node, const MODE& role) : m_node(node) { m_node.role = &role; }
	~RoleShown() { m_node.role = nullptr; }
	RoleShown(const RoleShown&) = delete;
	RoleShown& operator=(const RoleShown&) = delete;

private:
	Node& m_node;
};

/// The guard's part: a second one ends at once, and the name is free when it has ended.
void runKeeperProgram(Process& process)
{
	Node& node = *process.node;
	process.takesSignals = true;
	if (process.name == keeper::kAddressProgram)
	{
		keeper::holdAddress(node.keeperSettings.address, {kSupervisor});
	}
	else if (process.name == keeper::kReachProgram)
	{
		keeper::watchTargets(node.keeperSettings);
	}
	else
	{
		keeper::ServiceSupervisor(node.keeperSettings.address, node.keeperSettings.services.front()).run();
	}
	world().end(process, 0);
}

} // namespace

keeper::Mac macOf(Host host)
{
	return {2, 0, 0, 0, 0, static_cast<std::uint8_t>(host + 1)};
}

void writeSettings(Node& node, Profile profile)
{
	const bool isA = node.id == hostA;
	const bool plain = profile == Profile::plain;
	node.settings = {{"AGENT.MODE", isA ? "1" : "2"},
	                 {"AGENT.THIS_SERVER_IP", isA ? "198.51.100.11" : "198.51.100.12"},
	                 {"AGENT.PARTNER_IP", isA ? "198.51.100.12" : "198.51.100.11"},
	                 {"AGENT.HEART_BEAT_RECEIVE_PORT", "7001"},
	                 {"AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "7001"},
	                 {"AGENT.HEART_BEAT_INTERVAL", "1"},
	                 {"AGENT.MAX_HEART_BEAT_RECEIING_TIME", "2"},
	                 {"AGENT.IGNORE_TIME", "5"},
	                 {"AGENT.GATEWAY_IP", plain ? kCommunicationGateway : kReachAddress},
	                 {"AGENT.VIRTUAL_IP", kVirtualAddress},
	                 {"AGENT.WAITING_TIME_BEFORE_PROCESS_RUN", "0"},
	                 {"AGENT.RELATED_PROCESS", ""},
	                 {"AGENT.VIRTUAL_IP_START_COMMAND", "start"},
	                 {"AGENT.VIRTUAL_IP_STOP_COMMAND", "stop"},
	                 {"ADVENCE.PROCESS_KILL_COMMAND", "kill"},
	                 {"PROCESS_CHECK.PROCESS_CHECK_CYCLE", "1"},
	                 {"PROCESS_CHECK.OBSERVATION_MODE", "1"},
	                 {"PROCESS_CHECK.PROCESS_NUM", plain ? "1" : "2"},
	                 {"PROCESS_CHECK.PROCESS_PATH1", plain ? "/opt/labhttpd" : "/usr/velarix/run/ha-address"},
	                 {"PROCESS_CHECK.PROCESS_PATH2", "/usr/velarix/run/ha-web"}};
	node.keeperSettings.address.address = 1;
	node.keeperSettings.address.text = kVirtualAddress;
	node.keeperSettings.address.interface = "eth0";
	node.keeperSettings.address.defend = isA;
	keeper::ServiceSettings web;
	web.program = kSupervisor;
	web.command = {std::string(kService)};
	web.check = {"check"};
	web.stopTimeout = kStopTimeout / kSecond;
	node.keeperSettings.services = {web};
	keeper::ReachSettings& reach = node.keeperSettings.reach;
	reach.address = kReachAddress;
	reach.targets = {kCommunicationGateway, kServiceGateway};
	reach.own = node.settings["AGENT.THIS_SERVER_IP"];
	reach.partner = node.settings["AGENT.PARTNER_IP"];
	reach.line = 1;
}

void runAgent()
{
	constexpr Micros kRest = 2 * kSecond; // the agent's own, before anything else
	world().sleepFor(kRest);
	CAgent agent(MODE_SLAVE);
	const RoleShown shown(self(), AgentAccess::role(agent));
	agent.startThread();
	for (;;)
	{
		world().sleepFor(1'000 * kSecond);
	}
}

std::string runCommand(const std::string& command)
{
	Node& node = self();
	world().sleepFor(world().effort(node, kLaunch));
	const std::size_t blank = command.find(' ');
	const std::string verb = command.substr(0, blank);
	for (std::size_t i = 0; i < kVerbs.size(); ++i)
	{
		if (verb != kVerbs.at(i))
		{
			continue;
		}
		while (node.commands.at(i) == Spoilt::hangs)
		{
			world().sleepFor(100 * kMilli);
		}
		if (node.commands.at(i) == Spoilt::fails)
		{
			node.spoiltRan = true;
			return "";
		}
		node.printed = node.commands.at(i) == Spoilt::prints ? "done\n" : "";
		(world().profile == Profile::plain ? runPlain : runKeeper)(
		    node, verb, blank == std::string::npos ? "" : command.substr(blank + 1));
		return node.printed;
	}
	if (command == "ifconfig")
	{
		return std::string("eth0\n") + (node.address ? "inet 192.0.2.100\n" : "") +
		       (node.marker ? "inet6 ::192.0.2.100\n" : "");
	}
	const std::size_t network = command.find("eth0") != std::string::npos ? serviceNetwork : communicationNetwork;
	return node.interfaces.at(network).carrier ? "1\n" : "0\n";
}

void World::startProgram(Node& node, Process* parent)
{
	Process& program = start(node, std::string(kService), parent, effort(node, kExec));
	node.crashes ? endIn(50 * kMilli, program, 1 << 8U) : void();
}

void World::startManaged(Node& node, const std::string& name)
{
	if (name == kService)
	{
		startProgram(node, nullptr);
		return;
	}
	const bool runsAlready = find(node, name) != nullptr;
	Process& process = start(node, name, nullptr, effort(node, kExec));
	runTask(process,
	        [this, &process, runsAlready]
	        {
		        sleepUntil(process.visibleAt);
		        runsAlready ? end(process, 0) : runKeeperProgram(process);
	        });
}

void runScript()
{
	Node& node = self();
	world().sleepFor(world().effort(node, kLaunch));
	if (world().profile == Profile::plain)
	{
		world().startManaged(node, std::string(kService));
	}
	else
	{
		world().startManaged(node, keeper::kAddressProgram);
		world().startManaged(node, kSupervisor);
	}
	world().sleepFor(world().effort(node, kSearch));
}

} // namespace velarix::simulate
