#include "Journal.h"

#include <array>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "Descriptor.h"
#include "Loop.h"

namespace velarix::keeper
{

namespace
{

constexpr int kWrittenAtMost = 5;
constexpr Millis kWithin = 10'000;

} // namespace

long long wallClock(Millis moment)
{
	timespec time{};
	::clock_gettime(CLOCK_REALTIME, &time);
	return (static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000 - (now() - moment)) / 1000;
}

std::string timeText(long long seconds, int millis)
{
	const auto time = static_cast<std::time_t>(seconds);
	std::tm local{};
	::localtime_r(&time, &local);
	std::array<char, 32> date{};
	std::array<char, 8> zone{};
	std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
	std::strftime(zone.data(), zone.size(), "%z", &local);
	std::array<char, 64> text{};
	std::snprintf(text.data(), text.size(), "%s.%03d%s", date.data(), millis, zone.data());
	return text.data();
}

Journal::Journal(std::string program) : m_program(std::move(program))
{
	::openlog(m_program.c_str(), LOG_PID, LOG_DAEMON);
}

void Journal::event(const std::string& word, const std::string& detail)
{
	Count& count = m_counts[word];
	const Millis moment = now();
	std::string more;
	if (moment - count.since >= kWithin)
	{
		if (count.held > 0)
		{
			more = " (and " + std::to_string(count.held) + " more before)";
		}
		count = {moment, 0, 0};
	}
	if (++count.written > kWrittenAtMost)
	{
		++count.held;
		return;
	}
	write(word, detail + more);
}

void Journal::write(const std::string& word, const std::string& detail) const
{
	::syslog(word == "failed" || word == "killed" || word == "conflict" ? LOG_ERR : LOG_NOTICE, "%s: %s", word.c_str(),
	         detail.c_str());
	timespec time{};
	::clock_gettime(CLOCK_REALTIME, &time);
	const std::string line = timeText(time.tv_sec, static_cast<int>(time.tv_nsec / 1'000'000)) + " " + m_program + "[" +
	                         std::to_string(::getpid()) + "] " + word + ": " + detail + "\n";
	const Descriptor file(::open(kEventFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0640));
	if (file)
	{
		// A full disk must not keep the address from being held.
		[[maybe_unused]] const ssize_t written = ::write(file.get(), line.data(), line.size());
	}
}

} // namespace velarix::keeper
