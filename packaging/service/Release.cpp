/// Takes this node out of service: the settings' stop command of the virtual
/// address, then its kill command for each program, as the agent itself does at
/// every start. For the time after the agent has ended, when nobody raises again
/// what is dropped here.
///
/// Exit status: 0 neither address nor programs are left, 1 something is left,
/// 66, 77, 78 as velarixctl's for settings missing, unreadable or wrong.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>

#include "ctl/handover/HandOver.h"
#include "inspect/ExitCode.h"
#include "inspect/Host.h"
#include "inspect/Names.h"
#include "inspect/Paths.h"
#include "inspect/Printable.h"
#include "inspect/SettingsFile.h"
#include "inspect/SettingsKeys.h"

namespace
{

using namespace velarix::inspect;

/// A command that the ended agent had under way may undo what was just done.
constexpr int kAttempts = 3;

struct Service
{
	std::string address;
	std::vector<std::string> programs;
	/// What is run to end both, in this order.
	std::vector<std::string> commands;
};

Service readService(const Paths& paths)
{
	const SettingsFile settings = SettingsFile::load(paths.settings);
	try
	{
		Service service{settings.textOrThrow(key::kVirtualIP), {}, {settings.textOrThrow(key::kStopCommand)}};
		const std::string killCommand = settings.textOrThrow(key::kKillCommand);
		const int number = settings.integerOrThrow(key::kProcessNumber);
		for (int i = 1; i <= number; ++i)
		{
			service.programs.push_back(programName(settings.textOrThrow(programKey(i))));
			service.commands.push_back(killCommand + " " + service.programs.back());
		}
		return service;
	}
	catch (const Poco::Exception& exc)
	{
		throw Failure(ExitCode::settings, paths.settings.string() + ": " + exc.displayText());
	}
}

void releaseOnce(const Service& service)
{
	for (const std::string& command : service.commands)
	{
		// A terminal obeys what stands in the settings, or in the names of processes.
		std::cout << "running: " << printable(command) << std::endl;
		// What the command is worth is seen by what is left, not by its status.
		[[maybe_unused]] const int status = std::system(command.c_str());
	}
}

/// @return what of the service is still on this node, in words
std::vector<std::string> leftOf(const Service& service)
{
	std::vector<std::string> left;
	const auto addresses = host::addresses();
	if (std::ranges::any_of(addresses, [&](const host::Address& held) { return held.address == service.address; }))
	{
		left.push_back("the address " + service.address);
	}
	for (const std::string& program : service.programs)
	{
		// As far as the kernel keeps the name.
		if (!velarix::ctl::processesNamed({program.substr(0, kProcessNameLength)}).empty())
		{
			left.push_back("the program " + program);
		}
	}
	return left;
}

int release()
{
	const Service service = readService(Paths());
	std::vector<std::string> left;
	for (int i = 0; i < kAttempts; ++i)
	{
		releaseOnce(service);
		std::this_thread::sleep_for(std::chrono::seconds(1));
		left = leftOf(service);
		if (left.empty())
		{
			std::cout << "released: neither the address nor a program is left on this node\n";
			return number(ExitCode::fine);
		}
	}
	for (const std::string& item : left)
	{
		std::cerr << "velarix-ha: " << printable(item) << " is still on this node, although the commands have run\n";
	}
	return number(ExitCode::notAsWished);
}

} // namespace

int main()
{
	try
	{
		return release();
	}
	catch (const Failure& failure)
	{
		std::cerr << "velarix-ha: nothing is released: " << printable(failure.what()) << '\n';
		return number(failure.code());
	}
	catch (const std::exception& error)
	{
		std::cerr << "velarix-ha: the release has failed: " << printable(error.what()) << '\n';
		return number(ExitCode::internal);
	}
}
