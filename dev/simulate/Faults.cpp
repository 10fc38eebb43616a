#include "dev/simulate/Faults.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>

namespace velarix::simulate
{

namespace
{

template <Network network, bool carrier> void setCarrier(World& world, Node& node)
{
	node.interfaces.at(network).carrier = carrier;
	world.ring(node);
}

template <Network network, int percent> void setLoss(World& /*world*/, Node& node)
{
	node.interfaces.at(network).loss = percent;
}

template <Network network, int millis> void setDelay(World& /*world*/, Node& node)
{
	node.interfaces.at(network).delay = millis * kMilli;
}

template <Network network, bool is> void setCut(World& world, Node& /*node*/)
{
	world.cut.at(network) = {is, is};
}

template <bool is> void setBothCut(World& world, Node& node)
{
	setCut<serviceNetwork, is>(world, node);
	setCut<communicationNetwork, is>(world, node);
}

/// What the other node sends does not arrive.
template <Network network, bool is> void setDeaf(World& world, Node& node)
{
	world.cut.at(network).at(world.other(node).id) = is;
}

template <Network network, bool is> void setMute(World& world, Node& node)
{
	world.cut.at(network).at(node.id) = is;
}

template <bool World::*what, bool is> void set(World& world, Node& /*node*/)
{
	world.*what = is;
}

template <bool Node::*what, bool is> void set(World& /*world*/, Node& node)
{
	node.*what = is;
}

template <void (World::*what)(Node&)> void call(World& world, Node& node)
{
	(world.*what)(node);
}

template <bool is> void setGatewayCut(World& world, Node& node)
{
	world.gatewayCut.at(node.id) = is;
}

template <int command, Spoilt spoilt> void setCommand(World& /*world*/, Node& node)
{
	node.commands.at(command) = spoilt;
	node.spoiltRan = false;
}

template <bool is> void setFrozen(World& world, Node& node)
{
	world.freeze(node, is);
}

template <bool is> void setRogue(World& world, Node& /*node*/)
{
	world.rogue = is;
	is ? world.arp(hostRogue, keeper::ArpKind::claim) : void();
}

template <const auto& name, int number> void signalTo(World& world, Node& node)
{
	if (Process* process = world.find(node, name))
	{
		world.signal(*process, number);
	}
}

void reboot(World& world, Node& node)
{
	world.powerOff(node);
	world.powerOn(node);
}

void coldStartAlone(World& world, Node& node)
{
	world.powerOff(node);
	world.powerOff(world.other(node));
	world.powerOn(node);
}

void powerOnOther(World& world, Node& node)
{
	world.powerOn(world.other(node));
}

void coldStart(World& world, Node& node)
{
	coldStartAlone(world, node);
	powerOnOther(world, node);
}

void crash(World& world, Node& node)
{
	node.crashes = true;
	signalTo<kService, SIGKILL>(world, node);
}

void removeAddress(World& world, Node& node)
{
	world.setAddress(node, false);
}

void removeMarker(World& world, Node& node)
{
	node.marker = false;
	world.ring(node);
}

void restoreMarker(World& /*world*/, Node& node)
{
	node.marker = node.on;
}

// clang-format off
constexpr std::array kFaults{
	//                                 on node keeper             plain             within
	FaultKind{"power-off",               true,  Known::survivable, Known::survivable, {8, 14}, call<&World::powerOff>,                     call<&World::powerOn>},
	FaultKind{"reboot",                  true,  Known::survivable, Known::survivable, {8, 14}, reboot,                                     nullptr},
	FaultKind{"cold-start",              false, Known::survivable, Known::survivable, {8, 14}, coldStart,                                  nullptr},
	FaultKind{"cold-start-alone",        true,  Known::survivable, Known::survivable, {8, 14}, coldStartAlone,                             powerOnOther},
	FaultKind{"host-freeze",             true,  Known::survivable, Known::survivable, {8, 14}, setFrozen<true>,                            setFrozen<false>},
	FaultKind{"overload",                true,  Known::passing,    Known::passing,    {8, 14}, set<&Node::slow, true>,                     set<&Node::slow, false>},
	FaultKind{"agent-kill",              true,  Known::standing,   Known::standing,   {8, 14}, signalTo<kAgent, SIGKILL>,                  call<&World::startAgent>},
	FaultKind{"agent-freeze",            true,  Known::standing,   Known::standing,   {8, 14}, signalTo<kAgent, SIGSTOP>,                  signalTo<kAgent, SIGCONT>},
	FaultKind{"program-kill",            true,  Known::survivable, Known::survivable, {2, 14}, signalTo<kService, SIGKILL>,                nullptr},
	FaultKind{"program-crash",           true,  Known::survivable, Known::survivable, {6, 14}, crash,                                      set<&Node::crashes, false>},
	FaultKind{"program-hang",            true,  Known::survivable, Known::none,       {8, 0},  signalTo<kService, SIGSTOP>,                signalTo<kService, SIGCONT>},
	FaultKind{"address-removed",         true,  Known::survivable, Known::survivable, {2, 14}, removeAddress,                              nullptr},
	FaultKind{"service-interface",       true,  Known::survivable, Known::survivable, {6, 16}, setCarrier<serviceNetwork, false>,          setCarrier<serviceNetwork, true>},
	FaultKind{"communication-interface", true,  Known::owned,      Known::survivable, {6, 16}, setCarrier<communicationNetwork, false>,    setCarrier<communicationNetwork, true>},
	FaultKind{"service-cut",             false, Known::standing,   Known::standing,   {2, 2},  setCut<serviceNetwork, true>,               setCut<serviceNetwork, false>},
	FaultKind{"communication-cut",       false, Known::owned,      Known::passing,    {8, 0},  setCut<communicationNetwork, true>,         setCut<communicationNetwork, false>},
	FaultKind{"both-cut",                false, Known::passing,    Known::passing,    {0, 0},  setBothCut<true>,                           setBothCut<false>},
	FaultKind{"deaf",                    true,  Known::owned,      Known::passing,    {8, 0},  setDeaf<communicationNetwork, true>,        setDeaf<communicationNetwork, false>},
	FaultKind{"mute",                    true,  Known::owned,      Known::passing,    {8, 0},  setMute<communicationNetwork, true>,        setMute<communicationNetwork, false>},
	FaultKind{"service-deaf",            true,  Known::standing,   Known::standing,   {2, 2},  setDeaf<serviceNetwork, true>,              setDeaf<serviceNetwork, false>},
	FaultKind{"service-mute",            true,  Known::standing,   Known::standing,   {2, 2},  setMute<serviceNetwork, true>,              setMute<serviceNetwork, false>},
	FaultKind{"gateway",                 false, Known::standing,   Known::passing,    {2, 0},  set<&World::gateway, false>,                set<&World::gateway, true>},
	FaultKind{"gateway-for",             true,  Known::survivable, Known::gateways,   {8, 14}, setGatewayCut<true>,                        setGatewayCut<false>},
	FaultKind{"service-loss-30",         true,  Known::passing,    Known::passing,    {2, 2},  setLoss<serviceNetwork, 30>,                setLoss<serviceNetwork, 0>},
	FaultKind{"service-loss-50",         true,  Known::passing,    Known::passing,    {2, 2},  setLoss<serviceNetwork, 50>,                setLoss<serviceNetwork, 0>},
	FaultKind{"service-delay",           true,  Known::passing,    Known::passing,    {2, 2},  setDelay<serviceNetwork, 200>,              setDelay<serviceNetwork, 0>},
	FaultKind{"communication-loss-30",   true,  Known::passing,    Known::passing,    {8, 16}, setLoss<communicationNetwork, 30>,          setLoss<communicationNetwork, 0>},
	FaultKind{"communication-loss-50",   true,  Known::passing,    Known::passing,    {8, 16}, setLoss<communicationNetwork, 50>,          setLoss<communicationNetwork, 0>},
	FaultKind{"communication-delay",     true,  Known::passing,    Known::passing,    {8, 16}, setDelay<communicationNetwork, 200>,        setDelay<communicationNetwork, 0>},
	FaultKind{"start-hangs",             true,  Known::standing,   Known::standing,   {2, 2},  setCommand<0, Spoilt::hangs>,               setCommand<0, Spoilt::no>},
	FaultKind{"start-fails",             true,  Known::operators,  Known::operators,  {2, 2},  setCommand<0, Spoilt::fails>,               setCommand<0, Spoilt::no>},
	FaultKind{"start-prints",            true,  Known::standing,   Known::standing,   {2, 2},  setCommand<0, Spoilt::prints>,              setCommand<0, Spoilt::no>},
	FaultKind{"stop-fails",              true,  Known::operators,  Known::operators,  {2, 2},  setCommand<1, Spoilt::fails>,               setCommand<1, Spoilt::no>},
	FaultKind{"kill-fails",              true,  Known::operators,  Known::operators,  {2, 2},  setCommand<2, Spoilt::fails>,               setCommand<2, Spoilt::no>},
	FaultKind{"rogue-address",           false, Known::passing,    Known::passing,    {0, 0},  setRogue<true>,                             setRogue<false>},
	FaultKind{"keeper-kill-address",     true,  Known::survivable, Known::none,       {5, 0},  signalTo<keeper::kAddressProgram, SIGKILL>, nullptr},
	FaultKind{"keeper-kill-service",     true,  Known::survivable, Known::none,       {5, 0},  signalTo<kSupervisor, SIGKILL>,             nullptr},
	FaultKind{"marker-missing",          true,  Known::survivable, Known::none,       {2, 0},  removeMarker,                               restoreMarker},
};
// clang-format on

constexpr Micros kFirst = 12 * kSecond;

/// Most faults stand for a moment, some until the slowest take-over has to be done.
Micros repairOf(const Fault& fault, Random& random)
{
	constexpr Micros kShort = 20 * kSecond;
	constexpr Micros kLong = 36 * kSecond;
	constexpr Micros kLongest = 50 * kSecond;
	constexpr int kLongPercent = 35;
	constexpr Micros kRepaired = 115 * kSecond;
	const Micros stands = random.chance(kLongPercent) ? random.between(kLong, kLongest) : random.between(0, kShort);
	return fault.kind->repair != nullptr ? std::min(fault.at + stands, kRepaired) : kNoTime;
}

Host anyNode(Random& random)
{
	return random.chance(50) ? hostA : hostB;
}

template <typename Values> const auto& oneOf(const Values& values, Random& random)
{
	return values.at(static_cast<std::size_t>(random.below(std::ssize(values))));
}

/// Two faults of which one meets the other when that comes or is over: orders that are too rare
/// among faults that are drawn alone.
struct Meeting
{
	const char* first;
	const char* second;
	bool atEnd;
	bool moved; ///< the standby serves already
};

constexpr std::array kMeetings{
    Meeting{"host-freeze", "program-crash", true, false},
    Meeting{"both-cut", "overload", false, true},
    Meeting{"service-interface", "overload", true, false},
};

Schedule relatedFaults(Random random)
{
	const Meeting& meeting = oneOf(kMeetings, random);
	Fault first{faultNamed(meeting.first), anyNode(random), random.between(2 * kFirst, 40 * kSecond)};
	first.until = repairOf(first, random);
	Fault second{faultNamed(meeting.second), anyNode(random)};
	second.at = (meeting.atEnd ? first.until : first.at) + random.between(-2 * kSecond, kSecond);
	second.until = repairOf(second, random);
	Schedule schedule{first, second};
	if (meeting.moved)
	{
		schedule.push_back({faultNamed("service-interface"), hostA, kFirst, 2 * kFirst - kSecond});
	}
	return schedule;
}

} // namespace

const FaultKind* faultNamed(std::string_view name)
{
	const auto found = std::ranges::find_if(kFaults, [name](const FaultKind& kind) { return name == kind.name; });
	return found == kFaults.end() ? nullptr : &*found;
}

Schedule scheduleFrom(std::uint64_t seed, Profile profile)
{
	constexpr Micros kLast = 60 * kSecond;
	constexpr std::uint64_t kRelated = 4; // every so many
	Random random(seed);
	Schedule schedule = seed % kRelated == 0 ? relatedFaults(Random(~seed)) : Schedule();
	for (Micros count = random.between(1, 6) - std::ssize(schedule); count > 0;)
	{
		Fault fault;
		fault.kind = &oneOf(kFaults, random);
		fault.node = anyNode(random);
		fault.at = random.between(kFirst, kLast);
		fault.until = repairOf(fault, random);
		if (fault.kind->known(profile) != Known::none)
		{
			schedule.push_back(fault);
			--count;
		}
	}
	std::ranges::sort(schedule, {}, &Fault::at);
	return schedule;
}

std::string nameOf(const Fault& fault)
{
	return std::string(fault.kind->name) + (fault.kind->onNode ? (fault.node == hostA ? ":a" : ":b") : "");
}

std::string toText(const Fault& fault)
{
	std::array<char, 96> text{};
	const double at = static_cast<double>(fault.at) / kSecond;
	const double until = static_cast<double>(fault.until) / kSecond;
	std::snprintf(text.data(), text.size(), fault.until == kNoTime ? "%8.3f %s" : "%8.3f %s until %.3f", at,
	              nameOf(fault).c_str(), until);
	return text.data();
}

} // namespace velarix::simulate
