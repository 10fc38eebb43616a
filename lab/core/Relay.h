/// Carries Ethernet frames between two interfaces of one network namespace on a
/// thread of its own, and lets them be lost or late on the way.
///
/// It stands between a switch port that was taken out of its bridge and a
/// virtual cable into that bridge. Frames are passed with their offload data, so
/// large segments and checksums that no interface has filled in yet go through.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "lab/core/Basics.h"
#include "lab/core/Host.h"
#include "lab/core/Impairment.h"

namespace velarix::lab
{

/// Frames, from the host and to the host.
struct RelayCounts
{
	std::uint64_t passedFrom = 0;
	std::uint64_t passedTo = 0;
	std::uint64_t lostFrom = 0; ///< on purpose
	std::uint64_t lostTo = 0;
	std::uint64_t refused = 0; ///< the interface was down, or too many frames were waiting
};

struct RelayPlan
{
	std::string hostSide;   ///< interface whose other end is the host's interface
	std::string bridgeSide; ///< interface whose other end is in the bridge
	Impairment impairment{};
	InterfaceAddress peer{}; ///< of impairment.peer, when there is one
};

class Relay
{
public:
	/// Begins to carry frames. Both interfaces are in the network of `rootHost`.
	/// @throws LabError when an interface is not there
	Relay(const Host& rootHost, const RelayPlan& plan);
	/// Ends it; frames under way are lost.
	~Relay();
	Relay(const Relay&) = delete;
	Relay& operator=(const Relay&) = delete;

	/// Replaces the impairment; frames under way keep their times.
	void change(const Impairment& impairment, const InterfaceAddress& peer);

	RelayCounts counts() const;

private:
	struct Lines;

	std::unique_ptr<Lines> m_lines;
	Descriptor m_wake;
	std::atomic<bool> m_stop{false};
	std::thread m_thread;

	void loop();
};

} // namespace velarix::lab
