#include "lab/core/BackgroundJobs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <optional>

#include <sys/wait.h>

#include "lab/core/Command.h"
#include "lab/core/Files.h"
#include "lab/core/Wait.h"

namespace velarix::lab
{

namespace
{

constexpr std::size_t lastWordsSize = 500;

constexpr Millis endLimit{5000};

void reap(pid_t child)
{
	::kill(child, SIGKILL);
	while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR)
	{
	}
}

/// The program inside: the only child of the one that waits for it, and the leader
/// of a process group as soon as it has a session of its own.
/// @return -1 when it has ended already
pid_t groupOf(pid_t child)
{
	pid_t leader = -1;
	const auto leads = [&] { return leader > 0 && ::getpgid(leader) == leader; };
	const std::string children = "/proc/" + std::to_string(child) + "/task/" + std::to_string(child) + "/children";
	waitFor(
	    [&]
	    {
		    siginfo_t ended{};
		    std::ifstream(children) >> leader;
		    ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT);
		    return ended.si_pid == child || leads();
	    },
	    endLimit, "a program to be started");
	return leads() ? leader : -1;
}

} // namespace

BackgroundJobs::~BackgroundJobs()
{
	for (const auto& [name, job] : m_jobs)
	{
		reap(job.child);
	}
}

void BackgroundJobs::start(const Host& host, const std::string& name, const std::vector<std::string>& argv)
{
	if (underWay(name))
	{
		throw LabError("this is done already: " + name);
	}
	Job job;
	job.words = fileInMemory();
	SpawnPlan plan;
	plan.argv = argv;
	plan.inside = host.inside();
	plan.output = job.words.get();
	plan.error = job.words.get();
	job.child = spawn(plan);
	job.group = groupOf(job.child);
	m_jobs.emplace(name, std::move(job));
}

void BackgroundJobs::end(const std::string& name)
{
	const auto found = m_jobs.find(name);
	if (found == m_jobs.end())
	{
		throw LabError("this is not being done: " + name);
	}
	const Job job = std::move(found->second);
	m_jobs.erase(found);
	const std::optional<int> status = waitForChild(job.child, Millis(0));
	if (status)
	{
		const std::string words = contentOf(job.words);
		throw LabError("this had ended by itself with status " + std::to_string(*status) + ": " + name + ": " +
		               words.substr(words.size() - std::min(words.size(), lastWordsSize)));
	}
	// The number of a group is not given away while one of it is left.
	const auto gone = [&] { return job.group <= 0 || ::kill(-job.group, SIGKILL) != 0; };
	const bool all = waitFor(gone, endLimit, "an job to end");
	reap(job.child);
	if (!all)
	{
		throw LabError("something of this goes on: " + name);
	}
}

} // namespace velarix::lab
