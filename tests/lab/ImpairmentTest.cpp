/// Bad wires: what the model decides, and what hosts of a lab see of it.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>

#include "PairTest.h"
#include "lab/core/Impairment.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

using Clock = std::chrono::steady_clock;
using Micros = std::chrono::microseconds;

std::vector<std::optional<Clock::time_point>> fates(const Impairment& impairment, std::uint64_t salt, int count)
{
	LineModel model(impairment, salt);
	std::vector<std::optional<Clock::time_point>> found;
	for (int frame = 0; frame < count; ++frame)
	{
		found.push_back(model.next(Clock::time_point(std::chrono::seconds(frame))));
	}
	return found;
}

struct Pings
{
	int sent = 0;
	std::vector<Micros> trips; ///< of the answered ones, sorted

	double lossPercent() const { return 100.0 * (sent - static_cast<double>(trips.size())) / sent; }
	Micros median() const { return trips.empty() ? Micros(-1) : trips[trips.size() / 2]; }
};

/// Sends `count` pings, one every `interval`, and waits at most `patience` for the last.
Pings ping(const Host& host, const std::string& address, int count, Millis interval, Millis patience)
{
	Pings pings;
	const auto work = [&]
	{
		// A socket of this kind has an identifier of its own, and only the answers to it come in.
		std::ofstream(host.root() / "proc/sys/net/ipv4/ping_group_range") << "0 0" << std::endl;
		const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP));
		sockaddr_in target{};
		target.sin_family = AF_INET;
		target.sin_addr.s_addr = ::inet_addr(address.c_str());
		std::vector<Clock::time_point> sentAt;
		const auto begin = Clock::now();
		while (std::ssize(pings.trips) < count && Clock::now() < begin + count * interval + patience)
		{
			if (pings.sent < count && Clock::now() >= begin + pings.sent * interval)
			{
				icmphdr header{};
				header.type = ICMP_ECHO;
				header.un.echo.sequence = htons(static_cast<std::uint16_t>(pings.sent++));
				sentAt.push_back(Clock::now());
				::sendto(socket.get(), &header, sizeof header, 0, reinterpret_cast<const sockaddr*>(&target),
				         sizeof target);
			}
			pollfd watched{socket.get(), POLLIN, 0};
			::poll(&watched, 1, 1);
			icmphdr answer{};
			if (::recv(socket.get(), &answer, sizeof answer, MSG_DONTWAIT) == sizeof answer)
			{
				const auto sent = sentAt.at(ntohs(answer.un.echo.sequence));
				pings.trips.push_back(std::chrono::duration_cast<Micros>(Clock::now() - sent));
			}
		}
	};
	inNetworkOf(host, work);
	std::sort(pings.trips.begin(), pings.trips.end());
	return pings;
}

InterfaceAddress interface(std::uint8_t last)
{
	return {{2, 0, 0, 0, 0, last}, {192, 0, 2, last}};
}

/// An ARP or IPv4 frame from interface `from` to `to`; the hardware addresses can be others.
std::vector<std::uint8_t> frame(bool arp, const InterfaceAddress& from, const InterfaceAddress& to)
{
	std::vector<std::uint8_t> bytes(42, 0);
	std::copy(to.hardware.begin(), to.hardware.end(), bytes.begin());
	std::copy(from.hardware.begin(), from.hardware.end(), bytes.begin() + 6);
	bytes[12] = 8;
	bytes[13] = arp ? 6 : 0;
	std::copy(from.internet.begin(), from.internet.end(), bytes.begin() + (arp ? 28 : 26));
	std::copy(to.internet.begin(), to.internet.end(), bytes.begin() + (arp ? 38 : 30));
	return bytes;
}

} // namespace

