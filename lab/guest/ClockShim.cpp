/// liblabclock: preloaded into one agent of a lab, it shows that process a wall
/// clock that is ahead of or behind the machine's, so that a stepped clock can be
/// tried without touching the machine's own. The clocks that never jump are left
/// alone, as a real step leaves them.
///
/// The file named in LAB_CLOCK holds the difference in seconds as a signed 64-bit
/// number. It is mapped, so a change is a step in the running process. Programs
/// that the process starts are concerned only if LAB_CLOCK_CHILDREN is set. A
/// process that cannot have its difference ends at once with status 126: its clock
/// would be a right one.

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dlfcn.h>
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

void mapDifference()
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
}

timespec wallClock()
{
	timespec now{};
	::syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
	// Before the constructor has run there is no difference yet.
	now.tv_sec += g_difference != nullptr ? *g_difference : 0;
	return now;
}

int readClock(clockid_t clock, timespec* time)
{
	if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)
	{
		*time = wallClock();
		return 0;
	}
	return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
}

/// Go's programs do not ask the C library but the function that the kernel maps into
/// every process: its first bytes become a jump to the one above.
void redirectKernelFunction()
{
#ifdef __x86_64__
	void* object = ::dlopen("linux-vdso.so.1", RTLD_LAZY | RTLD_NOLOAD);
	void* function = object != nullptr ? ::dlsym(object, "__vdso_clock_gettime") : nullptr;
	if (function == nullptr)
	{
		return; // valgrind hides it from its program
	}
	// mov rax, readClock; jmp rax
	std::array<unsigned char, 12> jump{0x48, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xe0};
	const auto target = reinterpret_cast<std::uintptr_t>(&readClock);
	std::memcpy(jump.data() + 2, &target, sizeof target);
	const int memory = ::open("/proc/self/mem", O_WRONLY | O_CLOEXEC);
	// The page itself is read-only.
	if (::pwrite(memory, jump.data(), jump.size(), reinterpret_cast<off_t>(function)) !=
	    static_cast<ssize_t>(jump.size()))
	{
		endLoudly("liblabclock: the kernel's function cannot be replaced");
	}
	::close(memory);
#endif
}

__attribute__((constructor)) void begin()
{
	mapDifference();
	redirectKernelFunction();
	if (std::getenv("LAB_CLOCK_CHILDREN") == nullptr)
	{
		::unsetenv("LD_PRELOAD");
		::unsetenv("LAB_CLOCK");
	}
}

} // namespace

extern "C"
{

	__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept
	{
		return readClock(clock, time);
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
