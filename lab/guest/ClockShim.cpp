/// liblabclock: preloaded into one agent of a lab, it shows that process a wall
/// clock that is ahead of or behind the machine's, so that a stepped clock can be
/// tried without touching the machine's own. The clocks that never jump are left
/// alone, as a real step leaves them.
///
/// The file named in LAB_CLOCK holds the difference in seconds as a signed 64-bit
/// number. It is mapped, so a change is a step in the running process. Programs
/// that the process starts are not concerned. A process that cannot have its
/// difference ends at once with status 126: its clock would be a right one.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

const volatile std::int64_t* g_difference = nullptr;

[[noreturn]] void endLoudly(const char* what)
{
	std::perror(what);
	_exit(126);
}

__attribute__((constructor)) void mapDifference()
{
	const char* path = std::getenv("LAB_CLOCK");
	const int file = ::open(path != nullptr ? path : "", O_RDONLY | O_CLOEXEC);
	struct stat found
	{
	};
	if (file < 0 || ::fstat(file, &found) != 0)
	{
		endLoudly("liblabclock: the file named in LAB_CLOCK cannot be opened");
	}
	if (found.st_size < static_cast<off_t>(sizeof(std::int64_t)))
	{
		errno = EINVAL;
		endLoudly("liblabclock: the file named in LAB_CLOCK holds no difference");
	}
	void* mapped = ::mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
	if (mapped == MAP_FAILED)
	{
		endLoudly("liblabclock: the file named in LAB_CLOCK cannot be mapped");
	}
	::close(file);
	g_difference = static_cast<const std::int64_t*>(mapped);
	::unsetenv("LD_PRELOAD");
	::unsetenv("LAB_CLOCK");
}

timespec wallClock()
{
	timespec now{};
	::syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
	// Before the constructor has run there is no difference yet.
	now.tv_sec += g_difference != nullptr ? *g_difference : 0;
	return now;
}

} // namespace

extern "C"
{

	__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept
	{
		if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)
		{
			*time = wallClock();
			return 0;
		}
		return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
	}

	__attribute__((visibility("default"))) int gettimeofday(timeval* time, void* /*zone*/) noexcept
	{
		const timespec now = wallClock();
		*time = {now.tv_sec, now.tv_nsec / 1000};
		return 0;
	}

	__attribute__((visibility("default"))) time_t time(time_t* result) noexcept
	{
		const time_t now = wallClock().tv_sec;
		if (result != nullptr)
		{
			*result = now;
		}
		return now;
	}

} // extern "C"
