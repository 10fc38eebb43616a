#include "evidence/takeover/PingFloor.h"

#include <algorithm>
#include <sstream>
#include <thread>

#include "lab/campaigns/Jitter.h"
#include "lab/campaigns/Waits.h"
#include "lab/core/Lab.h"
#include "lab/core/Plan.h"

namespace velarix::evidence::takeover
{

namespace
{

constexpr const char* pingProgram = "/usr/velarix/app/labping";
const std::string virtualAddress = plan::virtualAddress;

void runOn(Lab& lab, HostId node, const std::vector<std::string>& words)
{
	const CommandResult result = lab.run(node, words);
	if (!result.ok())
	{
		throw LabError(words.front() + " failed on " + nodeText(node) + ": " + result.output);
	}
}

void giveAddress(Lab& lab, HostId node)
{
	runOn(lab, node, {"ip", "address", "add", virtualAddress + "/24", "dev", plan::serviceCard});
}

/// Until the node knows its partner and the owner of the address, as one that has
/// exchanged heartbeats with it.
void getToKnow(Lab& lab, HostId node, HostId partner)
{
	for (const std::string& address : {std::string(plan::addressOf(partner, Network::communication)), virtualAddress})
	{
		runOn(lab, node, {pingProgram, address});
	}
}

void prepareAlone(Lab& lab, HostId node, HostId partner)
{
	lab.powerOff(partner);
	lab.powerOff(node);
	lab.powerOn(node, false);
	std::this_thread::sleep_for(sumOf("two", {}));
}

void prepareSilentPartner(Lab& lab, HostId node, HostId partner, std::mt19937_64& random, const PairSettings& times)
{
	giveAddress(lab, partner);
	getToKnow(lab, node, partner);
	lab.powerOff(partner);
	waitForJitter(random, sumOf("silence", times));
}

void prepareIsolated(Lab& lab, HostId node, HostId partner, const PairSettings& times)
{
	giveAddress(lab, partner);
	getToKnow(lab, node, partner);
	lab.inject({FaultKind::communicationCardPulled, partner});
	std::this_thread::sleep_for(sumOf("ping", times));
	runOn(lab, partner, {"ip", "address", "del", virtualAddress + "/24", "dev", plan::serviceCard});
	std::this_thread::sleep_for(sumOf("receive", times));
}

std::vector<Millis> probesIn(Lab& lab, const PingFloorPlan& plan)
{
	std::mt19937_64 random(seedOfRun(plan.seed, plan.run, plan.path));
	const HostId node = plan.run % 2 == 0 ? HostId::b : HostId::a;
	const HostId partner = otherNode(node);
	const std::string partnerAddress = plan::addressOf(partner, Network::communication);
	std::filesystem::copy_file(VELARIX_LAB_PING, lab.node(node).file(pingProgram));
	if (plan.path == "alone")
	{
		prepareAlone(lab, node, partner);
	}
	else if (plan.path == "silent-partner")
	{
		prepareSilentPartner(lab, node, partner, random, plan.times);
	}
	else
	{
		prepareIsolated(lab, node, partner, plan.times);
	}
	const CommandResult result = lab.run(node, {pingProgram, partnerAddress, virtualAddress, "beside", partnerAddress,
	                                            std::to_string(plan::heartbeatPort)});
	return silentProbesIn(result.output);
}

} // namespace

const std::vector<std::string>& pingFloorPaths()
{
	static const std::vector<std::string> paths{"alone", "isolated", "silent-partner"};
	return paths;
}

PingFloor measurePingFloor(const PingFloorPlan& plan)
{
	PingFloor floor{plan.path, plan.run};
	LabOptions options;
	options.installRoot = plan.installRoot;
	options.seed = seedOfRun(plan.seed, plan.run, plan.path);
	Lab lab(options);
	try
	{
		floor.probes = probesIn(lab, plan);
	}
	catch (const std::exception& error)
	{
		floor.problem = error.what();
	}
	return floor;
}

std::vector<Millis> silentProbesIn(const std::string& output)
{
	std::vector<Millis> probes;
	std::istringstream text(output);
	long long micros = 0;
	int answers = 0;
	while (text >> micros >> answers)
	{
		if (answers != 0)
		{
			throw LabError("a ping that nobody should answer was answered: " + output);
		}
		probes.emplace_back((micros + 500) / 1000);
	}
	if (probes.empty() || !text.eof())
	{
		throw LabError("labping printed something else: " + output);
	}
	return probes;
}

} // namespace velarix::evidence::takeover
