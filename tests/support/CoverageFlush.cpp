// Coverage builds only: a process that aborts, or leaves past the exit handlers,
// writes its counters first, so that the lines it ran count as run.

#include <csignal>

extern "C"
{
	void __gcov_dump();
	[[noreturn]] void __real__exit(int status);
	[[noreturn]] void __wrap__exit(int status);
}

namespace
{

/// abort() raises the signal synchronously, so this thread has written no counter by
/// half, and ends the process once this returns.
void flush(int)
{
	__gcov_dump();
}

[[gnu::constructor]] void flushOnAbort()
{
	std::signal(SIGABRT, flush);
}

} // namespace

void __wrap__exit(int status)
{
	__gcov_dump();
	__real__exit(status);
}
