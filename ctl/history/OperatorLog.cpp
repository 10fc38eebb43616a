#include "ctl/history/OperatorLog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ctl/history/KeeperLog.h"
#include "inspect/Descriptor.h"
#include "keeper/Runtime.h"

namespace velarix::ctl
{

namespace
{

/// What a week of an unquiet node writes.
constexpr std::streamoff kEnd = 64L * 1024;

void addMoves(const std::filesystem::path& path, std::vector<Instant>& moves)
{
	std::ifstream file(path, std::ios::ate | std::ios::binary);
	file.seekg(std::max<std::streamoff>(file.tellg() - kEnd, 0));
	for (std::string line; std::getline(file, line);)
	{
		if (line.find(kSwitchover) == std::string::npos)
		{
			continue;
		}
		const std::optional<KeeperEvent> event = parseKeeperLine(line);
		if (event && isMove(*event))
		{
			moves.push_back(event->time);
		}
	}
}

} // namespace

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
	addMoves(keeperLog.string() + ".1", moves);
	addMoves(keeperLog, moves);
	std::ranges::sort(moves);
	return [moves = std::move(moves)](Instant until) -> std::optional<Instant>
	{
		const auto later = std::ranges::upper_bound(moves, until);
		return later == moves.begin() ? std::nullopt : std::optional(*(later - 1));
	};
}

} // namespace velarix::ctl
