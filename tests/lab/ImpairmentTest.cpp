/// What hosts of a lab see of bad wires, and the client's observer of outages, long and short. What the
/// relay decides is in guest_test.py.
#include <cmath>
#include <csignal>
#include <iostream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "PairTest.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

struct Pings
{
	double lossPercent = 100;
	double fastest = 0; ///< ms, of the answered ones
	double median = 0;
	double slowest = 0;
};

/// Pings every so many seconds, and waits as long for the last. Prints how many were lost, and the times.
constexpr const char* pinger = R"(
import select, socket, struct, sys, time
to, count, interval, patience = sys.argv[1], int(sys.argv[2]), float(sys.argv[3]), float(sys.argv[4])
open('/proc/sys/net/ipv4/ping_group_range', 'w').write('0 0')
pinging = socket.socket(socket.AF_INET, socket.SOCK_DGRAM, socket.IPPROTO_ICMP)
sent, trips, begin = [], [], time.monotonic()
while len(trips) < count and time.monotonic() < begin + count * interval + patience:
    try:
        if len(sent) < count and time.monotonic() >= begin + len(sent) * interval:
            sent.append(time.monotonic())
            pinging.sendto(struct.pack('!BBHHH', 8, 0, 0, 0, len(sent) - 1), (to, 0))
        if select.select([pinging], [], [], .001)[0]:
            trips.append(time.monotonic() - sent[struct.unpack('!H', pinging.recv(64)[6:8])[0]])
    except OSError:
        pass
