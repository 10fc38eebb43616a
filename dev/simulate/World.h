/// What surrounds the two nodes' decisions: hosts, networks, processes, commands, a client. The
/// agent and the keeper are the real ones; the fakes of this folder (Fake*.cpp) let what leaves
/// their processes end here.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dev/simulate/Scheduler.h"
#include "keeper/Network.h"
#include "keeper/Runtime.h"
#include "keeper/Settings.h"
#include "velarix/velarix.h"

namespace velarix::simulate
{

enum class Profile
{
	keeper,
	plain
};

enum Host : int
{
	hostA,
	hostB,
	hostGateway,
	hostClient,
	hostRogue, ///< a third host that has raised the address
	hostNone
};

enum Network : int
{
	serviceNetwork,
	communicationNetwork
};

inline constexpr const char* kVirtualAddress = "192.0.2.100";
inline constexpr std::string_view kService = "labhttpd"; ///< the managed program; below the keeper with it
inline constexpr const char* kSupervisor = "ha-web";     ///< the keeper's program for it
inline constexpr const char* kAgent = "VelarixHA";
inline constexpr const char* kReachAddress = "192.0.0.8";
inline constexpr const char* kServiceGateway = "192.0.2.1";
inline constexpr const char* kCommunicationGateway = "198.51.100.1";

struct Node;

/// One line of a node's process table. The guard and the worker of a keeper's program are one.
struct Process
{
	int pid = 0;
	Node* node = nullptr;
	std::string name;
	Process* parent = nullptr; ///< who gets SIGCHLD; null: nobody
	Micros visibleAt = 0;      ///< the name is another one before (fork, exec)
	bool alive = true;
	bool reaped = false;
	bool stopped = false;
	bool takesSignals = false; ///< SIGTERM goes to its loop
	bool hidden = false;       ///< its guard has given its name away
	bool bell = false;         ///< an interface or an address has changed
	bool termPending = false;
	int status = 0; ///< as of waitpid
	std::deque<int> signals;
	std::vector<Task*> tasks;
};

enum class Spoilt
{
	no,
	hangs,
	fails,
	prints
};

/// A TCP connection as its receiver sees it.
struct Connection
{
	std::string data;
	bool arrived = false; ///< all of it, and the sender has closed
};

struct Listener
{
	std::deque<std::shared_ptr<Connection>> waiting;
};

struct Interface
{
	bool carrier = true;
	int loss = 0;     ///< percent, of what is sent and of what is received
	Micros delay = 0; ///< of what is sent
};

struct Node
{
	Host id = hostA;
	bool on = false;
	bool frozen = false;
	bool slow = false; ///< overloaded: everything takes long
	bool address = false;
	bool marker = false;
	bool crashes = false; ///< its managed program ends soon after each start
	std::array<Interface, 2> interfaces{};
	std::array<Spoilt, 3> commands{}; ///< start, stop, kill
	bool spoiltRan = false;           ///< the one spoilt last has failed
	std::map<std::string, std::string, std::less<>> settings;
	keeper::Settings keeperSettings;
	std::vector<std::unique_ptr<Process>> processes;
	int lastPid = 100;

	// The agent's.
	std::int32_t asking = 0; ///< g_specialAsking while another node's tasks run
	const MODE* role = nullptr;
	const MODE* loggedRole = nullptr; ///< the last that its log tells
	Listener* listener = nullptr;
	std::string startTime;
	bool threadEnded = false; ///< a worker has ended by an exception, or the agent by a fatal condition

	// The keeper's.
	std::deque<keeper::ArpPacket> arp;
	int probesSinceAsked = 0;                       ///< its own since it has read another's
	bool reachAddress = false;                      ///< on lo
	std::array<Micros, 2> echoAt{kNoTime, kNoTime}; ///< when the answer of each network's gateway comes
	std::deque<std::string> datagrams;
	std::map<std::string, keeper::Fields> states;
	std::string printed;       ///< by the command that runs
	std::vector<bool> watches; ///< of the runtime directory: has something changed
	int announcer = 0;         ///< of the plain start command's background loop

