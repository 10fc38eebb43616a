// The keeper's log, what velarixctl records in it, and what each of its words means (keeper/Runtime.h).

#include "ctl/history/KeeperLog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ctl/history/Dates.h"
#include "inspect/Descriptor.h"
#include "inspect/Pattern.h"
#include "keeper/Runtime.h"

namespace velarix::ctl
{

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t kLongest = 4096;
/// More than the package's logrotate keeps.
constexpr int kArchives = 9;

/// What a week of an unquiet node writes.
constexpr std::streamoff kEnd = 64L * 1024;

constexpr std::string_view kAddress = "ha-address";
constexpr std::string_view kService = "ha-NAME";
constexpr std::string_view kReach = "ha-reach";
/// What stands before a line's detail.
constexpr std::size_t kLongestHead = 256;

constexpr CatalogueRow row(std::string_view label, std::string_view word, std::string_view when,
                           std::string_view action = "nothing")
{
	return {0, 0, "", label, "keeper", word, "", when, action, "The virtual address and the services (keeper.log)."};
}

constexpr std::array kWords{
    row(kAddress, "started", "the agent has started the program of the virtual address"),
    row(kAddress, "raised", "nobody answered for the address, and it is on this node now"),
    row(kAddress, "lowered", "the address was taken from this node; the line before it says why"),
    row(kAddress, "waiting",
        "another host answers for the address, so this node does not raise it: mostly the partner, while the network "
        "between the nodes is cut",
        "nothing on this node; repair the network between the nodes. When the hardware address is neither node's, "
        "find that host in the switch"),
    row(kAddress, "conflict", "another host has claimed the address while it was on this node (split-brain)",
        "nothing once; when it repeats, find the host that holds it as well by its ARP packets"),
    row(kAddress, "yielded",
        "another host asked for the address, and this one gave it up: both held it, or a service has ended here",
        "repair the network between the nodes; see why the service has ended"),
    row(kAddress, "stalled", "this machine or this process stood still for three seconds or longer",
        "look for a paused virtual machine, or for a machine without memory"),
    row(kAddress, "removed", "somebody removed the address from the interface; it was raised again at once",
        "find what removes it: a network manager, a script"),
    row(kAddress, "offline", "the service interface is missing, down or without carrier",
        "repair the interface, its cable or its switch port"),
    row(kAddress, "stopped", "the agent has ended the program: the service moves, or the agent starts anew"),
    row(kAddress, "failed", "the address cannot be held; the text has the kernel's reason, or that of keeper.ini",
        "velarixctl check; with \"Operation not permitted\" the agent does not run as root"),
    row(kService, "started", "the supervisor of the service has started and waits for the address"),
    row(kService, "running", "the service runs"),
    row(kService, "died", "the service has ended by itself, and is started again on this node",
        "find out why in the service's own log"),
    row(kService, "restarted", "the service runs again on this node"),
    row(kService, "check-failed", "the check of the service has not ended with 0, or not in time",
        "run the check by hand; when the service is only slow, raise check_timeout or check_failures"),
    row(kService, "stopping", "the service is being stopped: SIGTERM, and SIGKILL after stop_timeout"),
    row(kService, "stopped", "nothing of the service is left on this node"),
    row(kService, "failed",
        "the service died more often than restarts allows, or cannot be started: this node gives it up, and the agent "
        "hands over",
        "repair the service, then velarixctl status on both nodes"),
    row(kReach, "started", "the program of the reachability targets has started"),
    row(kReach, "target-found", "a target has answered for the first time"),
    row(kReach, "target-lost", "a target has not answered as many pings as failures says",
        "ping it from this node; look at the interface and the switch on the way"),
    row(kReach, "target-back", "the target answers again"),
    row(kReach, "reachable", "enough targets answer, and the agent's gateway address is on lo"),
    row(kReach, "shared-outage", "too few targets answer, and the partner does not reach its own either: nothing moves",
        "repair the targets or the way to them"),
    row(kReach, "partner-only", "too few targets answer here, and the partner reaches its own",
        "repair this node's way to its targets"),
    row(kReach, "handing-over", "this node gives the service to the partner, which reaches its targets",
        "repair this node's way to its targets; the service does not come back by itself"),
    row(kReach, "isolated",
        "targets and partner were lost together: the gateway address is removed, and the agent gives the service up",
        "repair this node's network; when the partner was up, compare the keys: velarixctl check --partner"),
    row(kReach, "removed", "somebody removed the gateway address from lo; it was set again at once",
        "find what removes it"),
    row(kReach, "stopped", "the program was ended, and the gateway address is gone"),
    row(kReach, "failed", "the key cannot be read, or the address cannot be set; the text says why",
        "velarixctl check"),
    row(kOperator, kSwitchover,
        "an administrator, or the stop of the service with \"handover\", moves the service to the partner"),
    row(kOperator, kMaintenanceOn, "somebody works on this node: nothing fails over and nothing is restarted",
        "velarixctl maintenance off, when the work is done"),
    row(kOperator, kMaintenanceOff, "the maintenance is over; the agent goes on"),
    row("keeper", "killed", "a process of the keeper was killed or crashed; its other one has cleaned up behind it",
        "see the journal for who killed it: out of memory, an operator"),
};

} // namespace

std::optional<KeeperEvent> parseKeeperLine(const std::string& line)
{
	static const Pattern kLine(R"((\S+) (ha-[a-z0-9_-]+|velarixctl)\[(\d{1,9})\] ([a-z-]+): (.*))");
	const Pattern::Groups parts = kLine.matched(line);
	const auto time = parts.empty() ? std::nullopt : dateIn(parts[1], "%Y-%m-%dT%H:%M:%S.%i%z");
	return time ? std::optional<KeeperEvent>({*time, std::stol(parts[3]), parts[2], parts[4], parts[5]}) : std::nullopt;
}

