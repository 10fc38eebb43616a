#include "lab/campaigns/Workers.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <list>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

/// A message is its kind, the length of its text and the text, so that a cut one
/// is known.
constexpr char partMark = '*';
constexpr char wellMark = '+';
constexpr char illMark = '-';

using Length = std::uint64_t;
constexpr std::size_t headSize = 1 + sizeof(Length);

/// Readings of one child before the next one is looked at.
constexpr int turnsEach = 64;

/// @return false when the other end is gone
bool sendAll(int socket, const std::string& text)
{
	for (std::size_t sent = 0; sent < text.size();)
	{
		const ssize_t count = ::send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
		if (count < 0 && errno != EINTR)
		{
			return false;
		}
		sent += count > 0 ? static_cast<std::size_t>(count) : 0;
	}
	return true;
}

bool sendMessage(int socket, char kind, const std::string& text)
{
	const Length length = text.size();
	std::string head(headSize, kind);
	std::memcpy(head.data() + 1, &length, sizeof length);
	return sendAll(socket, head) && sendAll(socket, text);
}

/// Leaves without the caller's own clean-up.
[[noreturn]] void beChild(int socket, pid_t parent, std::size_t index, const WorkInParts& work)
{
	// A parent that ended before the call would send no signal any more.
	if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent)
	{
		_exit(1);
	}
	char kind = illMark;
	std::string text;
	try
	{
		text = work(index, [socket](const std::string& part) { sendMessage(socket, partMark, part); });
		kind = wellMark;
	}
	catch (const std::exception& error)
	{
		text = error.what();
	}
	catch (...)
	{
		text = "it threw something that is no error";
	}
	_exit(sendMessage(socket, kind, text) ? 0 : 1);
}

/// One process and what it has said so far.
class Child
{
public:
	Child(std::size_t index, Millis deadline, const WorkInParts& work);
	/// Ends it, should it still run.
	~Child();
	Child(const Child&) = delete;
	Child& operator=(const Child&) = delete;

	/// What poll has to watch: new words, and the end.
	std::array<pollfd, 2> watched() const { return {{{m_socket.get(), POLLIN, 0}, {m_pidFd.get(), POLLIN, 0}}}; }
	/// Takes in what it has said by now, but not so much that the others would wait.
	void listen();
	/// @return true when the process has ended by itself
	bool ended();
	bool late(Millis now) const { return now > m_deadline; }
	/// To be called in the end. Kills a process that has not ended.
	WorkerResult result();

private:
	std::size_t m_index;
	Millis m_deadline;
	Descriptor m_socket;
	Descriptor m_pidFd;
	pid_t m_pid = -1; ///< -1: its status has been taken
	int m_status = 0;
	std::string m_said;

	void kill();
	/// @return true when there may be more
	bool hear();
};

Child::Child(std::size_t index, Millis deadline, const WorkInParts& work) : m_index(index), m_deadline(deadline)
{
	int ends[2];
	if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
	{
		throwErrno("cannot make a socket pair");
	}
	m_socket.reset(ends[0]);
	const Descriptor theirs(ends[1]);
	const pid_t parent = ::getpid();
	m_pid = ::fork();
	if (m_pid == 0)
	{
		m_socket.reset();
		beChild(theirs.get(), parent, index, work);
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

bool Child::hear()
{
	if (!m_socket)
	{
		return false;
	}
	char buffer[16384];
	const ssize_t count = ::recv(m_socket.get(), buffer, sizeof buffer, MSG_DONTWAIT);
	m_said.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
	if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR))
	{
		m_socket.reset();
	}
	return count > 0 || (count < 0 && errno == EINTR);
}

void Child::listen()
{
	for (int turn = 0; turn < turnsEach && hear(); ++turn)
	{
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

/// All that was said and arrived whole: parts into `result`.
/// @return the last word, of the kind wellMark or illMark; of the kind partMark: there is none
std::pair<char, std::string> heardOut(const std::string& said, WorkerResult& result)
{
	Length length = 0;
	for (std::size_t at = 0; at + headSize <= said.size(); at += headSize + length)
	{
		std::memcpy(&length, said.data() + at + 1, sizeof length);
		if (said.size() - at - headSize < length)
		{
			break;
		}
		std::string text = said.substr(at + headSize, length);
		if (said[at] != partMark)
		{
			return {said[at], std::move(text)};
		}
		result.parts.push_back(std::move(text));
	}
	return {partMark, {}};
}

WorkerResult Child::result()
{
	const bool late = !ended();
	kill();
	while (hear())
	{
	}
	WorkerResult result{m_index, {}, {}, {}};
	const auto [lastKind, last] = heardOut(m_said, result);
	if (lastKind == wellMark && !late && m_status == 0)
	{
		result.text = last;
	}
	else if (lastKind == illMark)
	{
		result.problem = last.empty() ? "it failed and did not say why" : last;
	}
	else
	{
		result.problem = endingOf(late, m_status);
	}
	return result;
}

void waitForAny(const std::list<Child>& children)
{
	std::vector<pollfd> watched;
	for (const Child& child : children)
	{
		const std::array<pollfd, 2> both = child.watched();
		watched.insert(watched.end(), both.begin(), both.end());
	}
	::poll(watched.data(), watched.size(), 500);
}

} // namespace

void runInWorkers(std::size_t count, int jobs, Millis limit, const WorkInParts& work,
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
			child->listen();
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

void runInWorkers(std::size_t count, int jobs, Millis limit, const Work& work,
                  const std::function<void(const WorkerResult&)>& done)
{
	runInWorkers(
	    count, jobs, limit, [&work](std::size_t index, const HandOver&) { return work(index); }, done);
}

} // namespace velarix::lab
