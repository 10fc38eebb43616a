#include "Machine.h"

#include <thread>

#include <sys/utsname.h>

namespace velarix::lab
{

std::string machineText()
{
	utsname system{};
	const std::string kernel = ::uname(&system) == 0 ? std::string(system.sysname) + " " + system.release : "Linux";
	const unsigned processors = std::thread::hardware_concurrency();
	return kernel + ", " + std::to_string(processors) + (processors == 1 ? " processor" : " processors");
}

} // namespace velarix::lab
