#include "CpuTime.h"

#include <ctime>

#include <sys/resource.h>

namespace
{

double seconds(const timeval& time)
{
	return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

double cpuSeconds()
{
	timespec own{};
	::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &own);
	rusage children{};
	::getrusage(RUSAGE_CHILDREN, &children);
	return static_cast<double>(own.tv_sec) + static_cast<double>(own.tv_nsec) / 1e9 + seconds(children.ru_utime) +
	       seconds(children.ru_stime);
}
