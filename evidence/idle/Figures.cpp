#include "evidence/idle/Figures.h"

#include <algorithm>
#include <type_traits>

#include "lab/core/Basics.h"

namespace velarix::evidence::idle
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

/// Of an even number the mean of the two in the middle.
template <typename Value> auto middleOf(const std::vector<Figures>& windows, Value value)
{
	std::vector<std::remove_cvref_t<decltype(value(windows.front()))>> values;
	values.reserve(windows.size());
	for (const Figures& window : windows)
	{
		values.push_back(value(window));
	}
	std::sort(values.begin(), values.end());
	return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

} // namespace

Figures medianOf(const std::vector<Figures>& windows)
{
	if (windows.empty())
	{
		throw LabError("a node was not looked at");
	}
	Figures middle = windows.back();
	for (double Figures::*part :
	     {&Figures::seconds, &Figures::ownCpuPerHour, &Figures::childrenCpuPerHour, &Figures::announcerCpuPerHour,
	      &Figures::wakeUps, &Figures::switches, &Figures::newProcesses, &Figures::logPerDay, &Figures::consolePerDay})
	{
		middle.*part = middleOf(windows, [part](const Figures& window) { return window.*part; });
	}
	for (int Figures::*part : {&Figures::threads, &Figures::processes})
	{
		middle.*part = middleOf(windows, [part](const Figures& window) { return window.*part; });
	}
	for (std::int64_t MemoryFigures::*part :
	     {&MemoryFigures::resident, &MemoryFigures::proportional, &MemoryFigures::ownPages})
	{
		middle.memory.*part = middleOf(windows, [part](const Figures& window) { return window.memory.*part; });
	}
	for (std::size_t card = 0; card < middle.cards.size(); ++card)
	{
		for (double CardRates::*part : {&CardRates::received, &CardRates::sent, &CardRates::bytes})
		{
			middle.cards[card].*part =
			    middleOf(windows, [card, part](const Figures& window) { return window.cards[card].*part; });
		}
	}
	const auto [least, most] = std::minmax_element(windows.begin(), windows.end(),
	                                               [](const Figures& one, const Figures& other)
	                                               { return one.cpuPercent() < other.cpuPercent(); });
	middle.windows = static_cast<int>(windows.size());
	middle.leastCpu = least->cpuPercent();
	middle.mostCpu = most->cpuPercent();
	return middle;
}

void compare(const NodeLook& before, const NodeLook& after, double seconds, Figures& figures)
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

} // namespace velarix::evidence::idle
