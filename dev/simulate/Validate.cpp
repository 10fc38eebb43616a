#include "dev/simulate/Validate.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>
#include <string_view>

#include "dev/simulate/Faults.h"

namespace velarix::simulate
{

namespace
{

constexpr Micros kStart = 40 * kSecond; ///< of the first phase: the pair is at rest by then
constexpr Micros kWatched = 40 * kSecond;
constexpr double kTolerance = 0.15; ///< seconds
constexpr double kForGood = 20;

/// These have to agree, with the keeper and without.
constexpr std::array<std::string_view, 20> kDemanded{
    "power-off/a/master",           "power-off/b/master",
    "program-kill/a/master",        "reboot/b/master",
    "cold-start-alone/a",           "cold-start-alone/b",
    "agent-kill/a/master",          "program-crash/a/master",
    "service-interface/a/master",   "service-interface/b/master",
    "gateway-for/b/master",         "start-prints/b/takes-over",
    "communication-cut/b/master",   "power-off/a/standby",
    "power-off/b/standby",          "reboot/a/standby",
    "agent-kill/a/standby",         "agent-freeze/a/master",
    "communication-delay/a/master", "gateway-for/b/standby",
};

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

struct Matrix
{
	int runs = 0; ///< of each cell
	std::vector<Cell> cells;
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

Matrix readMatrix(const std::string& file, Profile profile)
{
	std::ifstream stream(file);
	Matrix matrix;
	bool wanted = false;
	bool known = false;
	for (std::string line; std::getline(stream, line);)
	{
		if (line.starts_with("## "))
		{
			wanted = line.starts_with(profile == Profile::keeper ? "## The matrix, keeper" : "## The matrix, plain");
		}
		// "...; node a is configured as master; 3 runs of each cell, seed ..."
		if (const std::size_t end = line.find(" of each cell, seed"); wanted && end != std::string::npos)
		{
			matrix.runs = std::atoi(line.c_str() + line.rfind(';', end) + 1);
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
			known ? matrix.cells.push_back({columns.at(1), *faults, {}}) : void();
		}
		known&& phase&& matrix.cells.back().phases.size() < 2 ? matrix.cells.back().phases.push_back(*phase) : void();
	}
	return matrix;
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

struct Range
{
	double least = 0;
	double most = 0;
};

/// The middle 90 % of the medians of as many runs as the lab has made: with many runs little more
/// than the median.
Range medians(const std::vector<Seen>& seen, int labRuns)
{
	constexpr std::size_t kSamples = 1000;
	constexpr std::size_t kTail = kSamples / 20;
	Random random(1);
	std::vector<double> found;
	while (found.size() < kSamples)
	{
		std::vector<double> sample;
		while (std::ssize(sample) < labRuns)
		{
			sample.push_back(seen.at(static_cast<std::size_t>(random.below(std::ssize(seen)))).outage);
		}
		std::ranges::sort(sample);
		found.push_back(std::min(sample.at(sample.size() / 2), kForGood));
	}
	std::ranges::sort(found);
	return {found.at(kTail), found.at(kSamples - 1 - kTail)};
}

/// @return whether lab and simulation agree
bool compare(const Phase& lab, const std::vector<Seen>& seen, int labRuns, std::ostream& report)
{
	const auto [least, most] = medians(seen, labRuns);
	const auto same = std::ranges::count(seen, lab.owner, &Seen::owner);
	const double median = std::min(lab.median, kForGood);
	const bool agrees = same == std::ssize(seen) && median >= least - kTolerance && median <= most + kTolerance;
	report << (agrees ? "  agrees" : "  DIFFERS") << ": owner " << lab.owner << " (" << same << " of " << seen.size()
	       << " runs)  outage " << lab.median << " s (here " << least << " to " << most << " s)\n";
	return agrees;
}

/// @return how many phases differ
int compare(const Cell& cell, Profile profile, int runs, int labRuns, std::ostream& report)
{
	std::vector<std::vector<Seen>> seen(cell.phases.size());
	for (int run = 0; run < runs; ++run)
	{
		const std::vector<Seen> one = runCell(cell, profile, static_cast<std::uint64_t>(run));
		for (std::size_t i = 0; i < seen.size(); ++i)
		{
			seen.at(i).push_back(one.at(i));
		}
	}
	report << cell.name << "\n";
	int different = 0;
	for (std::size_t i = 0; i < seen.size(); ++i)
	{
		different += compare(cell.phases.at(i), seen.at(i), labRuns, report) ? 0 : 1;
	}
	return different;
}

} // namespace

int validate(const std::string& file, Profile profile, int runs, std::ostream& report)
{
	int demanded = 0;
	int different = 0;
	int others = 0;
	int phases = 0;
	const Matrix matrix = readMatrix(file, profile);
	for (const Cell& cell : matrix.cells)
	{
		const bool counts = std::ranges::find(kDemanded, cell.name) != kDemanded.end();
		const int differs = compare(cell, profile, runs, matrix.runs, report);
		demanded += counts ? 1 : 0;
		different += counts && differs != 0 ? 1 : 0;
		phases += counts ? 0 : static_cast<int>(cell.phases.size());
		others += counts ? 0 : differs;
		report << (counts && differs != 0 ? "  and has to agree\n" : "");
	}
	report << demanded << " of " << kDemanded.size() << " cells that have to agree, " << different << " differ; of "
	       << phases << " other phases " << others << "\n";
	return different + static_cast<int>(kDemanded.size()) - demanded;
}

} // namespace velarix::simulate
