#include "lab/core/Node.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "lab/core/Basics.h"
#include "lab/core/Command.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* tree = "usr/velarix";

/// What the installation provides and the agent does not make by itself.
constexpr std::array<const char*, 5> needed{"usr/velarix/bin/VelarixHA", "usr/velarix/bin/ini", "usr/velarix/bin/log",
                                            "usr/velarix/bin/log/runinfo.txt", "usr/velarix/pid"};

void requireInstalled(const fs::path& root)
{
	for (const char* path : needed)
	{
		if (!fs::exists(root / path))
		{
			throw LabError("the installed tree is not complete: " + (root / path).string() + " is missing");
		}
	}
}

/// A staged tree is copied whole below /usr. Of this machine's own installation
/// only its directory is taken, and no file that a running agent has written.
void copyInstalled(const fs::path& root, const fs::path& upper)
{
	if (root != "/")
	{
		fs::copy(root / "usr", upper, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
		return;
	}
	const fs::path source = root / tree;
	for (const fs::directory_entry& entry : fs::recursive_directory_iterator(source))
	{
		const fs::path relative = entry.path().lexically_relative(source);
		const fs::path target = upper / "velarix" / relative;
		const std::string parent = relative.parent_path().string();
		const bool written = parent == "bin/ini" || parent == "pid" || parent == "log";
		if (entry.is_directory())
		{
			fs::create_directories(target);
		}
		else if (entry.is_regular_file() && !written)
		{
			fs::copy_file(entry.path(), target);
		}
	}
}

/// The file that the node knows as `path`, which begins with "/usr/".
fs::path fileOnDisk(const fs::path& disk, const std::string& path)
{
	return disk / "upper" / fs::path(path).lexically_relative("/usr");
}

/// Fills a new disk: the installed tree below /usr, the managed service, a log directory, no settings file.
/// What an agent that is really installed on this machine has written does not shine through.
void prepareDisk(const fs::path& disk, const fs::path& installRoot)
{
	requireInstalled(installRoot);
	try
	{
		const fs::path upper = disk / "upper";
		fs::create_directories(disk / "scratch");
		fs::create_directories(upper / "velarix");
		// Opaque: nothing of a lower /usr/velarix is seen through it.
		if (::setxattr((upper / "velarix").c_str(), "trusted.overlay.opaque", "y", 1, 0) != 0)
		{
			throwErrno("cannot mark the node's own directory");
		}
		copyInstalled(installRoot, upper);
		const fs::path service = fileOnDisk(disk, plan::serviceProgram);
		fs::create_directories(service.parent_path());
		fs::copy_file(VELARIX_LAB_HTTPD, service);
		fs::copy_file(VELARIX_LAB_CLOCK, fileOnDisk(disk, plan::clockShim));
		fs::create_directories(fileOnDisk(disk, plan::logFile).parent_path());
	}
	catch (const fs::filesystem_error& error)
	{
		throw LabError(std::string("cannot fill the disk of a node: ") + error.what());
	}
}

constexpr Millis startLimit{10000};
constexpr Millis wrappedStartLimit{120000};

} // namespace

Node::Node(HostId id, const Host& rootHost, const std::filesystem::path& installRoot, int firstProcess)
    : m_id(id), m_rootHost(rootHost), m_firstProcess(firstProcess)
{
	prepareDisk(disk(), installRoot);
}

std::filesystem::path Node::disk() const
{
	return m_rootHost.root() / "mnt" / nameOf(m_id);
}

void Node::boot()
{
	m_host.emplace(HostSpec{hostName(), HostKind::node, m_firstProcess, m_rootHost.pid(), nameOf(m_id)});
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
	struct statvfs found
	{
	};
	if (::statvfs(disk().c_str(), &found) != 0)
	{
		throwErrno("cannot look at the disk of a node");
	}
	// The size that is in use, in pages: what the last page of a file has left
	// is all that can be written.
	const std::string size =
	    full ? std::to_string((found.f_blocks - found.f_bfree) * found.f_frsize / 1024) + "k" : "50%";
	const Descriptor system(::fspick(AT_FDCWD, disk().c_str(), FSPICK_CLOEXEC));
	if (!system || ::fsconfig(system.get(), FSCONFIG_SET_STRING, "size", size.c_str(), 0) != 0 ||
	    ::fsconfig(system.get(), FSCONFIG_CMD_RECONFIGURE, nullptr, nullptr, 0) != 0)
	{
		throwErrno("cannot change the size of a node's disk");
	}
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
	shell(host(), std::string(plan::serviceProgram) + " >/dev/null 2>&1 </dev/null &");
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

namespace
{

void init(const Node& node)
{
	const auto wire = [](HostId host) { return std::string(plan::addressOf(host, Network::communication)); };
	runOrThrow({{"velarixctl", "init", "--force", "--wireguard", std::string("--this=") + nameOf(node.id()),
	             "--output=/tmp/pair", "--address-a=" + wire(HostId::a), "--address-b=" + wire(HostId::b),
	             "--gateway=" + wire(HostId::gateway),
	             std::string("--virtual-ip=") + plan::virtualAddress + "/" + std::to_string(plan::prefixLength),
	             "--port=" + std::to_string(plan::heartbeatPort), std::string("--program=") + plan::serviceProgram},
	            {},
	            node.host().inside()});
}

void takePublicKey(const Node& node, const Node& partner)
{
	writeFile(node.file(plan::partnerKey), contentOf(partner.file(plan::tunnelPublicKey)));
}

} // namespace

void makeTunnel(const Node& a, const Node& b)
{
	init(a);
	init(b);
	takePublicKey(a, b);
	takePublicKey(b, a);
}

void startTunnel(const Node& node)
{
	const std::string program = plan::tunnelProgram;
	shell(node.host(), std::string("nft -f ") + plan::firewallFile + "; " + program + " start; " + program +
	                       " refresh </dev/null >/dev/null 2>&1 &");
}

void changeTunnelKeys(const Node& a, const Node& b)
{
	for (const Node* node : {&a, &b})
	{
		const Node& other = node == &a ? b : a;
		shell(node->host(), std::string("rm ") + plan::tunnelKey + "; " + plan::tunnelProgram + " reload");
		takePublicKey(other, *node);
		shell(other.host(), std::string(plan::tunnelProgram) + " reload");
	}
}

} // namespace velarix::lab