TEST(ImpairmentModel, LosesTheShareAskedFor)
{
	for (const double percent : {0.0, 10.0, 30.0, 50.0, 100.0})
	{
		Impairment impairment;
		impairment.lossPercent = percent;
		impairment.seed = 42;
		const auto found = fates(impairment, 1, 10000);
		const auto lost = std::count(found.begin(), found.end(), std::nullopt);
		EXPECT_NEAR(static_cast<double>(lost) / 100, percent, percent == 0 || percent == 100 ? 0 : 2);
	}
}

TEST(ImpairmentModel, IsRepeatableFromItsSeed)
{
	Impairment impairment{30, Millis(200), Millis(100)};
	EXPECT_EQ(fates(impairment, 1, 200), fates(impairment, 1, 200));
	EXPECT_NE(fates(impairment, 1, 200), fates(impairment, 2, 200)) << "each direction has its own";
	const auto before = fates(impairment, 1, 200);
	impairment.seed = 2;
	EXPECT_NE(fates(impairment, 1, 200), before);
}

TEST(ImpairmentModel, DelaysWithinTheJitterAndKeepsTheOrder)
{
	const Impairment impairment{0, Millis(200), Millis(150)};
	LineModel model(impairment, 1);
	Clock::time_point last{};
	Clock::duration shortest = Millis(1000);
	Clock::duration longest{};
	for (int count = 0; count < 2000; ++count)
	{
		const Clock::time_point now{Millis(100) * count};
		const auto due = model.next(now);
		ASSERT_TRUE(due);
		EXPECT_GE(*due, last);
		last = *due;
		shortest = std::min(shortest, *due - now);
		longest = std::max(longest, *due - now);
	}
	EXPECT_GE(shortest, Millis(50));
	EXPECT_LT(shortest, Millis(70));
	EXPECT_LE(longest, Millis(350));
	EXPECT_GT(longest, Millis(330));
}

TEST(ImpairmentModel, KnowsWhomAFrameConcerns)
{
	const InterfaceAddress a = interface(11);
	const InterfaceAddress b = interface(12);
	const InterfaceAddress everybody{{255, 255, 255, 255, 255, 255}, {255, 255, 255, 255}};
	InterfaceAddress otherHardware = a;
	otherHardware.hardware = {0, 0, 0x5e, 0, 1, 10};
	for (const bool arp : {false, true})
	{
		EXPECT_TRUE(comesFrom(frame(arp, a, b), a));
		EXPECT_FALSE(comesFrom(frame(arp, a, b), b));
		EXPECT_TRUE(goesTo(frame(arp, a, b), b));
		EXPECT_FALSE(goesTo(frame(arp, a, b), a));
		EXPECT_TRUE(comesFrom(frame(arp, otherHardware, everybody), a)) << "by its internet address";
		EXPECT_FALSE(goesTo(frame(arp, a, everybody), b));
	}
	for (std::size_t size = 0; size < 42; ++size)
	{
		const std::vector<std::uint8_t> whole = frame(true, otherHardware, everybody);
		EXPECT_FALSE(goesTo({whole.data(), size}, b)) << "a short frame is no trap";
	}
}

class BadWire : public testing::Test
{
protected:
	void SetUp() override
	{
		SKIP_WITHOUT_NAMESPACES();
		m_lab = std::make_unique<Lab>();
	}

	Wiring& wiring() { return m_lab->wiring(); }
	Lab& lab() { return *m_lab; }
	void endLab() { m_lab.reset(); }

	Pings pingFrom(HostId from, HostId to, Network network, int count = 100, Millis interval = Millis(10),
	               Millis patience = Millis(2000))
	{
		return ping(m_lab->host(from), plan::addressOf(to, network), count, interval, patience);
	}

	/// Until there are answers: a neighbour that was silent is asked for again only after
	/// seconds, and until then all that is sent to it is dropped.
	void awaitAnswers(HostId from, HostId to, Network network)
	{
		const auto answered = [&]
		{ return pingFrom(from, to, network, 3, Millis(10), Millis(500)).lossPercent() == 0; };
		EXPECT_TRUE(waitFor(answered, Millis(30000), std::string(nameOf(to)) + " to answer " + nameOf(from)));
	}

