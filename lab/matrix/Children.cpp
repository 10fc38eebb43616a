#include "Children.h"

#include <cerrno>
#include <csignal>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velarix::lab
{

namespace
{

constexpr char wellMark = '+';
constexpr char illMark = '-';

struct Child
{
	std::size_t index = 0;
	pid_t pid = -1;
	UniqueFd pipe;
	std::string text;
	Millis deadline{0};
};

void sendAll(int socket, const std::string& text)
{
	for (std::size_t sent = 0; sent < text.size();)
	{
		const ssize_t count = ::send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
		if (count <= 0)
		{
			return;
		}
		sent += static_cast<std::size_t>(count);
	}
}

/// Leaves without the caller's own clean-up.
[[noreturn]] void beChild(int socket, std::size_t index, const std::function<std::string(std::size_t)>& work)
{
	::prctl(PR_SET_PDEATHSIG, SIGKILL);
	std::string text;
	try
	{
		text = wellMark + work(index);
	}
	catch (const std::exception& error)
	{
		text = illMark + std::string(error.what());
	}
	sendAll(socket, text);
	_exit(0);
}

Child startChild(std::size_t index, Millis deadline, const std::function<std::string(std::size_t)>& work)
{
	int ends[2];
	if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
	{
		throwErrno("cannot make a socket pair");
	}
	Child child{index, -1, UniqueFd(ends[0]), {}, deadline};
	const UniqueFd theirs(ends[1]);
	child.pid = ::fork();
	if (child.pid == 0)
	{
		child.pipe.reset();
		beChild(theirs.get(), index, work);
	}
	if (child.pid < 0)
	{
		throwErrno("cannot make a process for a run");
	}
	return child;
}

/// @return true when the child has said everything
bool readFrom(Child& child)
{
	char buffer[16384];
	const ssize_t count = ::recv(child.pipe.get(), buffer, sizeof buffer, MSG_DONTWAIT);
	child.text.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
	return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

ChildResult resultOf(Child& child, bool late)
{
	if (late)
	{
		::kill(child.pid, SIGKILL);
	}
	while (::waitpid(child.pid, nullptr, 0) < 0 && errno == EINTR)
	{
	}
	ChildResult result{child.index, {}, {}};
	if (!child.text.empty() && child.text.front() == wellMark)
	{
		result.text = child.text.substr(1);
	}
	else
	{
		const std::string silent = late ? "it did not end in time" : "it ended without a word";
		result.problem = child.text.empty() ? silent : child.text.substr(1);
	}
	return result;
}

void waitForAny(std::vector<Child>& children)
{
	std::vector<pollfd> watched;
	watched.reserve(children.size());
	for (const Child& child : children)
	{
		watched.push_back({child.pipe.get(), POLLIN, 0});
	}
	::poll(watched.data(), watched.size(), 500);
}

} // namespace

void runInChildren(std::size_t count, int jobs, Millis limit, const std::function<std::string(std::size_t)>& work,
                   const std::function<void(const ChildResult&)>& done)
{
	const LabClock clock;
	std::vector<Child> children;
	std::size_t next = 0;
	while (next < count || !children.empty())
	{
		while (next < count && children.size() < static_cast<std::size_t>(jobs))
		{
			children.push_back(startChild(next++, clock.now() + limit, work));
		}
		waitForAny(children);
		for (std::size_t index = 0; index < children.size();)
		{
			const bool ended = readFrom(children[index]);
			const bool late = clock.now() > children[index].deadline;
			if (!ended && !late)
			{
				++index;
				continue;
			}
			done(resultOf(children[index], !ended));
			children.erase(children.begin() + static_cast<std::ptrdiff_t>(index));
		}
	}
}

} // namespace velarix::lab
