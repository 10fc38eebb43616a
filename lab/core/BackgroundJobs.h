/// Programs that a fault keeps running in the background of a host: a killer
/// loop, an attacker that sends heartbeats. They are no part of the pair.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "lab/core/Basics.h"
#include "lab/core/Host.h"

namespace velarix::lab
{

class BackgroundJobs
{
public:
	BackgroundJobs() = default;
	/// Ends all of them.
	~BackgroundJobs();
	BackgroundJobs(const BackgroundJobs&) = delete;
	BackgroundJobs& operator=(const BackgroundJobs&) = delete;

	/// Starts a program in all namespaces of the host, until end(name). It ends
	/// with the host, too.
	/// @throws LabError when an job of that name is under way
	void start(const Host& host, const std::string& name, const std::vector<std::string>& argv);

	/// Ends the job, and waits until everything it has started is gone. In any
	/// case it is not under way afterwards.
	/// @throws LabError when there is none of that name, or when its program had
	///         ended already, with its status and its last words, or when
	///         something of it goes on
	void end(const std::string& name);

	/// Also when its program has ended by itself.
	bool underWay(const std::string& name) const { return m_jobs.contains(name); }

private:
	struct Job
	{
		pid_t child = -1; ///< waits outside of the host
		pid_t group = -1; ///< of the processes inside, as the lab sees it
		Descriptor words; ///< a file in memory: what the program says
	};

	std::map<std::string, Job> m_jobs;
};

} // namespace velarix::lab
