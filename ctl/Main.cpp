#include <cstdlib>
#include <iostream>

#include <unistd.h>

#include "ctl/Program.h"

int main(int argc, char** argv)
{
	using namespace velarix::ctl;
	const char* noColour = std::getenv("NO_COLOR");
	const bool wanted = noColour == nullptr || *noColour == '\0';
	const char* const type = std::getenv("TERM");
	const bool obeys = type != nullptr && *type != '\0' && std::string_view(type) != "dumb";
	const bool terminal = obeys && ::isatty(STDOUT_FILENO) == 1;
	Context context{.out = std::cout,
	                .err = std::cerr,
	                .now = std::chrono::system_clock::now,
	                .terminal = terminal,
	                .colour = terminal && wanted,
	                .paths = {},
	                .in = ::isatty(STDIN_FILENO) == 1 ? &std::cin : nullptr};
	return run({argv + 1, argv + argc}, context);
}
