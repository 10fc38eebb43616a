#include "lab/program/Supervisor.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstring>
#include <iterator>
#include <sstream>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "lab/core/Lab.h"

namespace velarix::lab::program
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* errorMark = "error: ";

/// A socket, and its connect() or bind() to the path.
/// @throws LabError beginning with `problem`
Descriptor socketAt(const fs::path& path, int (*place)(int, const sockaddr*, socklen_t), const char* problem)
{
	sockaddr_un address{};
	address.sun_family = AF_UNIX;
	if (path.string().size() >= sizeof address.sun_path)
	{
		throw LabError("the path of the control socket is too long: " + path.string());
	}
	std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
	Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
	if (!made || place(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
	{
		throwErrno(problem + path.string());
	}
	return made;
}

/// Reads until the other side has said all.
/// @return false when it kept silent for so long
bool readText(int socket, std::string& text, std::chrono::seconds limit)
{
	const timeval time{limit.count(), 0};
	::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
	char buffer[4096];
	ssize_t count = 0;
	while ((count = ::recv(socket, buffer, sizeof buffer, 0)) > 0)
	{
		text.append(buffer, static_cast<std::size_t>(count));
	}
	return count == 0;
}

/// All of it, and that it was all. A socket that blocks takes the whole.
void sendText(int socket, const std::string& text)
{
	::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
	::shutdown(socket, SHUT_WR);
}

/// For root only. Who sees the file at its place is answered.
Descriptor listeningAt(const fs::path& path)
{
	const fs::path made = path.string() + ".new";
	const mode_t before = ::umask(0077);
	Descriptor listening = socketAt(made, ::bind, "cannot listen at ");
	::umask(before);
	if (::listen(listening.get(), 8) != 0)
	{
		throwErrno("cannot listen at " + path.string());
	}
	fs::rename(made, path);
	return listening;
}

/// Before any thread: all of them keep the signals blocked.
Descriptor endingSignals()
{
	sigset_t ending;
	sigemptyset(&ending);
	sigaddset(&ending, SIGTERM);
	sigaddset(&ending, SIGINT);
	::sigprocmask(SIG_BLOCK, &ending, nullptr);
	return Descriptor(::signalfd(-1, &ending, SFD_CLOEXEC));
}

std::string statusOf(const std::string& name, Lab& lab)
{
	nlohmann::ordered_json answer{{"name", name},
	                              {"supervisor", ::getpid()},
	                              {"upMs", lab.clock().now().count()},
	                              {"address", lab.owners()},
	                              {"service", lab.answeredBy()}};
	for (const HostId id : nodes)
	{
		const std::optional<Process> agent = lab.node(id).agent();
		answer["nodes"][nameOf(id)] = {
		    {"role", lab.role(id)}, {"on", lab.node(id).isOn()}, {"agentPid", agent ? agent->pidInside : -1}};
	}
	return answer.dump();
}

/// Of a fault that is on no node, the node means nothing.
Fault faultOrThrow(const std::string& name, const std::string& node)
{
	return faultFrom(infoOf(name).onNode && !node.empty() ? name + ":" + node : name);
}

std::string answerOf(const std::string& name, Lab& lab, const std::string& request)
{
	std::istringstream words(request);
	std::string verb;
	std::string first;
	std::string second;
	words >> verb >> first >> second;
	if (verb == "status")
	{
		return statusOf(name, lab);
	}
	if (verb == "timeline")
	{
		return toText(lab.timeline());
	}
	if (verb == "pid")
	{
		const std::optional<HostId> host = hostNamed(first);
		if (!host)
		{
			throw LabError("there is no host \"" + first + "\" (a, b, gateway, client)");
		}
		return std::to_string(lab.host(*host).pid());
	}
	if (verb == "inject")
	{
		lab.inject(faultOrThrow(first, second));
	}
	else if (verb == "repair")
	{
		lab.repair(faultOrThrow(first, second));
	}
	else if (verb != "down")
	{
		throw LabError("unknown request: " + verb);
	}
	return "";
}

/// Until "down", or a signal.
void serve(const Descriptor& listening, const Descriptor& signals, const std::string& name, Lab& lab)
{
	for (std::string request; request != "down";)
	{
		pollfd watched[2] = {{listening.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
		::poll(watched, 2, -1);
		if (watched[1].revents != 0)
		{
			return;
		}
		const Descriptor connection(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
		request.clear();
		if (!connection || !readText(connection.get(), request, std::chrono::seconds(2)))
		{
			request.clear();
			continue;
		}
		try
		{
			sendText(connection.get(), answerOf(name, lab, request));
		}
		catch (const std::exception& error)
		{
			sendText(connection.get(), errorMark + std::string(error.what()));
		}
	}
}

} // namespace

StateDirectory::StateDirectory(const fs::path& base, const std::string& name) : m_name(name), m_path(base / name)
{
	const auto fits = [](unsigned char letter) { return std::isalnum(letter) != 0 || letter == '-' || letter == '_'; };
	if (name.empty() || name.size() > 32 || !std::ranges::all_of(name, fits))
	{
		throw LabError("a lab's name is 1 to 32 letters, digits, \"-\" and \"_\": \"" + name + "\" is not");
	}
}

bool StateDirectory::inUse() const
{
	const Descriptor file(::open((m_path / "lock").c_str(), O_RDONLY | O_CLOEXEC));
	return file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
}

void StateDirectory::create() const
{
	std::error_code failure;
	fs::create_directories(m_path, failure);
	if (failure)
	{
		throw LabError("cannot make " + m_path.string() + ": " + failure.message());
	}
	fs::permissions(m_path, fs::perms::owner_all, failure);
}

void StateDirectory::lock()
{
	m_lock.reset(::open((m_path / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
	if (!m_lock || ::flock(m_lock.get(), LOCK_EX | LOCK_NB) != 0)
	{
		throw LabError("the lab \"" + m_name + "\" is up already");
	}
}

void StateDirectory::remove() const
{
	std::error_code ignored;
	fs::remove_all(m_path, ignored);
	fs::remove(m_path.parent_path(), ignored); // fails while other pairs are there
}

std::string StateDirectory::ask(const std::string& request) const
{
	if (!inUse())
	{
		throw LabError("no lab \"" + m_name + "\" is up" +
		               (exists() ? " (a supervisor that died left its directory; \"velarix-lab down\" removes it)"
		                         : " (start it with: velarix-lab up)"));
	}
	const Descriptor connection = socketAt(controlSocket(), ::connect, "no supervisor at ");
	sendText(connection.get(), request);
	std::string answer;
	if (!readText(connection.get(), answer, std::chrono::seconds(60)))
	{
		throw LabError("the supervisor does not answer");
	}
	if (answer.starts_with(errorMark))
	{
		throw LabError(answer.substr(std::strlen(errorMark)));
	}
	return answer;
}

void supervise(StateDirectory& directory, const SupervisorOptions& options)
{
	const Descriptor signals = endingSignals();
	directory.lock();
	std::error_code ignored;
	fs::remove(directory.controlSocket(), ignored);

	LabOptions labOptions(options.installRoot, options.times);
	std::istringstream words(options.wrapper);
	labOptions.wrapper = {std::istream_iterator<std::string>(words), {}};
	Lab lab(labOptions);
	if (options.startAgents)
	{
		lab.startAgents();
	}
	serve(listeningAt(directory.controlSocket()), signals, directory.name(), lab);
	directory.remove();
}

} // namespace velarix::lab::program
