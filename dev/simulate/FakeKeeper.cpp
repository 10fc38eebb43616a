/// What the keeper's programs stand on, in place of the kernel: turns of the loop, ARP, the
/// interfaces, the runtime directory, processes.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <span>
#include <unistd.h>

#include "dev/simulate/Programs.h"
#include "keeper/Guard.h"
#include "keeper/Network.h"
#include "keeper/Process.h"
#include "keeper/Runtime.h"

namespace sim = velarix::simulate;

using sim::kMilli;
using sim::processOf;
using sim::self;
using sim::selfProcess;
using sim::waitUntil;
using sim::world;

namespace
{

/// Descriptors that no kernel has given: what they stand for, and for the last two which one.
constexpr int kArpFile = 1'000'000'001;
constexpr int kBellFile = 1'000'000'002;
constexpr int kSignals = 1'000'000'003;
constexpr int kWatchFile = 1'100'000'000;
constexpr int kDeathFile = 1'200'000'000;

constexpr const char* kLoopback = "lo"; ///< has the reachability address

/// Uptime at the schedule's start.
constexpr velarix::keeper::Millis kBooted = 1'000'000;

bool livesAs(int pid)
{
	const sim::Process* process = processOf(self(), pid);
	return process != nullptr && process->alive;
}

bool readable(int file)
{
	if (file >= kDeathFile)
	{
		return !livesAs(file - kDeathFile);
	}
	if (file >= kWatchFile)
	{
		return self().watches.at(static_cast<std::size_t>(file - kWatchFile));
	}
	switch (file)
	{
	case kArpFile:
		return !self().arp.empty();
	case kBellFile:
		return selfProcess().bell;
	case kSignals:
		return !selfProcess().signals.empty();
	case sim::kPartnerFile:
		return !self().datagrams.empty();
	default:
		return file >= sim::kEchoFile &&
		       self().echoAt.at(static_cast<std::size_t>(file - sim::kEchoFile)) <= world().now();
	}
}

} // namespace

