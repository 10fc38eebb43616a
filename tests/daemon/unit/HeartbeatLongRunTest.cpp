// Hundreds of heartbeats, silences and garbage between two nodes, with all waits
// left out: the totals of the lines and the states in the end.

#include <cstdlib>
#include <random>

#include "LoopPair.h"
#include "Peer.h"

namespace
{

constexpr std::uint16_t kPort = 7001;

class HeartbeatLongRun : public LoopPair
{
protected:
	/// One pass of each node in which it hears the other.
	void hearEachOther()
	{
		EXPECT_TRUE(a->pass([this] { b->beat(); }));
		EXPECT_TRUE(b->pass([this] { a->beat(); }));
	}

	static void send(const LoopNode& node, const std::string& bytes)
	{
		peer::connectTo(kPort, node.address127).send(bytes);
	}

	static void expectCalm(LoopNode& node, MODE role)
	{
		EXPECT_EQ(node.role, role);
		EXPECT_EQ(node.status(), 1);
		EXPECT_EQ(node.asking, 0);
	}
};

TEST_F(HeartbeatLongRun, TwoSilencesBeforeEveryHeartbeatNeverAddUp)
{
	a->serve();
	b->reachesPartner = false;
	b->address = true; // a silent service would be taken over at once
	for (int i = 0; i < 200; ++i)
	{
		EXPECT_FALSE(b->pass());
		EXPECT_FALSE(b->pass());
		EXPECT_TRUE(b->pass([this] { a->beat(); }));
	}
	expectCalm(*b, MODE_SLAVE);
	EXPECT_EQ(b->lines("E CHeartReciver:146"), 400);
	EXPECT_EQ(b->lines("D CHeartReciver:189"), 400);
	EXPECT_EQ(b->lines("D CHeartReciver:192"), 0);
	EXPECT_EQ(b->lines("D CHeartReciver:287"), 200);
	EXPECT_EQ(b->lines("D CHeartReciver:124"), 600);
	EXPECT_EQ(b->lines("D CHeartReciver:84"), 600);
}

TEST_F(HeartbeatLongRun, GarbageOfAttackersChangesNothing)
{
	a->serve();
	const std::vector<std::string> garbage = {"GET / HTTP/1.0\r\n\r\n", "/proc/1/1/x/1/", std::string(256, '\0'),
	                                          "/process/1/1/x/",        "\xff\xfe\xfd",   "/Process/0/2/x/1/"};
	for (int i = 0; i < 100; ++i)
	{
		for (const std::string& text : garbage)
		{
			EXPECT_TRUE(a->pass([&] { send(*a, text); }));
			EXPECT_TRUE(b->pass([&] { send(*b, text); }));
		}
		hearEachOther();
	}
	expectCalm(*a, MODE_MASTER);
	expectCalm(*b, MODE_SLAVE);
	for (const LoopNode* pNode : {a.get(), b.get()})
	{
		EXPECT_EQ(pNode->lines("D CHeartReciver:164"), 700);
		EXPECT_EQ(pNode->lines("E CHeartReciver:246"), 400);
		EXPECT_EQ(pNode->lines("D CHeartReciver:252"), 200);
		EXPECT_EQ(pNode->lines("D CHeartReciver:249"), 300);
	}
	EXPECT_THAT(events::only({"system", "command vip", "command kill"}), testing::IsEmpty());
}

TEST_F(HeartbeatLongRun, TheServiceMovesToAndFroTwoHundredTimes)
{
	a->serve();
	for (int i = 0; i < 200; ++i)
	{
		SCOPED_TRACE(i);
		LoopNode& giver = i % 2 == 0 ? *a : *b;
		LoopNode& taker = i % 2 == 0 ? *b : *a;
		giver.programs = false;
		EXPECT_FALSE(giver.pass());
		EXPECT_EQ(giver.asking, 1);
		EXPECT_FALSE(giver.address);
		EXPECT_TRUE(taker.pass([&] { giver.beat(); }));
		EXPECT_TRUE(taker.serves());
		EXPECT_TRUE(giver.pass([&] { taker.beat(); }));
		EXPECT_TRUE(taker.pass([&] { giver.beat(); }));
		expectCalm(giver, MODE_SLAVE);
		expectCalm(taker, MODE_MASTER);
	}
	for (const LoopNode* pNode : {a.get(), b.get()})
	{
		EXPECT_EQ(pNode->lines("D CHeartReciver:106"), 100);
		EXPECT_EQ(pNode->lines("D CHeartReciver:414"), 100);
		EXPECT_EQ(pNode->lines("D CHeartReciver:278"), 100);
		EXPECT_EQ(pNode->lines("D CHeartReciver:287"), 100);
		EXPECT_EQ(pNode->lines("E Utill:78"), 100);
	}
}

TEST_F(HeartbeatLongRun, OfTwoMastersTheConfiguredOneRestartsAndTheOtherRests)
{
	a->serve();
	b->serve();
	a->pass([this] { b->beat(); });
	b->pass([this] { a->beat(); });
	EXPECT_EQ(a->lines("D CHeartReciver:470"), 1);
	EXPECT_EQ(b->lines("D CHeartReciver:480"), 1);
	expectCalm(*a, MODE_MASTER);
	expectCalm(*b, MODE_SLAVE);
	EXPECT_TRUE(a->serves());
	EXPECT_FALSE(b->address || b->programs);
}

TEST_F(HeartbeatLongRun, AnAskInVainReturnsTheMasterRoleAtTheFourthHeartbeatAndANewOneCountsAnew)
{
	a->serve();
	for (int ask = 1; ask <= 2; ++ask)
	{
		a->programs = false;
		EXPECT_FALSE(a->pass());
		for (int i = 1; i <= 3; ++i)
		{
			EXPECT_TRUE(a->pass([this] { b->beat(); }));
			EXPECT_EQ(a->role, MODE_SLAVE);
			EXPECT_EQ(a->asking, 1);
			EXPECT_EQ(a->count(), i);
		}
		EXPECT_TRUE(a->pass([this] { b->beat(); }));
		expectCalm(*a, MODE_MASTER);
		EXPECT_TRUE(a->serves());
	}
}

TEST_F(HeartbeatLongRun, AsksThatCrossOnTheWireMakeTwoMastersUntilTheNextHeartbeats)
{
	a->serve();
	b->serve();
	for (LoopNode* pNode : {a.get(), b.get()})
	{
		pNode->programs = false;
		EXPECT_FALSE(pNode->pass());
		EXPECT_EQ(pNode->asking, 1);
	}
	for (int i = 1; i <= 4; ++i)
	{
		EXPECT_TRUE(a->pass([this] { send(*a, "/process/0/2/20240131235959/1/"); }));
		EXPECT_TRUE(b->pass([this] { send(*b, "/process/0/2/20240131235959/1/"); }));
	}
	EXPECT_EQ(a->role, MODE_MASTER);
	EXPECT_EQ(b->role, MODE_MASTER);
	EXPECT_TRUE(b->pass([this] { a->beat(); }));
	expectCalm(*a, MODE_MASTER);
	expectCalm(*b, MODE_SLAVE);
}

/// The bytes that an attacker or a broken partner may send.
std::string anyBytes(std::mt19937& random)
{
	std::string bytes(std::uniform_int_distribution<std::size_t>(1, 600)(random), '\0');
	std::generate(bytes.begin(), bytes.end(),
	              [&] { return static_cast<char>(std::uniform_int_distribution<int>(0, 255)(random)); });
	return bytes;
}

std::string anyHeartbeat(std::mt19937& random)
{
	const auto pick = [&](std::initializer_list<const char*> texts)
	{ return *(texts.begin() + std::uniform_int_distribution<std::size_t>(0, texts.size() - 1)(random)); };
	return std::string("/process/") + pick({"0", "1", ""}) + "/" + pick({"1", "2", "", "01"}) + "/" +
	       pick({"", "20240131235959"}) + "/" + pick({"0", "1", "", "10", "x"}) + "/";
}

class RandomHeartbeats : public HeartbeatLongRun
{
protected:
	void SetUp() override
	{
		LoopPair::SetUp();
		const char* text = std::getenv("VELARIX_TEST_SEED");
		char* pEnd = nullptr;
		const std::uint32_t seed =
		    text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, &pEnd, 10)) : std::random_device{}();
		ASSERT_TRUE(text == nullptr || (pEnd != text && *pEnd == '\0')) << "VELARIX_TEST_SEED is no number: " << text;
		m_trace =
		    std::make_unique<testing::ScopedTrace>(__FILE__, __LINE__, "VELARIX_TEST_SEED=" + std::to_string(seed));
		std::cout << "VELARIX_TEST_SEED=" << seed << std::endl;
		random.seed(seed);
	}
	void TearDown() override
	{
		m_trace.reset();
		LoopPair::TearDown();
	}

	bool oneIn(int n) { return std::uniform_int_distribution<int>(1, n)(random) == 1; }

	void breakOrRepair(LoopNode& node)
	{
		for (bool LoopNode::*pPart :
		     {&LoopNode::eth0, &LoopNode::eth1, &LoopNode::reachesGateway, &LoopNode::reachesPartner})
		{
			node.*pPart = node.*pPart ? !oneIn(40) : oneIn(6);
		}
		if (oneIn(40))
		{
			node.programs = false;
		}
	}

	/// A pass with a random call of the partner or of an attacker, or with silence.
	void step(LoopNode& node)
	{
		const int kind = std::uniform_int_distribution<int>(0, 9)(random);
		const std::string bytes = kind == 4 ? anyBytes(random) : anyHeartbeat(random);
		std::function<void()> call;
		if (kind < 4)
		{
			call = [&] { node.partner->beat(); };
		}
		else if (kind < 6)
		{
			call = [&] { send(node, bytes); };
		}
		else if (kind == 6)
		{
			call = [&] { peer::connectTo(kPort, node.address127); };
		}
		node.pass(call);
		EXPECT_TRUE(node.role == MODE_MASTER || node.role == MODE_SLAVE);
		EXPECT_TRUE(node.status() == 0 || node.status() == 1);
		EXPECT_TRUE(node.asking == 0 || node.asking == 1);
		EXPECT_TRUE(node.count() >= 0 && node.count() <= 3);
	}

	std::mt19937 random;

private:
	std::unique_ptr<testing::ScopedTrace> m_trace;
};

TEST_F(RandomHeartbeats, ThePairSettlesOnOneMasterOnceAllIsWell)
{
	a->serve();
	for (int round = 0; round < 10 && !HasFailure(); ++round)
	{
		for (int i = 0; i < 60; ++i)
		{
			LoopNode& node = oneIn(2) ? *a : *b;
			breakOrRepair(node);
			step(node);
		}
		for (LoopNode* pNode : {a.get(), b.get()})
		{
			pNode->eth0 = pNode->eth1 = pNode->reachesGateway = pNode->reachesPartner = true;
		}
		for (int i = 0; i < 20; ++i)
		{
			a->pass([this] { b->beat(); });
			b->pass([this] { a->beat(); });
		}
		EXPECT_EQ(a->role + b->role, MODE_MASTER + MODE_SLAVE) << "a " << a->role << " b " << b->role;
	}
}

} // namespace
