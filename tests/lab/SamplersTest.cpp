/// What the client's observer tells of outages, long and short.

#include <string>
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
	return longestWith(lab.timeline().intervals(serviceTrack, now), {"none"}, since, now);
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
		Impairment deaf;
		deaf.lossPercent = 100;
		lab->wiring().impair(HostId::a, Network::service, deaf);
		std::this_thread::sleep_for(length);
		lab->wiring().unimpair(HostId::a, Network::service);
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