trips = sorted(trips) or [0]
print(100 * (1 - (len(trips) if trips[0] else 0) / count), *(1000 * trips[i] for i in (0, len(trips) // 2, -1)))
)";

} // namespace

class BadWire : public testing::Test
{
protected:
	void SetUp() override
	{
		SKIP_WITHOUT_NAMESPACES();
		m_lab = std::make_unique<Lab>();
	}

	/// The one in this lab; 0: there is none.
	static pid_t relay()
	{
		const std::optional<std::vector<pid_t>> pids = inspect::host::processIds();
		for (const pid_t pid : pids.value())
		{
			const std::optional<Process> process = inspect::host::process(pid);
			if (process && process->parent == ::getpid() &&
			    procText(pid, "cmdline").find("relay.py") != std::string::npos)
			{
				return pid;
			}
		}
		return 0;
	}

	Wiring& wiring() { return m_lab->wiring(); }
	Lab& lab() { return *m_lab; }

	Pings pingFrom(HostId from, HostId to, Network network, int count = 100, double interval = 0.01,
	               double patience = 2)
	{
		const CommandResult result =
		    lab().run(from,
		              {"python3", "-c", pinger, plan::addressOf(to, network), std::to_string(count),
		               std::to_string(interval), std::to_string(patience)},
		              Millis(60000));
		Pings pings;
		std::istringstream figures(result.output);
		EXPECT_TRUE(figures >> pings.lossPercent >> pings.fastest >> pings.median >> pings.slowest) << result.output;
		return pings;
	}

	/// Until there are answers: a neighbour that was silent is asked for again only after
	/// seconds, and until then all that is sent to it is dropped.
	void awaitAnswers(HostId from, HostId to, Network network)
	{
		const auto answered = [&] { return pingFrom(from, to, network, 3, 0.01, 0.5).lossPercent == 0; };
		EXPECT_TRUE(waitFor(answered, Millis(30000), std::string(nameOf(to)) + " to answer " + nameOf(from)));
	}

	/// Nothing is lost once the neighbours know each other.
	void expectGood(HostId from, HostId to, Network network)
	{
		awaitAnswers(from, to, network);
		EXPECT_EQ(pingFrom(from, to, network, 10, 0.01, 20).lossPercent, 0) << nameOf(from) << " to " << nameOf(to);
	}

	/// From here on nobody asks for it, which may be in vain where much is lost.
	void keepNeighbour(HostId from, HostId to, Network network)
	{
		const std::string address = plan::addressOf(to, network);
		const CommandResult result =
		    lab().run(from, {"sh", "-c",
		                     "ip neigh change " + address + " nud permanent dev $(ip neigh show to " + address +
		                         " | cut -d ' ' -f 3)"});
		EXPECT_TRUE(result.ok()) << result.output;
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
	std::cout << "round trip without a relay " << without.median << " ms, with one that changes nothing " << with.median
	          << " ms (median of 200; slowest " << with.slowest << " ms)\n";
	EXPECT_EQ(with.lossPercent, 0);
	EXPECT_LT(with.median - without.median, 5);
	wiring().unimpair(HostId::a, Network::service);
	expectGood(HostId::client, HostId::a, Network::service);
}

TEST_F(BadWire, LosesTheShareOnEachNetwork)
{
	for (const Network network : {Network::service, Network::communication})
	{
		expectGood(HostId::a, HostId::b, network);
		keepNeighbour(HostId::a, HostId::b, network);
		keepNeighbour(HostId::b, HostId::a, network);
		for (const double each : {10.0, 30.0, 50.0})
		{
			wiring().impair(HostId::b, network, {.lossPercent = each});
			const double percent = 100 - (100 - each) * (100 - each) / 100; // a question or its answer
			const double fiveDeviations = 5 * std::sqrt(percent * (100 - percent) / 500);
			EXPECT_NEAR(pingFrom(HostId::a, HostId::b, network, 500, 0.004).lossPercent, percent, fiveDeviations);
		}
		EXPECT_TRUE(wiring().isImpaired(HostId::b, network));
		wiring().unimpair(HostId::b, network);
		EXPECT_FALSE(wiring().isImpaired(HostId::b, network));
		expectGood(HostId::a, HostId::b, network);
	}
}

TEST_F(BadWire, DelaysEachWay)
{
	expectGood(HostId::a, HostId::b, Network::communication);
	wiring().impair(HostId::a, Network::communication, {.delay = Millis(200), .jitter = Millis(50)});
	const Pings late = pingFrom(HostId::a, HostId::b, Network::communication, 30);
	EXPECT_EQ(late.lossPercent, 0);
	EXPECT_GE(late.fastest, 300);
	EXPECT_LE(late.median, 700);
	wiring().unimpair(HostId::a, Network::communication);
	expectGood(HostId::a, HostId::b, Network::communication);
}

TEST_F(BadWire, KeepsCarrierIsolationAndItselfOverAReboot)
{
	wiring().impair(HostId::a, Network::communication, {.delay = Millis(30)});
	wiring().isolateNodes(Network::communication, true);
	wiring().isolateNodes(Network::service, true);
	lab().freezeHost(HostId::a);
	lab().powerOff(HostId::a);
	lab().powerOn(HostId::a, false);
	EXPECT_EQ(pingFrom(HostId::a, HostId::b, Network::communication, 10).lossPercent, 100);
	EXPECT_EQ(pingFrom(HostId::a, HostId::b, Network::service, 10).lossPercent, 100);
	wiring().isolateNodes(Network::communication, false);
	awaitAnswers(HostId::a, HostId::b, Network::communication);
	EXPECT_GE(pingFrom(HostId::a, HostId::b, Network::communication, 10).median, 60);
	const auto carrier = [&] { return lab().run(HostId::a, {"cat", "/sys/class/net/eth1/carrier"}).output; };
	EXPECT_EQ(carrier(), "1\n");
	wiring().setPort(HostId::a, Network::communication, false);
	EXPECT_EQ(carrier(), "0\n");
	wiring().setPort(HostId::a, Network::communication, true);
	awaitAnswers(HostId::a, HostId::b, Network::communication);
	EXPECT_GE(pingFrom(HostId::a, HostId::b, Network::communication, 10).median, 60);
	wiring().unimpair(HostId::a, Network::communication);
	expectGood(HostId::a, HostId::b, Network::communication);
}

/// A web page larger than a frame: segments go through whole and with checksums.
TEST_F(BadWire, PassesLargeSegments)
{
	wiring().impair(HostId::a, Network::service, {.delay = Millis(5)});
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
	EXPECT_THROW(wiring().impair(HostId::client, Network::communication, {}), LabError);
	EXPECT_THROW(wiring().impair(HostId::a, Network::communication, {.peer = HostId::client}), LabError);
	EXPECT_FALSE(wiring().isImpaired(HostId::a, Network::communication));
	wiring().unimpair(HostId::a, Network::communication);

	wiring().impair(HostId::a, Network::communication, {.lossPercent = 10});
	const pid_t killed = relay();
	ASSERT_TRUE(killed > 0 && ::kill(killed, SIGKILL) == 0);
	const auto ended = [&] { return inspect::host::process(killed).value().state == 'Z'; };
	EXPECT_TRUE(waitFor(ended, Millis(10000), "the relay to end"));
	EXPECT_THROW(wiring().unimpair(HostId::a, Network::communication), LabError);
	wiring().unimpair(HostId::a, Network::communication);
	expectGood(HostId::a, HostId::b, Network::communication);

	lab().run(HostId::a, {"ip", "link", "del", "eth1"}); // and with it the port
	for (int time = 0; time < 2; ++time)
	{
		try
		{
			wiring().impair(HostId::a, Network::communication, {});
			ADD_FAILURE() << "there is no port";
		}
		catch (const LabError& error)
		{
			EXPECT_TRUE(std::string(error.what()).starts_with("the relay did not start: Traceback")) << error.what();
		}
		EXPECT_FALSE(wiring().isImpaired(HostId::a, Network::communication));
	}
}

namespace
{

/// A lab without agents on which node a serves.
std::unique_ptr<Lab> servingLab()
{
	auto lab = std::make_unique<Lab>();
	lab->node(HostId::a).startService();
	shell(lab->host(HostId::a),
	      std::string("ip addr add ") + plan::virtualAddress + "/24 dev " + plan::serviceInterface);
	EXPECT_TRUE(lab->waitForService(HostId::a, Millis(20000), Millis(1000)));
	return lab;
}

/// The longest outage since then, after all requests that were under way have ended.
Millis outageSince(Lab& lab, Millis since)
{
	std::this_thread::sleep_for(Millis(1000));
	const Millis now = lab.clock().now();
	return longestWith(lab.timeline().intervals(serviceTrack, now), "none", since, now);
}

} // namespace

/// Shorter than a request has time, so the answers to younger ones come first.
TEST(LabClient, SeesOutagesOfAnyLength)
{
	SKIP_WITHOUT_NAMESPACES();
	const std::unique_ptr<Lab> lab = servingLab();
	EXPECT_LT(outageSince(*lab, lab->clock().now()), Millis(700)) << "a loaded machine, but no fault";
	for (const Millis length : {Millis(150), Millis(250), Millis(1500)})
	{
		const Millis since = lab->clock().now();
		lab->wiring().setBridged(HostId::a, false);
		std::this_thread::sleep_for(length);
		lab->wiring().setBridged(HostId::a, true);
		const Millis outage = outageSince(*lab, since);
		EXPECT_GE(outage, length - Millis(40));
		EXPECT_LE(outage, length + Millis(700));
		EXPECT_EQ(lab->answeredBy(), "a");
	}
}

/// The observer that does not run sees no answers, and that is no outage.
TEST(LabClient, TakesItsOwnStandstillForNoOutage)
{
	SKIP_WITHOUT_NAMESPACES();
	const std::unique_ptr<Lab> lab = servingLab();
	const Millis since = lab->clock().now();
	const std::string self = std::to_string(::getpid());
	runOrThrow(
	    {{"sh", "-c", "(sleep 0.2; kill -STOP " + self + "; sleep 1; kill -CONT " + self + ") >/dev/null 2>&1 &"},
	     {},
	     {}});
	std::this_thread::sleep_for(Millis(600));
	ASSERT_GT(lab->clock().now() - since, Millis(1000)) << "it did not stand still";
	EXPECT_LT(outageSince(*lab, since), Millis(700)) << "a loaded machine, but no fault";
}

} // namespace velarix::lab
