// ARP, and the datagrams between the two keepers: what counts, and what does not.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "keeper/Network.h"
#include "keeper/PartnerLink.h"

namespace
{

using namespace velarix::keeper;

using Bytes = std::vector<std::uint8_t>;

const std::uint32_t kAddress = ::inet_addr("192.0.2.100");
const std::uint32_t kAnother = ::inet_addr("192.0.2.1");
const Mac kOwn{2, 0, 0, 0, 0, 1};
const Mac kOther{2, 0, 0, 0, 0, 2};

constexpr std::size_t kOperation = 21; ///< its second byte
constexpr std::size_t kSender = 28;
constexpr std::size_t kTarget = 38;

Bytes bytesOf(const ArpFrame& frame)
{
	return {frame.begin(), frame.end()};
}

ArpKind kindOf(const Bytes& frame)
{
	return readArp(frame, kAddress, kOwn).kind;
}

Bytes with(Bytes frame, std::size_t place, std::uint32_t address)
{
	std::memcpy(&frame[place], &address, sizeof address);
	return frame;
}

Bytes with(Bytes frame, std::size_t place, int byte)
{
	frame[place] = static_cast<std::uint8_t>(byte);
	return frame;
}

TEST(Arp, WhatOthersSayCountsAndNothingElse)
{
	const Bytes probe = bytesOf(arpProbe(kAddress, kOther));
	const Bytes claim = bytesOf(arpAnnouncement(kAddress, kOther));
	const Bytes reply = with(with(claim, kOperation, 2), kTarget, kAnother);
	EXPECT_EQ(readArp(probe, kAddress, kOwn).from, kOther);
	const std::vector<std::tuple<const char*, Bytes, ArpKind>> rows{
	    {"a probe", probe, ArpKind::foreignProbe},
	    {"an announcement", claim, ArpKind::claim},
	    {"a reply", reply, ArpKind::claim},
	    {"our own probe", bytesOf(arpProbe(kAddress, kOwn)), ArpKind::none},
	    {"our own announcement", bytesOf(arpAnnouncement(kAddress, kOwn)), ArpKind::none},
	    {"a probe for another address", bytesOf(arpProbe(kAnother, kOther)), ArpKind::none},
	    {"an announcement of another", bytesOf(arpAnnouncement(kAnother, kOther)), ArpKind::none},
	    {"a reply of another", with(reply, kSender, kAnother), ArpKind::none},
	    {"a client's question", with(probe, kSender, kAnother), ArpKind::none},
	    {"a probe that is no request", with(probe, kOperation, 2), ArpKind::none}};
	for (const auto& [name, frame, kind] : rows)
	{
		EXPECT_EQ(kindOf(frame), kind) << name;
	}
	for (const std::size_t place : {12U, 13U, 14U, 15U, 16U, 17U, 18U, 19U, 20U})
	{
		EXPECT_EQ(kindOf(with(claim, place, claim[place] + 1)), ArpKind::none) << "byte " << place;
	}
	for (const int operation : {0, 3, 8, 255})
	{
		EXPECT_EQ(kindOf(with(claim, kOperation, operation)), ArpKind::none) << "operation " << operation;
	}
}

TEST(Arp, ShortFramesAreNothingAndPaddedOnesAre)
{
	Bytes frame = bytesOf(arpAnnouncement(kAddress, kOther));
	for (std::size_t length = 0; length < frame.size(); ++length)
	{
		// A heap block of just that size, for the address sanitizer.
		const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
		EXPECT_EQ(kindOf(cut), ArpKind::none) << length;
	}
	for (const std::size_t length : {60U, 1500U})
	{
		frame.resize(length);
		EXPECT_EQ(kindOf(frame), ArpKind::claim);
	}
}

TEST(Arp, AsOnTheWire)
{
	const Bytes probe{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0, 1, 8, 6, 0, 1, 8, 0,   6, 4, 0,
	                  1,    2,    0,    0,    0,    0,    1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 192, 0, 2, 100};
	EXPECT_EQ(bytesOf(arpProbe(kAddress, kOwn)), probe);
	EXPECT_EQ(bytesOf(arpAnnouncement(kAddress, kOwn)), with(probe, kSender, kAddress));
}

const Key kKey{1, 2, 3};
const std::uint32_t kOne = ::inet_addr("127.0.0.1");
const std::uint32_t kTwo = ::inet_addr("127.0.0.2");

TEST(PartnerDatagram, NothingOfItCanBeChanged)
{
	const Datagram datagram = seal(kKey, kOne, 1, PartnerWord::ready, Nonce{7});
	EXPECT_TRUE(isGenuine(datagram, kKey, kOne));
	EXPECT_FALSE(isGenuine(datagram, kKey, kTwo)) << "a node's own datagram passes for its partner's";
	EXPECT_FALSE(isGenuine(datagram, Key{1, 2, 4}, kOne));
	for (std::size_t i = 0; i < datagram.size(); ++i)
	{
		Datagram changed = datagram;
		changed.at(i) ^= 1U;
		EXPECT_FALSE(isGenuine(changed, kKey, kOne)) << "byte " << i;
	}
}

/// Two ends on this machine.
struct Link
{
	Link(const char* own, const char* partner, const std::optional<Key>& key, PartnerWord word)
	    : link({.address = {}, .targets = {}, .own = own, .partner = partner, .port = 17'311}, key,
	           [this, word]
	           {
		           ++asked;
		           return word;
	           })
	{
		link.open();
	}

	std::optional<PartnerWord> read()
	{
		int limit = 64;
		return link.read(limit);
	}

	int asked = 0;
	PartnerLink link;
};

TEST(PartnerLink, AnswersCountForTheQuestionThatIsOpenAndOnce)
{
	Link a("127.0.0.1", "127.0.0.2", kKey, PartnerWord::fails);
	Link b("127.0.0.2", "127.0.0.1", kKey, PartnerWord::ready);
	ASSERT_TRUE(a.link.descriptor() >= 0 && b.link.descriptor() >= 0);
	const auto answer = [&]
	{
		b.read();
		return a.read();
	};
	EXPECT_EQ(answer(), std::nullopt) << "nobody has asked";
	a.link.ask();
	EXPECT_EQ(answer(), PartnerWord::ready);
	EXPECT_EQ(b.asked, 1);
	// Asked twice, answered twice: the second answer is to nobody's question.
	a.link.ask();
	a.link.ask();
	EXPECT_EQ(answer(), PartnerWord::ready);
	EXPECT_EQ(b.asked, 3);
	EXPECT_EQ(a.read(), std::nullopt);
}

TEST(PartnerLink, AWordOfALaterVersionIsNone)
{
	Link a("127.0.0.1", "127.0.0.2", kKey, PartnerWord::fails);
	Link b("127.0.0.2", "127.0.0.1", kKey, static_cast<PartnerWord>(3));
	a.link.ask();
	b.read();
	EXPECT_EQ(b.asked, 1);
	EXPECT_EQ(a.read(), std::nullopt);
}

TEST(PartnerLink, APortThatIsTakenIsReported)
{
	Link a("127.0.0.1", "127.0.0.2", kKey, PartnerWord::fails);
	Link again("127.0.0.1", "127.0.0.2", kKey, PartnerWord::fails);
	EXPECT_EQ(a.link.bindError(), 0);
	EXPECT_EQ(again.link.bindError(), EADDRINUSE);
}

TEST(PartnerLink, WithoutAKeyItIsNotOpened)
{
	Link a("127.0.0.1", "127.0.0.2", std::nullopt, PartnerWord::fails);
	EXPECT_LT(a.link.descriptor(), 0);
	a.link.ask();
}

TEST(PartnerLink, AKeyIsRootsAlone)
{
	const std::string path = testing::TempDir() + "reachability.key." + std::to_string(::getpid());
	std::ofstream(path) << std::string(62, '0') << "ff\n";
	::chmod(path.c_str(), 0600);
	std::string error;
	const std::optional<Key> key = readKey(path, error);
	if (::geteuid() != 0)
	{
		EXPECT_FALSE(key) << "of another user";
	}
	else
	{
		ASSERT_TRUE(key) << error;
		EXPECT_EQ(key->at(31), 0xff);
		::chmod(path.c_str(), 0640);
		EXPECT_FALSE(readKey(path, error));
		::chmod(path.c_str(), 0600);
		std::ofstream(path) << std::string(63, '0') << "g\n";
		EXPECT_FALSE(readKey(path, error));
	}
	std::filesystem::remove(path);
	EXPECT_FALSE(readKey(path, error));
	EXPECT_NE(error.find("No such file"), std::string::npos);
}

} // namespace
