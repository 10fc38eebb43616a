#include "lab/core/Impairment.h"

#include <algorithm>

#include <net/ethernet.h>

namespace velarix::lab
{

namespace
{

constexpr std::size_t destinationHardware = 0;
constexpr std::size_t sourceHardware = 6;
constexpr std::size_t typeField = 12;
constexpr std::size_t payload = 14;

struct AddressFields
{
	std::size_t source = 0;
	std::size_t destination = 0;
};

/// Where an IPv4 or ARP frame holds its IPv4 addresses.
std::optional<AddressFields> internetFields(std::span<const std::uint8_t> frame)
{
	if (frame.size() < payload)
	{
		return std::nullopt;
	}
	switch (frame[typeField] << 8 | frame[typeField + 1])
	{
	case ETHERTYPE_IP:
		return AddressFields{payload + 12, payload + 16};
	case ETHERTYPE_ARP:
		return AddressFields{payload + 14, payload + 24};
	default:
		return std::nullopt;
	}
}

template <std::size_t size>
bool holds(std::span<const std::uint8_t> frame, std::size_t at, const std::array<std::uint8_t, size>& wanted)
{
	return frame.size() >= at + size && std::equal(wanted.begin(), wanted.end(), frame.begin() + static_cast<long>(at));
}

} // namespace

bool comesFrom(std::span<const std::uint8_t> frame, const InterfaceAddress& interface)
{
	const std::optional<AddressFields> fields = internetFields(frame);
	return holds(frame, sourceHardware, interface.hardware) ||
	       (fields && holds(frame, fields->source, interface.internet));
}

bool goesTo(std::span<const std::uint8_t> frame, const InterfaceAddress& interface)
{
	const std::optional<AddressFields> fields = internetFields(frame);
	return holds(frame, destinationHardware, interface.hardware) ||
	       (fields && holds(frame, fields->destination, interface.internet));
}

LineModel::LineModel(const Impairment& impairment, std::uint64_t salt)
    : m_loss(impairment.lossPercent / 100), m_delay(impairment.delay), m_jitter(impairment.jitter),
      m_random(impairment.seed * 0x9E3779B97F4A7C15U + salt)
{
}

double LineModel::draw()
{
	// The library's distributions differ between implementations; this does not.
	return static_cast<double>(m_random() >> 11U) * 0x1.0p-53;
}

std::optional<LineModel::Time> LineModel::next(Time now)
{
	const double fate = draw();
	const double place = draw();
	if (fate < m_loss)
	{
		return std::nullopt;
	}
	const auto spread = std::chrono::duration<double, std::nano>(m_jitter) * (2 * place - 1);
	const Time wanted = now + m_delay + std::chrono::duration_cast<std::chrono::nanoseconds>(spread);
	m_last = std::max(wanted, m_last);
	return m_last;
}

} // namespace velarix::lab
