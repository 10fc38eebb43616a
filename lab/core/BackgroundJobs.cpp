#include "lab/core/BackgroundJobs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <optional>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/core/Command.h"
#include "lab/core/Wait.h"

namespace velarix::lab
{

namespace
{

constexpr off_t lastWordsSize = 500;

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

std::string lastWordsOf(int words)
{
	struct stat found
	{
	};
	::fstat(words, &found);
	std::string text(static_cast<std::size_t>(std::min(found.st_size, lastWordsSize)), ' ');
	const off_t from = found.st_size - static_cast<off_t>(text.size());
	const ssize_t count = ::pread(words, text.data(), text.size(), from);
	text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
	return text;
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
	job.words.reset(::memfd_create("lab-job", MFD_CLOEXEC));
	if (!job.words)
	{
		throwErrno("cannot keep what a program says");
	}
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
		throw LabError("this had ended by itself with status " + std::to_string(*status) + ": " + name + ": " +
		               lastWordsOf(job.words.get()));
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
