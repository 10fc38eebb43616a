#include "lab/core/Node.h"

#include <algorithm>
#include <csignal>
#include <cstdint>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/core/Disk.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"
#include "lab/core/Wait.h"

namespace velarix::lab
{

namespace
{

constexpr Millis startLimit{10000};
constexpr Millis wrappedStartLimit{120000};

} // namespace

Node::Node(HostId id, const Host& rootHost, const Programs& programs, int firstProcess)
    : m_id(id), m_rootHost(rootHost), m_initProgram(programs.init), m_firstProcess(firstProcess)
{
	prepareDisk(disk(), programs);
}

std::filesystem::path Node::disk() const
{
	return m_rootHost.root() / "mnt" / nameOf(m_id);
}

void Node::boot()
{
	m_host.emplace(HostSpec{m_initProgram, hostName(), HostKind::node, m_firstProcess, m_rootHost.pid(), nameOf(m_id)});
}

const Host& Node::host() const
{
	if (!m_host)
	{
		throw LabError(nodeText(m_id) + " is switched off");
	}
	return *m_host;
}

std::filesystem::path Node::file(const std::string& path) const
{
	if (m_host)
	{
		return m_host->root() / path.substr(1);
	}
	return diskFile(path);
}

std::filesystem::path Node::diskFile(const std::string& path) const
{
	return path.starts_with("/usr/") ? fileOnDisk(disk(), path) : std::filesystem::path();
}

void Node::writeSettings(const NodeSettings& settings)
{
	writeFile(file(plan::settingsFile), settings.ini());
	if (settings.keeperIni().empty())
	{
		return;
	}
	if (!std::filesystem::exists(file(plan::keeperProgram)) && !std::filesystem::exists(plan::keeperProgram))
	{
		throw LabError(std::string("the installed tree has no ") + plan::keeperProgram);
	}
	writeFile(file(plan::keeperSettings), settings.keeperIni());
	writeFile(file(plan::reachKey), std::string(64, '7'));
	std::filesystem::permissions(file(plan::reachKey),
	                             std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
	for (const char* link : {plan::addressLink, plan::serviceLink})
	{
		std::filesystem::create_directories(file(link).parent_path());
		std::filesystem::remove(file(link));
		std::filesystem::create_symlink(plan::keeperProgram, file(link));
	}
}

bool Node::hasKeeper() const
{
	return std::filesystem::exists(file(plan::keeperSettings));
}

/// Written in place: the agent has the file mapped.
void Node::setClock(std::chrono::seconds ahead) const
{
	const std::int64_t difference = ahead.count();
	const std::filesystem::path path = file(plan::clockDifferenceFile);
	const Descriptor opened(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
	if (!opened || ::pwrite(opened.get(), &difference, sizeof difference, 0) != sizeof difference)
	{
		throwErrno("cannot set the clock of " + nodeText(m_id));
	}
}

std::vector<std::string> Node::agentCommand() const
{
	std::vector<std::string> words = m_clockShim ? clockWords() : std::vector<std::string>();
	words.insert(words.end(), m_wrapper.begin(), m_wrapper.end());
	words.emplace_back(plan::agentProgram);
	return words;
}

std::vector<std::string> Node::clockWords() const
{
	if (!std::filesystem::exists(file(plan::clockDifferenceFile)))
	{
		setClock(std::chrono::seconds(0));
	}
	return {"env", std::string("LD_PRELOAD=") + plan::clockShim, std::string("LAB_CLOCK=") + plan::clockDifferenceFile};
}

void Node::stepClock(std::chrono::seconds ahead) const
{
	if (!hasClock())
	{
		throw LabError("the agent of " + nodeText(m_id) + " has no clock that can be stepped");
	}
	setClock(ahead);
}

void Node::setDiskFull(bool full) const
{
	setFull(disk(), full);
}

void Node::startAgent()
{
	if (hasKeeper())
	{
		// As the units do; without the marker the agent counts down.
		run({{"sh", "-c",
		      std::string(plan::keeperProgram) + " reach >/dev/null 2>&1 & exec " + plan::keeperProgram + " mark"},
		     {},
		     host().inside()});
	}
	const std::filesystem::path path = file(plan::consoleFile);
	const Descriptor console(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
	if (!console)
	{
		throwErrno("cannot open the console file of " + nodeText(m_id));
	}
	const pid_t child = spawn({agentCommand(), host().inside(), -1, console.get(), console.get()});
	const std::optional<int> status = waitForChild(child, m_wrapper.empty() ? startLimit : wrappedStartLimit);
	if (!status)
	{
		::kill(child, SIGKILL);
		::waitpid(child, nullptr, 0);
	}
	if (status.value_or(1) != 0)
	{
		throw LabError("the agent of " + nodeText(m_id) + " did not start: " +
		               (status ? "status " + std::to_string(*status) : "it does not return to its caller"));
	}
}

/// What runs the agent's program has a name of its own: it is known by its command line, which ends in that program.
std::vector<Process> Node::agentProcesses() const
{
	if (m_wrapper.empty())
	{
		return processesNamed(m_host->pid(), plan::agentName);
	}
	std::vector<Process> found = processesOf(m_host->pid());
	const std::string end = plan::agentProgram + std::string(1, '\0');
	std::erase_if(found,
	              [&](const Process& entry)
	              {
		              // A process that ends in the meantime has no command line.
		              return entry.state == 'Z' || !procText(entry.pid, "cmdline").ends_with(end);
	              });
	return found;
}

std::optional<Process> Node::agent() const
{
	if (!m_host)
	{
		return std::nullopt;
	}
	const std::vector<Process> found = agentProcesses();
	const auto named = [&](pid_t pid)
	{ return std::any_of(found.begin(), found.end(), [&](const Process& entry) { return entry.pid == pid; }); };
	// About to start a command it is two of that name for a moment, and the numbers begin anew at their end.
	const auto agent =
	    std::find_if(found.begin(), found.end(), [&](const Process& entry) { return !named(entry.parent); });
	return agent == found.end() ? std::nullopt : std::optional<Process>(*agent);
}

bool Node::signalAgent(int signal) const
{
	const std::optional<Process> found = agent();
	return found && signalInHost(m_host->pid(), found->pid, signal);
}

void Node::startService() const
{
	const std::string line = std::string(plan::serviceProgram) + " >/dev/null 2>&1 </dev/null &";
	runOrThrow({{"sh", "-c", line}, {}, host().inside()});
	const auto runs = [this] { return !processesNamed(m_host->pid(), plan::serviceProgramName).empty(); };
	if (!waitFor(runs, startLimit, "the managed program to run"))
	{
		throw LabError("the managed program of " + nodeText(m_id) + " did not start");
	}
}

int Node::signalAll(const std::string& name, int signal) const
{
	int count = 0;
	for (const Process& entry : processesNamed(host().pid(), name))
	{
		count += signalInHost(host().pid(), entry.pid, signal) ? 1 : 0;
	}
	return count;
}

int Node::killService() const
{
	return signalAll(plan::serviceProgramName, SIGKILL);
}

} // namespace velarix::lab
