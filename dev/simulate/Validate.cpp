#include "dev/simulate/Validate.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>

#include "dev/simulate/Faults.h"

namespace velarix::simulate
{

namespace
{

constexpr Micros kStart = 40 * kSecond; ///< of the first phase: the pair is at rest by then
constexpr Micros kWatched = 40 * kSecond;
constexpr double kTolerance = 0.15; ///< seconds
constexpr double kForGood = 20;
constexpr double kSameOwner = 0.9; ///< of the runs, at least
constexpr double kTail = 0.05;     ///< of the runs, on each side

/// One phase as the lab has measured it; times in seconds.
struct Phase
{
	std::string owner;
	double median = 0;
};

struct Cell
{
	std::string name;
	std::vector<Fault> faults;
	std::vector<Phase> phases;
};

/// What one schedule has shown of a phase.
struct Seen
{
	std::string owner;
	double outage = 0;
};

std::vector<std::string> columnsOf(const std::string& line)
{
	std::vector<std::string> columns;
	std::istringstream stream(line);
	for (std::string column; std::getline(stream, column, '|');)
	{
		const std::size_t first = column.find_first_not_of(' ');
		columns.push_back(first == std::string::npos ? ""
		                                             : column.substr(first, column.find_last_not_of(' ') - first + 1));
	}
	return columns;
}

std::optional<std::vector<Fault>> faultsOf(const std::string& text)
{
	std::vector<Fault> faults;
	std::istringstream stream(text);
	for (std::string word; stream >> word;)
	{
		const std::string name = word.substr(0, word.find(':'));
		const FaultKind* kind = faultNamed(name);
		// What the client loses on a bad wire is not simulated.
		const bool wire = name.find("-loss-") != std::string::npos || name.ends_with("-delay");
		if (kind == nullptr || (wire && name.starts_with("service")))
		{
			return std::nullopt;
		}
		faults.push_back({kind, word.ends_with(":b") ? hostB : hostA, 0, kNoTime});
	}
	return faults;
}

std::optional<Phase> phaseOf(const std::vector<std::string>& columns)
{
	Phase phase{columns.at(4), kForGood};
	std::istringstream times(columns.at(7)); // "median / p95 / max"
	return columns.at(7) == "for good" || times >> phase.median ? std::optional(phase) : std::nullopt;
}

std::vector<Cell> readCells(const std::string& file, Profile profile)
{
	std::ifstream stream(file);
	std::vector<Cell> cells;
	bool wanted = false;
	bool known = false;
	for (std::string line; std::getline(stream, line);)
	{
		if (line.starts_with("## "))
		{
			wanted = line.starts_with(profile == Profile::keeper ? "## The matrix, keeper" : "## The matrix, plain");
		}
		const std::vector<std::string> columns = columnsOf(line);
		if (!wanted || columns.size() < 15 || columns.at(3) == "expected owner")
		{
			continue;
		}
		const std::optional<Phase> phase = phaseOf(columns);
		if (!columns.at(1).empty())
		{
			const auto faults = faultsOf(columns.at(2));
			known = faults && phase && columns.at(4) != "unsteady";
			known ? cells.push_back({columns.at(1), *faults, {}}) : void();
		}
		known&& phase ? cells.back().phases.push_back(*phase) : void();
	}
	return cells;
}

/// The longest time without an answer between two moments, and who holds the address then.
class Client
{
public:
	explicit Client(World& world) : m_world(world)
	{
		world.observe = [this] { look(); };
	}

	Seen phase()
	{
		look();
		constexpr Micros kSeen = 100 * kMilli;
		const Micros gap = std::max(m_longest, m_world.now() - m_answered);
		m_longest = 0;
		m_answered = m_world.now();
		return {m_world.owners(), gap > kSeen ? static_cast<double>(gap) / kSecond : 0};
	}

private:
	void look()
	{
		if (m_wasAnswered)
		{
			m_longest = std::max(m_longest, m_last - m_answered);
			m_answered = m_world.now();
		}
		m_wasAnswered = m_world.answers() != hostNone;
		m_longest = m_wasAnswered ? std::max(m_longest, m_world.now() - m_answered) : m_longest;
		m_last = m_answered;
	}

	World& m_world;
	bool m_wasAnswered = false;
	Micros m_answered = 0;
	Micros m_last = 0;
	Micros m_longest = 0;
};

std::vector<Seen> runCell(const Cell& cell, Profile profile, std::uint64_t seed)
{
	World world(profile, seed, false);
	Client client(world);
	// "fault/node/role": the one that serves is on first.
	const std::string tail = cell.name.substr(cell.name.find('/') + 1);
	const bool isB = tail.starts_with("b") != (tail.ends_with("standby") || tail.ends_with("takes-over"));
	Node& first = world.node(isB ? hostB : hostA);
	world.powerOn(first);
	world.scheduler.at(world.random.between(14 * kSecond, 16 * kSecond), [&] { world.powerOn(world.other(first)); });
	std::vector<Seen> seen;
	Micros moment = kStart + world.random.below(4 * kSecond);
	world.scheduler.run(moment);
	client.phase();
	for (const bool inject : {true, false})
	{
		for (const Fault& fault : cell.faults)
		{
			const auto change = inject ? fault.kind->inject : fault.kind->repair;
			change != nullptr ? change(world, world.node(fault.node)) : void();
		}
		moment += kWatched + world.random.below(2 * kSecond);
		world.scheduler.at(moment, [] {});
		world.scheduler.run(moment);
		seen.push_back(client.phase());
	}
	world.observe = nullptr;
	return seen;
}

/// @return whether lab and simulation agree
bool compare(const Phase& lab, std::vector<Seen> seen, std::ostream& report)
{
	std::ranges::sort(seen, {}, &Seen::outage);
	const auto runs = static_cast<double>(seen.size());
	const double least = seen.at(static_cast<std::size_t>(runs * kTail)).outage;
	const double most = seen.at(static_cast<std::size_t>(runs * (1 - kTail))).outage;
	const auto same = static_cast<double>(std::ranges::count(seen, lab.owner, &Seen::owner));
	const auto capped = [](double time) { return std::min(time, kForGood); };
	const bool owner = same >= runs * kSameOwner;
	const bool agrees =
	    owner && capped(lab.median) >= capped(least) - kTolerance && capped(lab.median) <= capped(most) + kTolerance;
	report << (agrees ? "  agrees" : "  DIFFERS") << (owner ? "" : " in the owner") << ": owner " << lab.owner << " ("
	       << same << " runs)  outage " << lab.median << " s (here " << least << " to " << most << " s)\n";
	return agrees;
}

} // namespace

int validate(const std::string& file, Profile profile, int runs, std::ostream& report)
{
	int phases = 0;
	int different = 0;
	const std::vector<Cell> cells = readCells(file, profile);
	for (const Cell& cell : cells)
	{
		std::vector<std::vector<Seen>> seen(2);
		for (int run = 0; run < runs; ++run)
		{
			const std::vector<Seen> one = runCell(cell, profile, static_cast<std::uint64_t>(run));
			seen[0].push_back(one[0]);
			seen[1].push_back(one[1]);
		}
		report << cell.name << "\n";
		for (std::size_t i = 0; i < std::min<std::size_t>(cell.phases.size(), 2); ++i)
		{
			++phases;
			different += compare(cell.phases[i], seen[i], report) ? 0 : 1;
		}
	}
	report << cells.size() << " cells, " << phases << " phases, " << different << " differ\n";
	return cells.empty() ? 1 : different;
}

} // namespace velarix::simulate