bool isMove(const KeeperEvent& event)
{
	return event.program == kOperator && event.word == kSwitchover;
}

KeeperLog::KeeperLog(fs::path path) : m_path(std::move(path))
{
	for (int number = kArchives; number > 0; --number)
	{
		for (const char* suffix : {".gz", ""})
		{
			const fs::path archive = m_path.string() + "." + std::to_string(number) + suffix;
			std::error_code ignored;
			if (fs::exists(archive, ignored))
			{
				m_files.push_back(archive);
			}
		}
	}
	m_files.push_back(m_path);
}

/// @return whether a file is open; an archive that cannot be read is passed over, the file
///         that is being written may be readable again later
bool KeeperLog::open()
{
	while (!m_lines)
	{
		const fs::path file = m_files.front();
		if (std::unique_ptr<ByteSource> bytes = openBytes(file))
		{
			m_lines = std::make_unique<LineStream>(std::move(bytes), kLongest);
			m_lastError = 0;
			return true;
		}
		const int error = errno;
		const bool stays = file == m_path;
		if (!stays || (error != ENOENT && error != m_lastError))
		{
			m_trouble.push_back({file, error});
		}
		if (stays)
		{
			m_lastError = error;
			return false;
		}
		m_files.erase(m_files.begin());
	}
	return true;
}

/// @return whether nothing more will be written to the open file: an archive, or replaced (by logrotate) or cut
bool KeeperLog::isOver() const
{
	FileId id;
	std::uint64_t size = 0;
	return m_files.front() != m_path ||
	       (lookAt(m_path, id, size) && (!(id == m_lines->id()) || size < m_lines->position()));
}

bool KeeperLog::nextLine(RawLine& line)
{
	while (open())
	{
		if (m_lines->next(line))
		{
			return true;
		}
		if (!isOver())
		{
			return false;
		}
		if (m_lines->next(line))
		{
			return true; // written between the look at its end and the rotation
		}
		if (m_files.front() != m_path)
		{
			m_files.erase(m_files.begin());
		}
		m_lines.reset();
	}
	return false;
}

std::optional<KeeperEvent> KeeperLog::next(Instant until)
{
	RawLine line;
	while (!m_pending && nextLine(line))
	{
		m_pending = parseKeeperLine(line.text);
	}
	return m_pending && m_pending->time <= until ? std::exchange(m_pending, std::nullopt) : std::nullopt;
}

void recordAct(const Context& context, std::string_view word, const std::string& detail)
{
	const char* user = std::getenv("SUDO_USER");
	const std::string by = user == nullptr ? "by root" : "by " + std::string(user) + " (sudo)";
	const auto now = std::chrono::floor<std::chrono::milliseconds>(context.now()).time_since_epoch().count();
	const std::string line = keeper::timeText(now / 1000, static_cast<int>(now % 1000)) + " " + std::string(kOperator) +
	                         "[" + std::to_string(::getpid()) + "] " + std::string(word) + ": " +
	                         printable(detail.empty() ? by : detail + ", " + by) + "\n";
	const Descriptor file(
	    ::open(context.paths.keeperLog.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0644));
	if (!file || ::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()))
	{
		complain(context,
		         "cannot write " + context.paths.keeperLog.string() + ": " + std::generic_category().message(errno));
	}
	// For monitoring by a group that may enter the directory.
	static_cast<void>(::fchmod(file.get(), 0644));
}

LastMove movesIn(const std::filesystem::path& keeperLog)
{
	std::vector<Instant> moves;
	for (const char* const suffix : {".1", ""})
	{
		std::ifstream file(keeperLog.string() + suffix, std::ios::ate | std::ios::binary);
		file.seekg(std::max<std::streamoff>(file.tellg() - kEnd, 0));
		for (std::string line; std::getline(file, line);)
		{
			const bool named = line.find(kSwitchover) != std::string::npos;
			const std::optional<KeeperEvent> event = named ? parseKeeperLine(line) : std::nullopt;
			if (event && isMove(*event))
			{
				moves.push_back(event->time);
			}
		}
	}
	std::ranges::sort(moves);
	return [moves = std::move(moves)](Instant until) -> std::optional<Instant>
	{
		const auto later = std::ranges::upper_bound(moves, until);
		return later == moves.begin() ? std::nullopt : std::optional(*(later - 1));
	};
}

std::vector<const CatalogueRow*> explainKeeper(std::string_view message)
{
	static const Pattern kLine(R"((ha-[a-z0-9_-]+|velarixctl)(?:\[\d+\]:?)? ([a-z-]+): )");
	const std::string text(message.substr(0, kLongestHead));
	const bool named = text.find("ha-") != std::string::npos || text.find(kOperator) != std::string::npos;
	const Pattern::Groups parts = named ? kLine.found(text) : Pattern::Groups();
	const std::string word = parts.empty() ? text : parts[2];
	const std::string program = parts.empty() ? "" : parts[1];
	const std::string_view label =
	    program == kAddress || program == kReach || program == kOperator ? std::string_view(program) : kService;
	std::vector<const CatalogueRow*> rows;
	for (const CatalogueRow& row : kWords)
	{
		const bool its = parts.empty() || row.label == label || row.label == "keeper";
		if (row.text == word && its)
		{
			rows.push_back(&row);
		}
	}
	return rows;
}

} // namespace velarix::ctl
