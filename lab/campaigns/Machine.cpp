#include "lab/campaigns/Machine.h"

#include <thread>

#include <sys/utsname.h>

namespace velarix::lab
{

std::string machineText()
{
	utsname system{};
	::uname(&system);
	const std::string release = system.release;
	// The version; what a distribution or a host appends says nothing to others.
	const std::string kernel = "Linux " + release.substr(0, release.find_first_not_of("0123456789."));
	const unsigned processors = std::thread::hardware_concurrency();
	return kernel + ", " + std::to_string(processors) + (processors == 1 ? " processor" : " processors");
}

} // namespace velarix::lab
