/// Carries Ethernet frames between two interfaces of one network namespace on a
/// thread of its own, and lets them be lost or late on the way.
///
/// It stands between a switch port that was taken out of its bridge and a
/// virtual cable into that bridge. Frames are passed with their offload data, so
/// large segments and checksums that no interface has filled in yet go through.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

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
	using Time = LineModel::Time;
	using Bytes = std::span<const std::uint8_t>;

	struct Waiting
	{
		Time due;
		std::vector<std::uint8_t> bytes;
	};

	/// One direction.
	struct Line
	{
		Direction direction;
		int from = -1; ///< sockets
		int to = -1;
		LineModel model;
		bool impaired = false;
		std::deque<Waiting> waiting{};
		std::atomic<std::uint64_t> passed{0};
		std::atomic<std::uint64_t> lost{0};
		std::atomic<std::uint64_t> refused{0};

		Line(Direction which, const Impairment& impairment);
		void change(const Impairment& impairment);
		void send(Bytes bytes);
	};

	Descriptor m_hostSide;
	Descriptor m_bridgeSide;
	Descriptor m_wake;
	Line m_fromHost;
	Line m_toHost;
	std::mutex m_mutex;
	InterfaceAddress m_peer{};
	bool m_onlyPeer = false;
	std::vector<std::uint8_t> m_buffer;
	std::jthread m_thread; ///< ends before what it uses

	bool concerned(const Line& line, Bytes frame) const;
	void accept(Line& line, Bytes bytes, Time now);
	void receive(Line& line);
	std::optional<Time> work();
	void loop(const std::stop_token& stop);
};

} // namespace velarix::lab
