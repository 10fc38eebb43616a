/// Frames from the wire as the keeper reads them.
///
/// Input: a byte, and frames with a byte before each that says how long it is. The reader
/// sees in each what a comparison with the two layouts of RFC 5227 sees; and whatever they
/// are, the address is on the interface only while it is held, nothing is announced more
/// often than ten times a second, and something is always due.
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "keeper/AddressMachine.h"
#include "keeper/Network.h"

#include "Target.h"

namespace
{

using namespace velarix::keeper;

constexpr std::array<std::uint8_t, 4> kAddress{192, 0, 2, 100};
constexpr Mac kOwn{2, 0, 0, 0, 0, 1};

using Bytes = std::vector<std::uint8_t>;

bool holds(const Bytes& frame, std::size_t place, const Bytes& expected)
{
	return frame.size() >= place + expected.size() &&
	       std::equal(expected.begin(), expected.end(), frame.begin() + static_cast<std::ptrdiff_t>(place));
}

ArpKind expectedKind(const Bytes& frame)
{
	const Bytes address(kAddress.begin(), kAddress.end());
	const bool request = holds(frame, 12, {8, 6, 0, 1, 8, 0, 6, 4, 0, 1});
	const bool reply = holds(frame, 12, {8, 6, 0, 1, 8, 0, 6, 4, 0, 2});
	if (frame.size() < 42 || (!request && !reply) || holds(frame, 22, {2, 0, 0, 0, 0, 1}))
	{
		return ArpKind::none;
	}
	if (holds(frame, 28, address))
	{
		return ArpKind::claim;
	}
	return request && holds(frame, 28, {0, 0, 0, 0}) && holds(frame, 38, address) ? ArpKind::foreignProbe
	                                                                              : ArpKind::none;
}

/// The address as the kernel and the network see it.
class Address
{
public:
	explicit Address(bool defend)
	{
		m_machine.defend = defend;
		feed(AddressEvent::linkUp, {});
	}

	void feed(AddressEvent event, const Mac& from)
	{
		const AddressStep step = next(m_machine, {event, m_now, from, static_cast<std::uint32_t>(m_now)});
		m_machine = step.machine;
		m_present = (m_present && !step.actions.lower) || step.actions.raise;
		fuzz::expect("on the interface while it is held, and only then", m_present == m_machine.held());
		if (step.actions.announce)
		{
			fuzz::expect("announced at most ten times a second", m_now - m_announcedAt >= timing::kDefendGap);
			m_announcedAt = m_now;
		}
		fuzz::expect("something is due", m_machine.deadline() <= m_now + timing::kWatch);
	}

	void pass(Millis time)
	{
		for (const Millis end = m_now + time; m_machine.deadline() <= end;)
		{
			m_now = std::max(m_now, m_machine.deadline());
			feed(AddressEvent::timer, {});
		}
		m_now += time;
	}

private:
	AddressMachine m_machine;
	Millis m_now = 1'000'000;
	Millis m_announcedAt = 0;
	bool m_present = false;
};

} // namespace

void fuzz::run(Input& input)
{
	Address address(input.byte() % 2 == 1);
	std::uint32_t number = 0;
	std::copy(kAddress.begin(), kAddress.end(), reinterpret_cast<std::uint8_t*>(&number));
	while (!input.empty())
	{
		Bytes frame(input.byte() % 64);
		for (std::uint8_t& byte : frame)
		{
			byte = static_cast<std::uint8_t>(input.byte());
		}
		const ArpPacket packet = readArp(frame, number, kOwn);
		fuzz::expectEqual("the kind of the frame", static_cast<int>(packet.kind),
		                  static_cast<int>(expectedKind(frame)));
		address.pass(static_cast<Millis>(frame.size()) * 7);
		if (packet.kind != ArpKind::none)
		{
			address.feed(packet.kind == ArpKind::claim ? AddressEvent::claim : AddressEvent::foreignProbe, packet.from);
		}
	}
}
