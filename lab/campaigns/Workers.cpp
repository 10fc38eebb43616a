#include "lab/campaigns/Workers.h"

#include <cerrno>
#include <csignal>
#include <list>
#include <sstream>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/campaigns/Json.h"
#include "lab/core/Files.h"

namespace velarix::lab
{

namespace
{

/// A child says lines of JSON with one of these keys, in a file in memory that outlives it.
constexpr const char* partKey = "part";
constexpr const char* wellKey = "text";
constexpr const char* illKey = "problem";

bool say(int file, const char* key, const std::string& text)
{
	const std::string line = jsonText({{key, text}}) + "\n";
	return ::write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

/// Leaves without the caller's own clean-up.
[[noreturn]] void beChild(int file, pid_t parent, std::size_t index, const Work& work)
{
	// A parent that ended before the call would send no signal any more.
	if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent)
	{
		_exit(1);
	}
	const char* key = illKey;
	std::string text;
	try
	{
		text = work(index, [file](const std::string& part) { say(file, partKey, part); });
		key = wellKey;
	}
	catch (const std::exception& error)
	{
		text = error.what();
	}
	catch (...)
	{
		text = "it threw something that is no error";
	}
	_exit(say(file, key, text) ? 0 : 1);
}

std::string endingOf(bool late, int status)
{
	if (late)
	{
		return "it did not end in time";
	}
	if (WIFSIGNALED(status))
	{
		return "it was killed by signal " + std::to_string(WTERMSIG(status));
	}
	return WEXITSTATUS(status) == 0 ? "it ended before it had said everything"
	                                : "it ended with status " + std::to_string(WEXITSTATUS(status));
}

/// One process.
class Child
{
public:
	Child(std::size_t index, Millis deadline, const Work& work);
	/// Ends it, should it still run.
	~Child();
	Child(const Child&) = delete;
	Child& operator=(const Child&) = delete;

	int pidFd() const { return m_pidFd.get(); }
	/// @return true when the process has ended by itself
	bool ended();
	bool late(Millis now) const { return now > m_deadline; }
	/// To be called in the end. Kills a process that has not ended.
	WorkerResult result();

private:
	std::size_t m_index;
	Millis m_deadline;
	Descriptor m_said = fileInMemory();
	Descriptor m_pidFd;
	pid_t m_pid = -1; ///< -1: its status has been taken
	int m_status = 0;

	void kill();
};

Child::Child(std::size_t index, Millis deadline, const Work& work) : m_index(index), m_deadline(deadline)
{
	const pid_t parent = ::getpid();
	m_pid = ::fork();
	if (m_pid == 0)
	{
		beChild(m_said.get(), parent, index, work);
	}
	if (m_pid < 0)
	{
		throwErrno("cannot make a process for a run");
	}
	m_pidFd.reset(static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0)));
	if (!m_pidFd)
	{
		const int reason = errno;
		kill();
		errno = reason;
		throwErrno("cannot watch the process of a run");
	}
}

Child::~Child()
{
	kill();
}

void Child::kill()
{
	if (m_pid > 0)
	{
		::kill(m_pid, SIGKILL);
		while (::waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR)
		{
		}
		m_pid = -1;
	}
}

bool Child::ended()
{
	if (m_pid > 0 && ::waitpid(m_pid, &m_status, WNOHANG) == m_pid)
	{
		m_pid = -1;
	}
	return m_pid < 0;
}

WorkerResult Child::result()
{
	const bool late = !ended();
	kill();
	WorkerResult result{m_index, {}, endingOf(late, m_status), {}};
	std::istringstream said(contentOf(m_said));
	// What a killed process has left of a line is no line.
	for (std::string line; std::getline(said, line) && !said.eof();)
	{
		const nlohmann::json words = nlohmann::json::parse(line);
		if (words.contains(partKey))
		{
			result.parts.push_back(words[partKey]);
		}
		else if (words.contains(illKey))
		{
			const std::string problem = words[illKey];
			result.problem = problem.empty() ? "it failed and did not say why" : problem;
		}
		else if (!late && m_status == 0)
		{
			result.text = words[wellKey];
			result.problem.clear();
		}
	}
	return result;
}

void waitForAny(const std::list<Child>& children)
{
	std::vector<pollfd> watched;
	for (const Child& child : children)
	{
		watched.push_back({child.pidFd(), POLLIN, 0});
	}
	::poll(watched.data(), watched.size(), 500);
}

} // namespace

void runInWorkers(std::size_t count, int jobs, Millis limit, const Work& work,
                  const std::function<void(const WorkerResult&)>& done)
{
	const LabClock clock;
	std::list<Child> children;
	std::size_t next = 0;
	while (next < count || !children.empty())
	{
		while (next < count && children.size() < static_cast<std::size_t>(jobs))
		{
			children.emplace_back(next++, clock.now() + limit, work);
		}
		waitForAny(children);
		for (auto child = children.begin(); child != children.end();)
		{
			if (!child->ended() && !child->late(clock.now()))
			{
				++child;
				continue;
			}
			const WorkerResult result = child->result();
			child = children.erase(child);
			done(result);
		}
	}
}

} // namespace velarix::lab
