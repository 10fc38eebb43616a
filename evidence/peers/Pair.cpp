#include "evidence/peers/Pair.h"

#include <sys/stat.h>
#include <unistd.h>

#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::evidence::peers
{

namespace
{

constexpr Millis startLimit{10000};
constexpr Millis serveLimit{60000};
/// Gone when the node is switched off.
constexpr const char* logPath = "/run/peer.log";

/// 0 when there is no such process.
ino_t namespaceOf(const std::string& process, const char* kind)
{
	struct stat found
	{
	};
	return ::stat(("/proc/" + process + "/ns/" + kind).c_str(), &found) == 0 ? found.st_ino : 0;
}

std::string quoted(const std::vector<std::string>& command)
{
	std::string text;
	for (const std::string& word : command)
	{
		text += "'" + word + "' ";
	}
	return text;
}

} // namespace

void requireOwnNamespaces(pid_t hostInit)
{
	const std::string host = std::to_string(hostInit);
	for (const char* kind : {"net", "pid", "mnt"})
	{
		const ino_t own = namespaceOf(host, kind);
		if (own == 0 || own == namespaceOf("self", kind) || own == namespaceOf("1", kind))
		{
			throw LabError("keepalived and ucarp are started in the hosts of a lab only: process " + host + " has no " +
			               kind + " namespace of its own");
		}
	}
}

void requirePeer(Program program)
{
	for (const char* directory : {"/usr/sbin/", "/usr/local/sbin/", "/sbin/"})
	{
		if (::access((std::string(directory) + nameOf(program)).c_str(), X_OK) == 0)
		{
			return;
		}
	}
	throw LabError(std::string(nameOf(program)) + " is missing on this machine (Debian package " + nameOf(program) +
	               ", or: scripts/install-deps peers)");
}

Pair::Pair(Lab& lab, Settings settings, bool ownClock)
    : m_lab(lab), m_settings(std::move(settings)), m_ownClock(ownClock)
{
	for (const HostId node : nodes)
	{
		writeFiles(node);
	}
}

void Pair::writeFiles(HostId node) const
{
	const std::filesystem::path directory = m_lab.node(node).file(peerDirectory);
	std::filesystem::create_directories(directory);
	for (const File& file : filesFor(node, m_settings))
	{
		const std::filesystem::path path = directory / file.name;
		writeFile(path, file.text);
		if (::chmod(path.c_str(), file.executable ? 0755 : 0644) != 0)
		{
			throw LabError("cannot make an executable of " + file.name + " of " + nodeText(node));
		}
	}
}

void Pair::start(HostId node)
{
	startProgram(node);
	startPeer(node);
}

void Pair::startPeer(HostId node)
{
	const Host& host = m_lab.node(node).host();
	const std::vector<std::string> command = commandFor(node, m_settings);
	requireOwnNamespaces(host.pid());
	if (const std::optional<std::string> escape = escapeIn(command, filesFor(node, m_settings)))
	{
		throw LabError("a peer must not leave its namespaces: " + *escape);
	}
	if (isRunning(node))
	{
		throw LabError(nodeText(node) + " has a peer already");
	}
	std::vector<std::string> words = m_ownClock ? m_lab.node(node).clockWords() : std::vector<std::string>();
	words.insert(words.end(), command.begin(), command.end());
	const std::string line = "exec >>" + std::string(logPath) + " 2>&1 </dev/null; exec " + quoted(words) + "&";
	runOrThrow({{"sh", "-c", "(" + line + ")"}, {}, host.inside()});
	if (!waitFor([&] { return isRunning(node); }, startLimit, "the peer to run"))
	{
		throw LabError("the peer of " + nodeText(node) + " did not start: " + logOf(node));
	}
}

void Pair::startProgram(HostId node)
{
	m_lab.node(node).startService();
}

bool Pair::isRunning(HostId node) const
{
	return m_lab.node(node).isOn() &&
	       !processesNamed(m_lab.node(node).host().pid(), nameOf(m_settings.program)).empty();
}

void Pair::signal(HostId node, int number, bool all)
{
	const pid_t init = m_lab.node(node).host().pid();
	const std::vector<Process> processes = processesNamed(init, nameOf(m_settings.program));
	if (processes.empty())
	{
		throw LabError(nodeText(node) + " has no peer");
	}
	for (const Process& entry : processes)
	{
		if (all || entry.pid == processes.front().pid)
		{
			signalInHost(init, entry.pid, number);
		}
	}
}

void Pair::killProgram(HostId node)
{
	if (m_lab.node(node).killService() == 0)
	{
		throw LabError("no managed program runs on " + nodeText(node));
	}
}

void Pair::powerOn(HostId node)
{
	m_lab.powerOn(node, false);
	start(node);
}

std::string Pair::logOf(HostId node) const
{
	return contentIfAny(m_lab.node(node).file(logPath));
}

/// Nobody goes back to a preferred node, so the first one up keeps the address.
void Pair::letServe(HostId node)
{
	for (const HostId next : {node, otherNode(node)})
	{
		start(next);
		if (!m_lab.waitForService(node, serveLimit, Millis(2000)))
		{
			throw LabError(nodeText(node) + " did not come to serve: " + m_lab.stateText() + "\n" + logOf(node));
		}
	}
}

void Pair::note(EventKind kind, std::optional<HostId> node, const std::string& text)
{
	m_lab.timeline().add({m_lab.clock().now(), kind, node, text});
}

} // namespace velarix::evidence::peers
