#include "VirtualIP.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <memory>

#include <Poco/Exception.h>
#include <Poco/Thread.h>

#include "Configuraion.h"
#include "Outside.h"
#include "ShellRunner.h"
#include "Utilities.h"
#include "Utill.h"
#include "VelarixLog.h"
#include "velarix/paths.h"

namespace
{

constexpr char kSource[] = "Utill";
constexpr int kPings = 10;

/// Five seconds for the other server to let the address go.
void countDown()
{
	int counter = 5;
	while (counter-- != 0)
	{
		std::cout << "virtual ip starting..: " << counter << std::endl;
		Poco::Thread::sleep(1000);
	}
}

} // namespace

bool Utill::stopVirtualIP()
{
	std::string command = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.VIRTUAL_IP_STOP_COMMAND");
	return shellCommand(command) != kShellError;
}

bool Utill::startVirtualIP(MODE* /*pMode*/)
{
	std::string command =
	    Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.VIRTUAL_IP_START_COMMAND");
	stopVirtualIP();
	for (;;)
	{
		if (isMyVirtualIPWorking())
		{
			return true;
		}
		countDown();
		const std::string output = shellCommand(command);
		if (output.empty() && waitngForVirtualIPSet())
		{
			return true;
		}
		// A command that prints anything counts as failed even when it raised
		// the address; the next pass then finds it in the listing.
		velarixLog->error(kSource, 432, "can't start virtual ip: %s", output.c_str());
		Poco::Thread::sleep(500);
	}
}

bool Utill::waitngForVirtualIPSet()
{
	const std::string address = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.VIRTUAL_IP");
	velarixLog->debug(kSource, 490, "set virtual ip...");
	for (;;)
	{
		int replies = 0;
		try
		{
			replies = outside::ping(address, kPings);
		}
		catch (const Poco::Exception& exc)
		{
			velarixLog->error(kSource, 504, "set virtual ip failed: %s", exc.displayText().c_str());
			return false;
		}
		velarixLog->debug(kSource, 496, "ping: %d", replies);
		if (replies > 0)
		{
			return true;
		}
		Poco::Thread::sleep(1000);
	}
}

void Utill::changeMacAddress()
{
}

void Utill::rollBackMacAddress()
{
}

bool isMyVirtualIPWorking()
{
	std::string address = Configuraion::getInstance(velarix::kSettingsPath)->getString("AGENT.VIRTUAL_IP");
	// Closed behind the last line, and also when the log does not take that one.
	const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(outside::openPipe("ifconfig"), &outside::closePipe);
	if (pipe == nullptr)
	{
		velarixLog->error(kSource, 652, "popen error");
		return false;
	}
	std::array<char, 128> piece{};
	while (std::fgets(piece.data(), static_cast<int>(piece.size()), pipe.get()) != nullptr)
	{
		std::string text(piece.data());
		if (stringFinder(text, address))
		{
			velarixLog->debug(kSource, 668, "myVirtualIP working");
			return true;
		}
	}
	velarixLog->debug(kSource, 680, "myVirtualIP not working");
	return false;
}
