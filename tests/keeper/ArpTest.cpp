// The ARP reader: what counts, and that nothing else does.
#include <cstring>
#include <random>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "keeper/Arp.h"

namespace
{

using namespace velarix::keeper;

const std::uint32_t kAddress = ::inet_addr("192.0.2.100");
const std::uint32_t kAnother = ::inet_addr("192.0.2.1");
const Mac kOwn{2, 0, 0, 0, 0, 1};
const Mac kOther{2, 0, 0, 0, 0, 2};

std::vector<std::uint8_t> bytesOf(const ArpFrame& frame)
{
	return {frame.begin(), frame.end()};
}

ArpKind kindOf(const std::vector<std::uint8_t>& frame)
{
	return readArp(frame, kAddress, kOwn).kind;
}

/// A reply in which `from` names `sender` as its own.
std::vector<std::uint8_t> reply(std::uint32_t sender, const Mac& from)
{
	std::vector<std::uint8_t> frame = bytesOf(arpAnnouncement(sender, from));
	frame[21] = 2;
	std::memcpy(&frame[38], &kAnother, sizeof kAnother);
	return frame;
}

TEST(Arp, WhatOthersSay)
{
	EXPECT_EQ(kindOf(bytesOf(arpProbe(kAddress, kOther))), ArpKind::foreignProbe);
	EXPECT_EQ(kindOf(bytesOf(arpAnnouncement(kAddress, kOther))), ArpKind::claim);
	EXPECT_EQ(kindOf(reply(kAddress, kOther)), ArpKind::claim);
	EXPECT_EQ(readArp(bytesOf(arpProbe(kAddress, kOther)), kAddress, kOwn).from, kOther);
}

TEST(Arp, OurOwnAndOtherAddressesAreNothing)
{
	EXPECT_EQ(kindOf(bytesOf(arpProbe(kAddress, kOwn))), ArpKind::none);
	EXPECT_EQ(kindOf(bytesOf(arpAnnouncement(kAddress, kOwn))), ArpKind::none);
	EXPECT_EQ(kindOf(bytesOf(arpProbe(kAnother, kOther))), ArpKind::none);
	EXPECT_EQ(kindOf(bytesOf(arpAnnouncement(kAnother, kOther))), ArpKind::none);
	EXPECT_EQ(kindOf(reply(kAnother, kOther)), ArpKind::none);
}

TEST(Arp, AClientThatAsksForTheAddressIsNoProbe)
{
	std::vector<std::uint8_t> question = bytesOf(arpProbe(kAddress, kOther));
	std::memcpy(&question[28], &kAnother, sizeof kAnother);
	EXPECT_EQ(kindOf(question), ArpKind::none);
}

TEST(Arp, AProbeIsARequest)
{
	std::vector<std::uint8_t> frame = bytesOf(arpProbe(kAddress, kOther));
	frame[21] = 2;
	EXPECT_EQ(kindOf(frame), ArpKind::none);
}

TEST(Arp, EveryFixedByteCounts)
{
	const std::vector<std::uint8_t> good = bytesOf(arpAnnouncement(kAddress, kOther));
	for (const std::size_t place : {12U, 13U, 14U, 15U, 16U, 17U, 18U, 19U, 20U})
	{
		std::vector<std::uint8_t> bad = good;
		bad[place] = static_cast<std::uint8_t>(bad[place] + 1);
		EXPECT_EQ(kindOf(bad), ArpKind::none) << "byte " << place;
	}
	for (const int operation : {0, 3, 8, 255})
	{
		std::vector<std::uint8_t> bad = good;
		bad[21] = static_cast<std::uint8_t>(operation);
		EXPECT_EQ(kindOf(bad), ArpKind::none) << "operation " << operation;
	}
}

TEST(Arp, ShortFramesAreNothingAndPaddedOnesAre)
{
	std::vector<std::uint8_t> frame = bytesOf(arpAnnouncement(kAddress, kOther));
	for (std::size_t length = 0; length < frame.size(); ++length)
	{
		// A heap block of just that size, for the address sanitizer.
		const std::vector<std::uint8_t> cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
		EXPECT_EQ(kindOf(cut), ArpKind::none) << length;
	}
	frame.resize(60);
	EXPECT_EQ(kindOf(frame), ArpKind::claim);
	frame.resize(1500);
	EXPECT_EQ(kindOf(frame), ArpKind::claim);
}

TEST(Arp, AsOnTheWire)
{
	const std::vector<std::uint8_t> probe{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0,   1, 8, 6,
	                                      0,    1,    8,    0,    6,    4,    0, 1, 2, 0, 0,   0, 0, 1,
	                                      0,    0,    0,    0,    0,    0,    0, 0, 0, 0, 192, 0, 2, 100};
	EXPECT_EQ(bytesOf(arpProbe(kAddress, kOwn)), probe);
	std::vector<std::uint8_t> announcement = probe;
	std::memcpy(&announcement[28], &kAddress, sizeof kAddress);
	EXPECT_EQ(bytesOf(arpAnnouncement(kAddress, kOwn)), announcement);
}

} // namespace