namespace velarix::keeper
{

Millis now()
{
	return kBooted + world().now() / kMilli;
}

// The loop.

sigset_t blockSignals()
{
	return {};
}

Loop::Loop() = default;

void Loop::watch(int descriptor, std::function<void()> handler)
{
	m_handlers[descriptor] = std::move(handler);
}

void Loop::forget(int descriptor)
{
	m_handlers.erase(descriptor);
}

void Loop::watchSignals(std::function<void(int)> handler)
{
	watch(kSignals,
	      [handler = std::move(handler)]
	      {
		      while (!selfProcess().signals.empty())
		      {
			      const int number = selfProcess().signals.front();
			      selfProcess().signals.pop_front();
			      handler(number);
		      }
	      });
}

void Loop::wait(Millis deadline)
{
	const auto ready = [this]
	{ return std::ranges::any_of(m_handlers, [](const auto& entry) { return readable(entry.first); }); };
	const bool slow = self().slow;
	const sim::Micros late = slow ? world().random.below(20 * kMilli) : world().random.between(20, 200);
	sim::Micros end = deadline == kNever ? sim::kNoTime : std::max(deadline - kBooted, Millis(0)) * kMilli + late;
	for (const sim::Network network : {sim::serviceNetwork, sim::communicationNetwork})
	{
		const bool listens = m_handlers.contains(sim::kEchoFile + network);
		end = listens ? std::min(end, self().echoAt.at(network)) : end;
	}
	waitUntil(ready, end);
}

void Loop::dispatch()
{
	std::array<int, 16> ready{};
	std::size_t count = 0;
	for (const auto& [file, handler] : m_handlers)
	{
		ready.at(count) = file;
		count += readable(file) ? 1U : 0U;
	}
	for (const int file : std::span(ready).first(count))
	{
		if (const auto found = m_handlers.find(file); found != m_handlers.end())
		{
			const std::function<void()> handler = found->second;
			handler();
		}
	}
}

// The network.

ArpFrame arpProbe(std::uint32_t /*address*/, const Mac& /*own*/)
{
	return {static_cast<std::uint8_t>(ArpKind::foreignProbe)};
}

ArpFrame arpAnnouncement(std::uint32_t /*address*/, const Mac& /*own*/)
{
	return {static_cast<std::uint8_t>(ArpKind::claim)};
}

ArpSocket::ArpSocket(int /*interface*/, std::uint32_t address, const Mac& own)
    : m_socket(kArpFile), m_address(address), m_own(own)
{
	self().arp.clear();
}

void ArpSocket::send(const ArpFrame& frame) const
{
	const auto kind = static_cast<ArpKind>(frame.front());
	self().probesSinceAsked += kind == ArpKind::foreignProbe ? 1 : 0;
	world().arp(self().id, kind);
}

bool ArpSocket::receive(int limit, const std::function<void(const ArpPacket&)>& handler) const
{
	for (int i = 0; i < limit; ++i)
	{
		if (self().arp.empty())
		{
			return false;
		}
		const ArpPacket packet = self().arp.front();
		self().arp.pop_front();
		self().probesSinceAsked = packet.kind == ArpKind::foreignProbe ? 0 : self().probesSinceAsked;
		handler(packet);
	}
	return true;
}

NetlinkBell::NetlinkBell() : m_socket(nullptr, nullptr)
{
}

int NetlinkBell::descriptor() const
{
	return kBellFile;
}

void NetlinkBell::quiet() const
{
	selfProcess().bell = false;
}

std::optional<Sight> look(const AddressSettings& settings)
{
	const sim::Node& node = self();
	if (settings.interface == kLoopback)
	{
		return Sight{1, {}, true, node.reachAddress, false, {}};
	}
	const Mac own = sim::macOf(node.id);
	return Sight{1, own, node.interfaces.at(sim::serviceNetwork).carrier, node.address, node.marker, {own}};
}

int addAddress(const AddressSettings& settings, std::uint32_t /*seconds*/)
{
	world().sleepInKernel();
	settings.interface == kLoopback ? void(self().reachAddress = true) : world().setAddress(self(), true);
	return 0;
}

int removeAddress(const AddressSettings& settings)
{
	world().sleepInKernel();
	settings.interface == kLoopback ? void(self().reachAddress = false) : world().setAddress(self(), false);
	return 0;
}

int setMarker(const AddressSettings& /*settings*/)
{
	world().sleepInKernel();
	self().marker = true;
	return 0;
}

int removeMarker(const AddressSettings& /*settings*/)
{
	world().sleepInKernel();
	self().marker = false;
	return 0;
}

std::string macText(const Mac& mac)
{
	return "host " + std::to_string(mac.back());
}

// The runtime directory. A guard and its worker are one process here.

void makeRuntimeDirectory()
{
}

pid_t holderOf(const std::string& program, Part /*part*/)
{
	const sim::Process* process = world().find(self(), program);
	return process != nullptr && process->takesSignals ? process->pid : 0;
}

LivingProcess::LivingProcess(const std::string& program, Part part)
    : m_pid(holderOf(program, part)), m_descriptor(m_pid != 0 ? kDeathFile + m_pid : -1)
{
}

void LivingProcess::signal(int number) const
{
	if (sim::Process* process = m_pid != 0 ? processOf(self(), m_pid) : nullptr)
	{
		world().signal(*process, number);
	}
}

bool LivingProcess::waitForEnd(Millis limit) const
{
	return waitUntil([this] { return !livesAs(m_pid); }, world().now() + limit * kMilli);
}

void writeState(const std::string& program, const Fields& fields)
{
	self().states[program] = fields;
	program == kAddressProgram&& world().published ? world().published(self(), valueOf(fields, "state")) : void();
	world().stateChanged(self());
}

Fields readState(const std::string& program, const std::string& /*directory*/)
{
	const auto found = self().states.find(program);
	return found == self().states.end() ? Fields() : found->second;
}

void removeState(const std::string& program)
{
	self().states.erase(program);
	world().stateChanged(self());
}

std::string valueOf(const Fields& fields, const std::string& key)
{
	const auto found = std::ranges::find(fields, key, &Fields::value_type::first);
	return found == fields.end() ? std::string() : found->second;
}

AddressWatch::AddressWatch() : m_inotify(kWatchFile + static_cast<int>(self().watches.size()))
{
	self().watches.push_back(false);
}

Fields AddressWatch::look()
{
	self().watches.at(static_cast<std::size_t>(m_inotify.get() - kWatchFile)) = false;
	m_holder.emplace(kAddressProgram, Part::worker);
	Fields fields = readState(kAddressProgram);
	return *m_holder && valueOf(fields, "pid") == std::to_string(m_holder->pid()) ? std::move(fields) : Fields();
}

// The journal.

void Journal::event(const std::string& word, const std::string& detail)
{
	world().recording ? world().journal(self(), m_program + " " + word + ": " + detail) : void();
}

long long wallClock(Millis moment)
{
	return moment / 1000;
}

std::string timeText(long long seconds, int /*millis*/)
{
	return std::to_string(seconds);
}

void waitForStart(Millis limit)
{
	const auto begins = [](const auto& process)
	{ return process->alive && process->name == kAddressProgram && !process->takesSignals; };
	waitUntil([&] { return std::ranges::none_of(self().processes, begins); }, world().now() + limit * kMilli);
}

void beInTime()
{
}
void keepCapabilities(std::initializer_list<unsigned> /*kept*/)
{
}

int runAddress(const Settings& /*settings*/)
{
	return 0; // forked for: see __wrap_fork
}

} // namespace velarix::keeper

extern "C"
{
	int __wrap_poll(pollfd* files, nfds_t /*count*/, int timeout)
	{
		return waitUntil([files] { return readable(files->fd); }, world().now() + timeout * kMilli) ? 1 : 0;
	}
}