	/// Nothing is lost once the neighbours know each other.
	void expectGood(HostId from, HostId to, Network network)
	{
		awaitAnswers(from, to, network);
		EXPECT_EQ(pingFrom(from, to, network, 10, Millis(10), Millis(20000)).lossPercent(), 0)
		    << nameOf(from) << " to " << nameOf(to);
	}

private:
	std::unique_ptr<Lab> m_lab;
};

TEST_F(BadWire, AddsLittleOfItsOwn)
{
	expectGood(HostId::client, HostId::a, Network::service);
	const Pings without = pingFrom(HostId::client, HostId::a, Network::service, 200);
	wiring().impair(HostId::a, Network::service, {});
	expectGood(HostId::client, HostId::a, Network::service);
	const Pings with = pingFrom(HostId::client, HostId::a, Network::service, 200);
	std::cout << "round trip without a relay " << without.median().count() << " us, with one that changes nothing "
	          << with.median().count() << " us (median of 200; slowest " << with.trips.back().count() << " us)\n";
	EXPECT_EQ(with.lossPercent(), 0);
	EXPECT_LT(with.median() - without.median(), Micros(5000));
	const RelayCounts counts = wiring().relayCounts(HostId::a, Network::service);
	EXPECT_GE(counts.passedTo, 210U);
	EXPECT_GE(counts.passedFrom, 210U);
	EXPECT_EQ(counts.lostTo + counts.lostFrom, 0U);
	wiring().unimpair(HostId::a, Network::service);
	EXPECT_EQ(wiring().relayCounts(HostId::a, Network::service).passedTo, 0U);
	expectGood(HostId::client, HostId::a, Network::service);
}

TEST_F(BadWire, LosesTheShareOnEachNetwork)
{
	for (const Network network : {Network::service, Network::communication})
	{
		expectGood(HostId::a, HostId::b, network);
		for (const double percent : {10.0, 30.0, 50.0})
		{
			Impairment loss{percent};
			loss.direction = Direction::toHost;
			wiring().impair(HostId::b, network, loss);
			const double fiveDeviations = 5 * std::sqrt(percent * (100 - percent) / 500);
			EXPECT_NEAR(pingFrom(HostId::a, HostId::b, network, 500, Millis(4)).lossPercent(), percent, fiveDeviations);
		}
		EXPECT_EQ(wiring().impairmentOf(HostId::b, network)->lossPercent, 50);
		wiring().unimpair(HostId::b, network);
		EXPECT_FALSE(wiring().impairmentOf(HostId::b, network));
		expectGood(HostId::a, HostId::b, network);
	}
}

TEST_F(BadWire, DelaysInEachImpairedDirection)
{
	const auto within = [](const Pings& pings, Millis least, Millis most)
	{
		EXPECT_EQ(pings.lossPercent(), 0);
		ASSERT_FALSE(pings.trips.empty());
		EXPECT_GE(pings.trips.front(), least);
		EXPECT_LE(pings.median(), most);
	};
	expectGood(HostId::a, HostId::b, Network::communication);
	wiring().impair(HostId::a, Network::communication, {0, Millis(200), Millis(50), Direction::fromHost});
	within(pingFrom(HostId::a, HostId::b, Network::communication, 30), Millis(150), Millis(400));
	wiring().impair(HostId::a, Network::communication, {0, Millis(200), Millis(50)});
	within(pingFrom(HostId::a, HostId::b, Network::communication, 30), Millis(300), Millis(700));
	wiring().unimpair(HostId::a, Network::communication);
	expectGood(HostId::a, HostId::b, Network::communication);
}

