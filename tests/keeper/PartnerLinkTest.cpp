// The datagrams between the two keepers: what counts, and what does not.
#include <filesystem>
#include <fstream>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "keeper/PartnerLink.h"

namespace
{

using namespace velarix::keeper;

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
