#include "ReceiverTest.h"

ReceiverTest::ReceiverTest()
{
	settings.programs({"/opt/app/bin/dbServer"});
}

void ReceiverTest::SetUp()
{
	DaemonTest::SetUp();
	fakeoutside::commandPrints("ifconfig", "eth0:ha: flags=4163\n        inet 10.0.1.100  netmask 255.255.255.0\n");
	sandbox::coverProc();
	std::filesystem::create_directory("/proc/7");
	programRuns(false);
	receiver = std::make_unique<CHeartReciver>(&handles, &running, &mode, location);
}

void ReceiverTest::TearDown()
{
	receiver.reset();
	sandbox::showRealProc();
	DaemonTest::TearDown();
}

void ReceiverTest::programRuns(bool runs)
{
	sandbox::writeFile("/proc/7/status", runs ? "Name:\tdbServer\n" : "Name:\tbash\n");
}

void ReceiverTest::configureRole(const std::string& role)
{
	settings.set("AGENT.MODE", role);
	apply();
}

void ReceiverTest::hear(const std::string& partnerRole, const std::string& ask)
{
	receiver->ParsingReceivedMessage("/process/1/" + partnerRole + "/20240131235959/" + ask + "/");
}

std::vector<std::string> ReceiverTest::stateChanges(const std::function<void()>& call)
{
	const auto state = [this]
	{
		return "role " + std::to_string(velarix::loadShared(mode)) + " status " + std::to_string(status()) + " ask " +
		       std::to_string(velarix::loadShared(g_specialAsking)) + " count " + std::to_string(count());
	};
	std::vector<std::string> changes;
	std::string last = state();
	const auto look = [&](const std::string& event)
	{
		if (const std::string now = state(); now != last)
		{
			changes.push_back(now + " at " + event);
			last = now;
		}
	};
	onLogLine(look);
	fakeoutside::onAction(look);
	events::onSleep([look](long milliseconds) { look("sleep " + std::to_string(milliseconds)); });
	call();
	look("the end");
	onLogLine(nullptr);
	fakeoutside::onAction(nullptr);
	events::onSleep(nullptr);
	return changes;
}

namespace steps
{

events::List join(std::initializer_list<Step> steps)
{
	events::List all;
	for (const Step& step : steps)
	{
		all.insert(all.end(), step.events.begin(), step.events.end());
	}
	return all;
}

events::List heard(std::initializer_list<Step> steps)
{
	return join({"log D CHeartReciver:249 szTmp[process] szPreFix[process]", join(steps)});
}

events::List killPrograms()
{
	return {"command kill-by-name dbServer", "log I Utill:573 command(kill-by-name dbServer) : "};
}

events::List dropAddress()
{
	return {"command vip-stop", "log I Utill:573 command(vip-stop) : "};
}

events::List findAddress()
{
	return {"command vip-stop", "log I Utill:573 command(vip-stop) : ", "command ifconfig",
	        "log D Utill:668 myVirtualIP working"};
}

events::List raiseAddress()
{
	return {"command vip-stop",
	        "log I Utill:573 command(vip-stop) : ",
	        "command ifconfig",
	        "log D Utill:680 myVirtualIP not working",
	        "sleep 1000",
	        "sleep 1000",
	        "sleep 1000",
	        "sleep 1000",
	        "sleep 1000",
	        "command vip-start",
	        "log I Utill:573 command(vip-start) : ",
	        "log D Utill:490 set virtual ip...",
	        "ping 10.0.1.100 x10",
	        "log D Utill:496 ping: 10"};
}

events::List runPrograms()
{
	return join({"log D Utill:48 try to start virtual ip", findAddress(), "log D Utill:62 try to run processes",
	             "system chmod 755 /usr/velarix/bin/ini/processList.sh", "system /usr/velarix/bin/ini/processList.sh",
	             kBanner});
}

} // namespace steps