/// What a sends to b arrives nowhere; everything else goes on.
TEST_F(BadWire, CutsOneWayBetweenTheNodesOnly)
{
	for (const HostId from : nodes)
	{
		const HostId to = otherNode(from);
		expectGood(from, to, Network::communication);
		expectGood(from, HostId::gateway, Network::communication);
		wiring().impair(to, Network::communication, {100, Millis(0), Millis(0), Direction::toHost, from});
		EXPECT_EQ(pingFrom(from, to, Network::communication, 20).lossPercent(), 100);
		expectGood(from, HostId::gateway, Network::communication);
		expectGood(to, HostId::gateway, Network::communication);
		// The answers do not arrive, but the questions do.
		const std::uint64_t before = wiring().relayCounts(to, Network::communication).passedFrom;
		EXPECT_EQ(pingFrom(to, from, Network::communication, 20).lossPercent(), 100);
		EXPECT_GE(wiring().relayCounts(to, Network::communication).passedFrom, before + 20);
		EXPECT_GE(wiring().relayCounts(to, Network::communication).lostTo, 20U);
		wiring().unimpair(to, Network::communication);
		expectGood(from, to, Network::communication);
	}
}

TEST_F(BadWire, KeepsCarrierIsolationAndItselfOverAReboot)
{
	wiring().impair(HostId::a, Network::communication, {0, Millis(30)});
	wiring().isolateNodes(Network::communication, true);
	lab().powerOff(HostId::a);
	lab().powerOn(HostId::a, false);
	EXPECT_EQ(pingFrom(HostId::a, HostId::b, Network::communication, 10).lossPercent(), 100);
	wiring().isolateNodes(Network::communication, false);
	awaitAnswers(HostId::a, HostId::b, Network::communication);
	EXPECT_GE(pingFrom(HostId::a, HostId::b, Network::communication, 10).median(), Millis(60));
	const auto carrier = [&] { return lab().run(HostId::a, {"cat", "/sys/class/net/eth1/carrier"}).output; };
	EXPECT_EQ(carrier(), "1\n");
	wiring().setPort(HostId::a, Network::communication, false);
	EXPECT_EQ(carrier(), "0\n");
	wiring().setPort(HostId::a, Network::communication, true);
	awaitAnswers(HostId::a, HostId::b, Network::communication);
	EXPECT_GE(pingFrom(HostId::a, HostId::b, Network::communication, 10).median(), Millis(60));
	wiring().unimpair(HostId::a, Network::communication);
	expectGood(HostId::a, HostId::b, Network::communication);
}

/// A web page larger than a frame: segments go through whole and with checksums.
TEST_F(BadWire, PassesLargeSegments)
{
	wiring().impair(HostId::a, Network::service, {0, Millis(5)});
	const char* serve = "import socket; s=socket.create_server(('0.0.0.0',9000)); open('/tmp/up','w').close(); "
	                    "c,_=s.accept(); c.sendall(b'x'*3000000); c.close()";
	const char* fetch = "import socket; c=socket.create_connection(('192.0.2.11',9000),5); n=0\n"
	                    "while True:\n d=c.recv(65536)\n n+=len(d)\n if not d: break\n"
	                    "print(n)";
	ASSERT_TRUE(lab().run(HostId::a, {"sh", "-c", std::string("python3 -c \"") + serve + "\" >/dev/null 2>&1 &"}).ok());
	ASSERT_TRUE(waitFor(
	    [&] {
		    return lab().run(HostId::a, {"test", "-e", "/tmp/up"}).ok();
	    },
	    Millis(10000), "the sender to listen"));
	EXPECT_EQ(lab().run(HostId::client, {"python3", "-c", fetch}).output, "3000000\n");
}

TEST_F(BadWire, TellsWhatIsWrong)
{
	EXPECT_THROW(wiring().impair(HostId::client, Network::communication, {10}), LabError);
	const Impairment toTheClient{10, Millis(0), Millis(0), Direction::both, HostId::client};
	EXPECT_THROW(wiring().impair(HostId::a, Network::communication, toTheClient), LabError);
	EXPECT_FALSE(wiring().impairmentOf(HostId::a, Network::communication));
	wiring().unimpair(HostId::a, Network::communication);
}

} // namespace velarix::lab
