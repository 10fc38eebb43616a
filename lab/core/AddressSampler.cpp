#include <cerrno>
#include <vector>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "lab/core/Plan.h"
#include "lab/core/Samplers.h"

namespace velarix::lab
{

namespace
{

/// A socket stays in the network namespace it was opened in.
Descriptor socketInside(const Host& host)
{
	Descriptor opened;
	inNetworkOf(host, [&] { opened.reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)); });
	if (!opened)
	{
		throwErrno("cannot open a socket inside a node");
	}
	return opened;
}

/// All IPv4 addresses of the namespace, secondary ones included.
bool holdsVirtualAddress(int socket)
{
	std::array<ifreq, 64> requests{};
	ifconf list{};
	list.ifc_len = static_cast<int>(sizeof requests);
	list.ifc_req = requests.data();
	if (socket < 0 || ::ioctl(socket, SIOCGIFCONF, &list) != 0)
	{
		return false;
	}
	const in_addr_t wanted = ::inet_addr(plan::virtualAddress);
	const std::size_t count = static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq);
	for (std::size_t index = 0; index < count; ++index)
	{
		const sockaddr* address = &requests[index].ifr_addr;
		if (reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr == wanted)
		{
			return true;
		}
	}
	return false;
}

} // namespace

AddressSampler::AddressSampler(Timeline& timeline, const LabClock& clock) : m_timeline(timeline), m_clock(clock)
{
	m_thread = std::jthread(
	    [this](const std::stop_token& stop)
	    {
		    while (!stop.stop_requested())
		    {
			    {
				    const std::lock_guard lock(m_mutex);
				    sampleLocked();
			    }
			    std::this_thread::sleep_for(samplingPeriod);
		    }
	    });
}

void AddressSampler::attach(HostId node, const Host& host)
{
	Descriptor opened = socketInside(host);
	const std::lock_guard lock(m_mutex);
	m_sockets[indexOf(node)] = std::move(opened);
}

void AddressSampler::detach(HostId node)
{
	const std::lock_guard lock(m_mutex);
	m_sockets[indexOf(node)].reset();
	sampleLocked();
}

void AddressSampler::sampleLocked()
{
	const bool a = holdsVirtualAddress(m_sockets[0].get());
	const bool b = holdsVirtualAddress(m_sockets[1].get());
	m_timeline.change(addressTrack, m_clock.now(), ownersText(a, b));
}

} // namespace velarix::lab
