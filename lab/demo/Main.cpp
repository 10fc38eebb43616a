/// velarix-demo: the command line.

#include <cstdio>

#include <getopt.h>

#include "lab/core/Basics.h"
#include "lab/demo/Demo.h"

namespace
{

using namespace velarix::lab;

constexpr const char* usage =
    "usage: velarix-demo [--settings keeper|plain] [--install-root DIRECTORY] [--timeline FILE]\n"
    "\n"
    "Shows on two nodes in namespaces of this machine how a pair fails over. Needs root. Nothing\n"
    "of the machine is changed. Ends with 0 when everything was as expected, else with 1.\n";

/// @return false when the words are not understood
bool read(int argc, char** argv, demo::Options& options)
{
	constexpr option known[] = {{"settings", required_argument, nullptr, 's'},
	                            {"install-root", required_argument, nullptr, 'i'},
	                            {"timeline", required_argument, nullptr, 't'},
	                            {nullptr, 0, nullptr, 0}};
	for (int found = 0; (found = ::getopt_long(argc, argv, "", known, nullptr)) != -1;)
	{
		const std::string value = optarg != nullptr ? optarg : "";
		switch (found)
		{
		case 's':
			options.pair.profile = value == "plain" ? Profile::plain : Profile::keeper;
			if (value != nameOf(options.pair.profile))
			{
				return false;
			}
			break;
		case 'i':
			options.installRoot = value;
			break;
		case 't':
			options.timelineFile = value;
			break;
		default:
			return false;
		}
	}
	return optind == argc;
}

} // namespace

int main(int argc, char** argv)
{
	try
	{
		demo::Options options;
		if (!read(argc, argv, options))
		{
			std::fputs(usage, stderr);
			return 2;
		}
		return demo::run(options);
	}
	catch (const std::exception& error)
	{
		std::fprintf(stderr, "velarix-demo: %s\n", error.what());
		return 2;
	}
}
