/// What a bad wire does to the frames that pass it: loss, delay, jitter, in one
/// direction or both, for everybody or for one partner only.
///
/// An impairment belongs to one switch port (Wiring::impair). Its decisions come
/// from a seeded generator for each direction, so the n-th frame of a direction
/// always meets the same fate for the same seed.
///
/// The delay of a frame is drawn evenly from delay - jitter to delay + jitter.
/// Frames keep their order: one that has drawn a short delay waits for the one
/// before it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>

#include "lab/core/Basics.h"

namespace velarix::lab
{

enum class Direction
{
	both,
	fromHost, ///< what the host sends
	toHost    ///< what the host receives
};

struct Impairment
{
	double lossPercent = 0; ///< 0 to 100, of the frames of each impaired direction
	Millis delay{0};        ///< of each impaired direction: both make a round trip twice as slow
	Millis jitter{0};       ///< at most the delay
	Direction direction = Direction::both;
	/// Only frames to or from this host are impaired. What the host receives from
	/// a peer is known wholly, broadcasts included; of what it sends, broadcasts
	/// and multicasts pass, since others are to hear them. To cut the way from a to
	/// b and nothing else, impair the port of b: {100 %, toHost, peer a}.
	std::optional<HostId> peer{};
	std::uint64_t seed = 1;
};

/// How a frame tells who sent it and whom it is for.
struct InterfaceAddress
{
	std::array<std::uint8_t, 6> hardware{};
	std::array<std::uint8_t, 4> internet{};
};

/// @return true when the Ethernet frame comes from that interface, or from its IPv4
///         address (IPv4 or ARP)
bool comesFrom(std::span<const std::uint8_t> frame, const InterfaceAddress& interface);
/// @return true when the Ethernet frame is for that interface, or for its IPv4
///         address (IPv4 or ARP); a broadcast is for nobody, but for ARP
bool goesTo(std::span<const std::uint8_t> frame, const InterfaceAddress& interface);

/// The fate of the frames of one direction, one after the other. Nothing in here
/// waits or knows a clock of its own.
class LineModel
{
public:
	using Time = std::chrono::steady_clock::time_point;

	/// `salt` tells the directions of one impairment apart.
	LineModel(const Impairment& impairment, std::uint64_t salt);

	/// @return when the frame that came at `now` is to leave; empty: it is lost
	std::optional<Time> next(Time now);

private:
	double m_loss;
	std::chrono::nanoseconds m_delay;
	std::chrono::nanoseconds m_jitter;
	std::mt19937_64 m_random;
	Time m_last{};

	/// 0 to 1, 1 left out.
	double draw();
};

} // namespace velarix::lab
