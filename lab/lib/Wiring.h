/// The two networks of a lab: bridges in the rack's network namespace, a pair of
/// virtual cards per host and network, the host's end named eth0 or eth1.
///
/// A port that is set down takes the carrier from the host's card, as a pulled
/// cable does. Isolated ports of one bridge keep their carrier and reach every
/// port but each other. Further faults of the wire (loss, one-way cuts) belong
/// here: the ports have fixed names in one namespace, so packet filters and
/// queueing rules can be hung on them in the same way.
#pragma once

#include <string>

#include "Basics.h"
#include "Host.h"
#include "Plan.h"

namespace velarix::lab
{

class Wiring
{
public:
	/// Makes both bridges. `rack` must outlive the wiring.
	/// @throws NamespacesUnavailable when the kernel has no bridges
	explicit Wiring(const Host& rack);

	/// Gives the host its cards, addresses and loopback, and plugs it in.
	void plugIn(HostId id, const Host& host);
	/// Removes the host's cards on both networks, also those already gone.
	void unplug(HostId id);

	/// Sets the switch ports of the host up or down on one network.
	void setPort(HostId id, Network network, bool up);
	/// Sets all ports of the host up or down, in one step.
	void setAllPorts(HostId id, bool up);
	/// Cuts the path between the two nodes on one network, or joins it again.
	void isolateNodes(Network network, bool isolated);

private:
	const Host& m_rack;

	void batch(const std::string& lines) const;
};

} // namespace velarix::lab
