/// The two networks of a lab: bridges in the root host's network namespace, a pair of
/// virtual interfaces per host and network, the host's end named eth0 or eth1.
///
/// A port that is set down takes the carrier from the host's interface, as a pulled
/// cable does. Isolated ports of one bridge keep their carrier and reach every
/// port but each other. An impaired port keeps its carrier too; its frames go
/// through lab/guest/relay.py between the port and the bridge, which loses or delays them.
///
/// Isolation and impairments belong to the network, not to the host: they stay
/// when a host is unplugged and plugged in again.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "lab/core/Basics.h"
#include "lab/core/Host.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

/// What a bad wire does to the frames of one switch port, each way; lab/guest/relay.py does it.
struct Impairment
{
	double lossPercent = 0; ///< 0 to 100
	Millis delay{0};        ///< both ways make a round trip twice as slow
	Millis jitter{0};       ///< at most the delay
	/// Only what the host receives from this one, broadcasts included. To cut the way from a
	/// to b and nothing else, impair the port of b: {.lossPercent = 100, .peer = HostId::a}.
	/// Not with a delay: frames keep their order, so those of other hosts would wait behind the late ones.
	std::optional<HostId> peer{};
	std::uint64_t seed = 1;
};

class Wiring
{
public:
	/// Makes both bridges. `rootHost` must outlive the wiring.
	/// @throws NamespacesUnavailable when the kernel has no bridges
	explicit Wiring(const Host& rootHost);
	~Wiring();
	Wiring(const Wiring&) = delete;
	Wiring& operator=(const Wiring&) = delete;

	/// Of its interface on that network, which keeps it when the host is switched off and on.
	static std::string hardwareAddress(HostId id, Network network);
	/// Gives the host its interfaces, addresses and loopback, and plugs it in.
	void plugIn(HostId id, const Host& host);
	/// Removes the host's interfaces on both networks, also those already gone.
	void unplug(HostId id);

	/// Sets the switch ports of the host up or down on one network.
	void setPort(HostId id, Network network, bool up);
	/// Sets all ports of the host up or down, in one step.
	void setAllPorts(HostId id, bool up);
	/// Takes all ports of the host out of their bridges, which leaves them their carrier, or puts
	/// them back.
	void setBridged(HostId id, bool bridged);
	/// Cuts the path between the two nodes on one network, or joins it again.
	void isolateNodes(Network network, bool isolated);

	/// Makes the host's port on that network a bad one, from now on; replaces what
	/// the port suffered from before.
	/// @throws LabError when the host is not on that network, or no relay can be started
	void impair(HostId id, Network network, const Impairment& impairment);
	/// Makes the port a good one again; frames under way in the relay are lost.
	/// @throws LabError when the relay had ended by itself: nothing passed the port since
	void unimpair(HostId id, Network network);
	bool isImpaired(HostId id, Network network) const
	{
		return m_ports[indexOf(id)][indexOf(network)].impairment.has_value();
	}

private:
	/// What is known of one switch port.
	struct Port
	{
		std::optional<Impairment> impairment;
		pid_t relay = -1;
		bool plugged = false;
		bool bridged = true; ///< see setBridged
	};

	const Host& m_rootHost;
	std::array<std::array<Port, 2>, 5> m_ports; ///< by host and network
	std::array<bool, 2> m_isolated{};           ///< by network

	static std::size_t indexOf(Network network) { return static_cast<std::size_t>(network); }
	static std::size_t indexOf(HostId id) { return lab::indexOf(id); }
	Port& port(HostId id, Network network) { return m_ports[indexOf(id)][indexOf(network)]; }
	/// Puts a relay between port and bridge.
	void insertRelay(HostId id, Network network);
	/// @return whether there was one
	bool endRelay(Port& port);
	/// The name of the interface that stands in the bridge for the host.
	std::string bridgeSide(HostId id, Network network);
	std::string isolationLine(HostId id, Network network);
	void batch(const std::string& lines) const;
};

} // namespace velarix::lab