	bool owns() const { return on && !frozen && address; }
};

class World
{
public:
	World(Profile profile, std::uint64_t seed, bool recording);
	~World();
	World(const World&) = delete;
	World& operator=(const World&) = delete;

	const Profile profile;
	bool recording;
	Random random;
	std::array<Node, 2> nodes;
	std::array<std::array<bool, 2>, 2> cut{}; ///< [network][sender]: between the nodes
	bool gateway = true;
	std::array<bool, 2> gatewayCut{};
	bool rogue = false;
	Micros pace = 1;             ///< the kernel and the networks are so many times slower
	Micros stopTime = 0;         ///< from SIGTERM to the end of a managed program
	Host clientKnows = hostNone; ///< whose hardware address the client has
	std::function<void()> observe;
	std::function<void(const Node&, const std::string& state)> published; ///< by ha-address
	/// Only while recording. A line of the agent's log.
	std::function<void(const Node&, const char* label, int number)> logged;
	std::function<void(const Node&, const std::string& event)> journal;
	Scheduler scheduler; ///< behind all that its tasks use

	Node& node(Host id) { return nodes.at(static_cast<std::size_t>(id)); }
	Node& other(const Node& one) { return nodes.at(one.id == hostA ? 1 : 0); }
	Micros now() const { return scheduler.now(); }

	// Hosts.
	void powerOn(Node& node);
	void powerOff(Node& node);
	void startAgent(Node& node);
	void freeze(Node& node, bool frozen);

	// Processes.
	Process& start(Node& node, const std::string& name, Process* parent, Micros visibleIn = 0);
	void runTask(Process& process, std::function<void()> body);
	void end(Process& process, int status);
	void endIn(Micros time, const Process& process, int status);
	void signal(Process& process, int number);
	Process* find(const Node& node, std::string_view name) const;
	void startProgram(Node& node, Process* parent);
	/// Runs one of the settings' programs as the run script does.
	void startManaged(Node& node, const std::string& name);

	// Networks.
	bool linked(Network network, Host from, Host to) const; ///< whether anything can pass
	bool delivers(Network network, Host from, Host to);     ///< the same for one packet: it may be lost
	Micros latency(Network network, Host from, Host to);
	void arp(Host from, keeper::ArpKind kind);
	void setAddress(Node& node, bool held);
	/// Within a task: what the kernel takes for one request.
	void sleepInKernel() { sleepFor(random.between(10, 80) * pace); }
	bool holds(Host host) const;
	bool serves(const Node& node) const;
	/// @return "a", "a+b", "none"
	std::string owners() const;
	/// @return the node that answers the client, hostNone for none
	Host answers() const;

	/// A short time as a command takes it, longer on an overloaded node.
	Micros effort(const Node& node, Micros usual);
	/// Within a task: goes on at `moment`, and not before.
	void sleepUntil(Micros moment);
	void sleepFor(Micros time) { sleepUntil(now() + time); }
	void wake(Process& process);
	/// One of the keeper's programs.
	void wakeKeeper(Node& node, const char* program);
	/// An interface or an address has changed.
	void ring(Node& node);
	void stateChanged(Node& node);

private:
	void terminate(Process& process);
	bool reaches(Network network, Host from, Host to) const;
	bool answersFrom(Host host) const;
	void clientAsks();

	Micros m_answered = 0; ///< when the client had its last answer
};

/// The world that runs, and whose task has the turn.
World& world();
inline Process& selfProcess()
{
	return *Scheduler::current()->process;
}
inline Node& self()
{
	return *selfProcess().node;
}

/// Within a task: waits until `holds`, at the latest until `end`. @return whether it does
template <typename Condition> bool waitUntil(Condition holds, Micros end)
{
	while (!holds() && world().now() < end)
	{
		world().scheduler.pause(end);
	}
	return holds();
}

} // namespace velarix::simulate
