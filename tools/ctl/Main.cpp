#include <cstdlib>
#include <iostream>

#include <unistd.h>

#include "Program.h"

int main(int argc, char** argv)
{
	using namespace velarix::ctl;
	const char* noColour = std::getenv("NO_COLOR");
	const bool wanted = noColour == nullptr || *noColour == '\0';
	Context context{.out = std::cout,
	                .err = std::cerr,
	                .now = std::chrono::system_clock::now,
	                .colour = wanted && ::isatty(STDOUT_FILENO) == 1,
	                .paths = {},
	                .action = {}};
	return run({argv + 1, argv + argc}, context);
}
