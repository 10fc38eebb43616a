/// What ha-reach stands on: pings of its targets, the partner's datagrams, its key, the agent's
/// entry in /proc.

#include <algorithm>
#include <filesystem>

#include <sys/socket.h>

#include "dev/simulate/Programs.h"
#include "inspect/EchoSocket.h"
#include "inspect/HostProcesses.h"
#include "inspect/Names.h"
#include "keeper/Guard.h"
#include "keeper/PartnerLink.h"

namespace sim = velarix::simulate;

using sim::self;
using sim::world;

namespace velarix::inspect
{

// One request to each network's gateway is on its way at a time.

EchoSocket::EchoSocket(const std::string& address)
    : m_socket(sim::kEchoFile + (address == sim::kServiceGateway ? sim::serviceNetwork : sim::communicationNetwork))
{
	self().echoAt.at(static_cast<std::size_t>(m_socket.get() - sim::kEchoFile)) = sim::kNoTime;
}

void EchoSocket::request()
{
	++m_sequence;
	const auto network = static_cast<sim::Network>(m_socket.get() - sim::kEchoFile);
	const sim::Host own = self().id;
	const bool answered =
	    world().delivers(network, own, sim::hostGateway) && world().delivers(network, sim::hostGateway, own);
	const sim::Micros trip =
	    world().latency(network, own, sim::hostGateway) + world().latency(network, sim::hostGateway, own);
	self().echoAt.at(network) = answered ? world().now() + trip : sim::kNoTime;
}

std::optional<std::uint16_t> EchoSocket::answer() const
{
	sim::Micros& at = self().echoAt.at(static_cast<std::size_t>(m_socket.get() - sim::kEchoFile));
	return std::exchange(at, at <= world().now() ? sim::kNoTime : at) <= world().now() ? std::optional(m_sequence)
	                                                                                   : std::nullopt;
}

std::optional<host::Process> host::process(pid_t /*pid*/)
{
	const sim::Process* agent = world().find(self(), sim::kAgent);
	std::optional<Process> seen;
	if (agent != nullptr)
	{
		seen.emplace();
		seen->name = kAgentName;
		seen->state = agent->stopped ? 'T' : 'S';
	}
	return seen;
}

} // namespace velarix::inspect

bool velarix::keeper::addressIsHidden()
{
	return sim::selfProcess().hidden;
}

void velarix::keeper::hideAddressProgram()
{
	if (sim::Process* program = world().find(self(), kAddressProgram))
	{
		program->hidden = true;
	}
}

extern "C"
{
	/// keeper::readKey and std::filesystem::last_write_time
	std::optional<velarix::keeper::Key>
	__wrap__ZN7velarix6keeper7readKeyERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERS6_(const std::string&,
	                                                                                             std::string&)
	{
		return velarix::keeper::Key{7};
	}

	std::filesystem::file_time_type
	__wrap__ZNSt10filesystem15last_write_timeERKNS_7__cxx114pathERSt10error_code(const std::filesystem::path&,
	                                                                             std::error_code&)
	{
		return {};
	}

	int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/)
	{
		self().datagrams.clear();
		return sim::kPartnerFile;
	}

	int __wrap_setsockopt(int /*file*/, int /*level*/, int /*name*/, const void* /*value*/, socklen_t /*size*/)
	{
		return 0;
	}

	int __wrap_bind(int /*file*/, const sockaddr* /*pPlace*/, socklen_t /*size*/)
	{
		return 0;
	}

	int __wrap_connect(int /*file*/, const sockaddr* /*pPlace*/, socklen_t /*size*/)
	{
		return 0;
	}

	ssize_t __wrap_send(int /*file*/, const void* data, std::size_t size, int /*flags*/)
	{
		sim::Node& partner = world().other(self());
		const auto* bytes = static_cast<const char*>(data);
		if (world().delivers(sim::communicationNetwork, self().id, partner.id))
		{
			const sim::Micros trip = world().latency(sim::communicationNetwork, self().id, partner.id);
			world().scheduler.at(world().now() + trip,
			                     [&partner, datagram = std::string(bytes, size)]
			                     {
				                     if (sim::Process* reach = world().find(partner, velarix::keeper::kReachProgram))
				                     {
					                     partner.datagrams.push_back(datagram);
					                     world().wake(*reach);
				                     }
			                     });
		}
		return static_cast<ssize_t>(size);
	}

	ssize_t __wrap_recv(int /*file*/, void* buffer, std::size_t size, int /*flags*/)
	{
		if (self().datagrams.empty())
		{
			errno = EAGAIN;
			return -1;
		}
		const std::size_t length = self().datagrams.front().copy(static_cast<char*>(buffer), size);
		self().datagrams.pop_front();
		return static_cast<ssize_t>(length);
	}
}
