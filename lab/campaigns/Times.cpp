#include "lab/campaigns/Times.h"

#include <thread>

#include "lab/campaigns/Waits.h"

namespace velarix::lab
{

Millis CampaignTimes::quiet() const
{
	return sumOf("3*silence+4*ping+2*second+count+wait", pair) + slack;
}

std::uint64_t seedOfRun(std::uint64_t seed, int run, const std::string& cell)
{
	std::uint64_t mixed = seed * 1000003U + static_cast<std::uint64_t>(run);
	for (const char letter : cell)
	{
		mixed = mixed * 131U + static_cast<unsigned char>(letter);
	}
	return mixed;
}

void waitForJitter(std::mt19937_64& random, Millis longest)
{
	const auto bound = static_cast<std::uint64_t>(longest.count());
	std::this_thread::sleep_for(Millis(static_cast<Millis::rep>(random() % bound)));
}

} // namespace velarix::lab
