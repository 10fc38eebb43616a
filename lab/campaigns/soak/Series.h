/// What a soak sees of one agent, and whether it grows.
///
/// A series is all samples of one process of the agent, from its start or the
/// soak's to its end. The bounds are reported before anything is measured.
///
/// - Memory is judged by a straight line through the samples (least squares), after
///   a warm-up in which buffers find their size. What the line rises by may be as
///   much as the bound allows for the time, at least what it allows for one hour
///   (a step of a few pages when a path of the code runs for the first time), and
///   the jitter of the samples: twice their standard deviation from the line. Resident
///   memory has a wider bound: a first change of the role alone reads in some 700 KiB
///   of the program and its libraries.
/// - A descriptor is kept when it has the same number and the same target in two
///   samples in a row and at each look between them, of which there are several. Connections, pipes and scans of
///   /proc come and go, so what a leak leaves is what is kept.
/// - Kept descriptors and threads are judged while no fault stands and the agent has
///   had time to finish what it was about; the limits to all descriptors and to the
///   log hold at any time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "lab/campaigns/Json.h"

namespace velarix::lab::soak
{

struct Sample
{
	Millis at{0};        ///< of the lab's clock
	bool atRest = false; ///< no fault stands, and none did for a while
	long ownKib = 0;     ///< memory that only this process has: anonymous pages and what is swapped out
	long rssKib = 0;     ///< resident, with the files it has mapped
	long pssKib = 0;     ///< the same, shared pages divided among those who have them
	int descriptors = 0; ///< open at this moment
	std::optional<int>
	    kept{}; ///< of them, those of the sample before; empty: there was no pause since, or a fault was about
	int threads = 0;
	int zombies = 0;         ///< children that have ended and are not waited for, at this moment
	Millis oldestZombie{0};  ///< longest time one was seen at rest, since the sample before
	std::uint64_t logged{0}; ///< bytes of log and console files, archives included
};

struct Series
{
	HostId node = HostId::a;
	pid_t pid = 0;     ///< of the agent, on its node
	std::string ended; ///< why the series is over; empty: the soak was
	std::vector<Sample> samples;
};

struct Bounds
{
	Millis warmUp{600000};
	std::size_t settled = 10; ///< samples after the warm-up, without which growth is not judged
	long ownKibPerHour = 64;
	long rssKibPerHour = 1024;
	int kept = 4; ///< the three standard streams and the log file
	int descriptors = 32;
	int threads = 4;
	Millis zombie{5000};
	long logKibPerMinute = 512;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Sample, at, atRest, ownKib, rssKib, pssKib, descriptors, kept, threads, zombies,
                                   oldestZombie, logged)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Series, node, pid, ended, samples)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Bounds, warmUp, settled, ownKibPerHour, rssKibPerHour, kept, descriptors, threads,
                                   zombie, logKibPerMinute)

/// The bounds as sentences.
std::string toText(const Bounds& bounds);

/// A straight line through a value of the samples.
struct Line
{
	double perHour = 0;   ///< its rise
	double overSpan = 0;  ///< its rise from the first sample to the last
	double deviation = 0; ///< standard deviation of the samples from it
};

/// @return empty for fewer than three samples, or without time between them
std::optional<Line> lineThrough(const std::vector<Sample>& samples, long Sample::*value);

/// The samples after the warm-up.
std::vector<Sample> settled(const Series& series, const Bounds& bounds);

/// @return true when there are enough samples after the warm-up to judge growth, and enough at rest
bool isJudged(const Series& series, const Bounds& bounds);

/// What the series does beyond the bounds, one sentence each; empty: nothing. Growth
/// is left out when the series is too short for it.
std::vector<std::string> crossingsOf(const Series& series, const Bounds& bounds);

} // namespace velarix::lab::soak
