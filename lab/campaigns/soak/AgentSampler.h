/// Looks at the agents of a lab from outside and collects a series for each of
/// their processes.
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "lab/campaigns/soak/Series.h"
#include "lab/core/Lab.h"

namespace velarix::lab::soak
{

class AgentSampler
{
public:
	explicit AgentSampler(Lab& lab) : m_lab(lab) {}

	/// A quick look that notes zombies, descriptors that stayed and whether the agent is
	/// still the same.
	/// @param atRest  no fault is about
	void look(bool atRest);
	/// A sample of both agents, after a look. Which descriptors are kept is reported when that
	/// was the fifth look since the sample before: two samples at once meet a connection, or
	/// a listening socket, that is about to be closed.
	void sample(bool atRest);

	/// In the order in which they began.
	const std::vector<Series>& series() const { return m_series; }

private:
	/// One of the two agents as it was at the last look.
	struct Watched
	{
		pid_t pid = 0;                          ///< as the lab sees it; 0: there is none
		std::size_t series = 0;                 ///< its place in m_series
		std::vector<std::string> descriptors{}; ///< at each look since the last sample, sorted
		int looks = 0;                          ///< since the last sample
		bool wasAtRest = false;                 ///< since the last sample no fault was about
		std::map<pid_t, Millis> zombies{};      ///< at rest, and when each was first seen
		Millis oldestZombie{0};
	};

	Lab& m_lab;
	std::vector<Series> m_series{};
	std::array<Watched, 2> m_watched{};

	void look(HostId node, bool atRest);
	void sample(HostId node, bool atRest);
	void follow(HostId node, Watched& watched);
	void watchZombies(HostId node, Watched& watched, bool atRest);
};

/// The figures of a process that can be read at one moment: memory, threads.
/// Nothing changes in `sample` when the process is gone.
/// @return false then
bool readProcess(pid_t pid, Sample& sample);

} // namespace velarix::lab::soak
