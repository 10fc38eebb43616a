#include "keeper/Journal.h"

#include <array>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "keeper/Loop.h"

namespace velarix::keeper
{

namespace
{

constexpr int kWrittenAtMost = 5;
constexpr Millis kWithin = 10'000;

timespec wallTime()
{
	timespec time{};
	::clock_gettime(CLOCK_REALTIME, &time);
	return time;
}

/// As syslog(3), which waits when its reader does not read: the address must not.
void sendToSyslog(int priority, const std::string& text)
{
	const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
	const sockaddr_un place{AF_UNIX, "/dev/log"};
	const std::string line = "<" + std::to_string(LOG_DAEMON | priority) + ">" + text;
	static_cast<void>(::sendto(socket.get(), line.data(), line.size(), MSG_NOSIGNAL,
	                           reinterpret_cast<const sockaddr*>(&place), sizeof place));
}

} // namespace

long long wallClock(Millis moment)
{
	const timespec time = wallTime();
	return (static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000 - (now() - moment)) / 1000;
}

std::string timeText(long long seconds, int millis)
{
	const auto time = static_cast<std::time_t>(seconds);
	std::tm local{};
	::localtime_r(&time, &local);
	std::array<char, 32> date{};
	std::array<char, 8> zone{};
	std::strftime(date.data(), date.size(), "%FT%T", &local);
	std::strftime(zone.data(), zone.size(), "%z", &local);
	std::array<char, 64> text{};
	std::snprintf(text.data(), text.size(), "%s.%03d%s", date.data(), millis, zone.data());
	return text.data();
}

void Journal::event(const std::string& word, const std::string& detail)
{
	Count& count = m_counts[word];
	const Millis moment = now();
	std::string more;
	if (moment - count.since >= kWithin)
	{
		more = count.held > 0 ? " (and " + std::to_string(count.held) + " more before)" : "";
		count = {moment, 0, 0};
	}
	if (++count.written > kWrittenAtMost)
	{
		++count.held;
		return;
	}
	const std::string text = m_program + "[" + std::to_string(::getpid()) + "]";
	sendToSyslog(word == "failed" || word == "killed" || word == "conflict" ? LOG_ERR : LOG_NOTICE,
	             text + ": " + word + ": " + detail + more);
	const timespec time = wallTime();
	const std::string line = timeText(time.tv_sec, static_cast<int>(time.tv_nsec / 1'000'000)) + " " + text + " " +
	                         word + ": " + detail + more + "\n";
	const Descriptor file(::open(kEventFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0640));
	// A full disk must not keep the address from being held.
	[[maybe_unused]] const ssize_t written = ::write(file.get(), line.data(), line.size());
}

} // namespace velarix::keeper
