#include "IdleFigures.h"

#include "Basics.h"

namespace velarix::lab
{

namespace
{

constexpr double hour = 3600;
constexpr double day = 86400;

double rate(std::uint64_t before, std::uint64_t after, double seconds)
{
	return (static_cast<double>(after) - static_cast<double>(before)) / seconds;
}

double perDay(std::int64_t before, std::int64_t after, double seconds)
{
	return static_cast<double>(after - before) / seconds * day;
}

CardRates ratesOf(const CardTotals& before, const CardTotals& after, double seconds)
{
	return {rate(before.receivedPackets, after.receivedPackets, seconds),
	        rate(before.sentPackets, after.sentPackets, seconds),
	        rate(before.receivedBytes + before.sentBytes, after.receivedBytes + after.sentBytes, seconds)};
}

} // namespace

void compare(const NodeLook& before, const NodeLook& after, double seconds, IdleFigures& figures)
{
	if (seconds <= 0)
	{
		throw LabError("no time lies between two looks at a node");
	}
	const auto perHour = [&](double from, double to) { return (to - from) / seconds * hour; };
	figures.seconds = seconds;
	figures.ownCpuPerHour = perHour(before.guard.ownSeconds, after.guard.ownSeconds);
	figures.childrenCpuPerHour = perHour(before.guard.childrenSeconds, after.guard.childrenSeconds);
	figures.announcerCpuPerHour = perHour(before.announcer.ownSeconds + before.announcer.childrenSeconds,
	                                      after.announcer.ownSeconds + after.announcer.childrenSeconds);
	figures.wakeUps = rate(before.guard.wakeUps, after.guard.wakeUps, seconds);
	figures.switches = rate(before.guard.switches, after.guard.switches, seconds);
	figures.newProcesses = static_cast<double>(after.lastProcess - before.lastProcess) / seconds;
	figures.threads = after.guard.threads;
	figures.processes = after.guard.processes;
	for (std::size_t card = 0; card < figures.cards.size(); ++card)
	{
		figures.cards[card] = ratesOf(before.cards[card], after.cards[card], seconds);
	}
	figures.logPerDay = perDay(before.logBytes, after.logBytes, seconds);
	figures.consolePerDay = perDay(before.consoleBytes, after.consoleBytes, seconds);
}

} // namespace velarix::lab
