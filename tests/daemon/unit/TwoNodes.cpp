#include "TwoNodes.h"

#include <filesystem>

#include "FakeOutside.h"
#include "Sandbox.h"
#include "velarix/shared_value.h"

Node::Node(const std::string& configuredRole, MODE roleNow)
    : role(roleNow), programs(roleNow == MODE_MASTER), address(roleNow == MODE_MASTER)
{
	m_settings.programs({"/opt/app/bin/dbServer"}).set("AGENT.MODE", configuredRole).write();
	m_receiver = std::make_unique<CHeartReciver>(&m_handles, &m_running, &role, m_location);
	m_sender = std::make_unique<CHeartSender>(&m_handles, &m_running, &role, m_location);
}

bool Node::judges()
{
	bool goesOn = false;
	takeTurn([&] { goesOn = WorkerAccess::judgeOwnNode(*m_receiver); });
	return goesOn;
}

void Node::hears(const std::string& message)
{
	takeTurn([&] { m_receiver->ParsingReceivedMessage(message); });
}

std::string Node::beat()
{
	std::string message;
	// As the process checker leaves it.
	m_running = programs;
	takeTurn([&] { message = WorkerAccess::composeMessage(*m_sender); });
	return message;
}

void Node::takeTurn(const std::function<void()>& turn)
{
	events::clear();
	velarix::storeShared(g_specialAsking, asking);
	m_settings.write();
	fakeoutside::reset();
	fakeoutside::onAction([this](const std::string& event) { follow(event); });
	showOutside();
	turn();
	fakeoutside::reset();
	asking = velarix::loadShared(g_specialAsking);
}

void Node::follow(const std::string& event)
{
	if (event == "command vip-start")
	{
		address = true;
	}
	else if (event == "command vip-stop")
	{
		address = false;
	}
	else if (event == "command kill-by-name dbServer")
	{
		programs = false;
	}
	else if (event == "system /usr/velarix/bin/ini/processList.sh")
	{
		programs = true;
	}
	else
	{
		return;
	}
	showOutside();
}

void Node::showOutside() const
{
	sandbox::writeFile("/proc/7/status", programs ? "Name:\tdbServer\n" : "Name:\tbash\n");
	fakeoutside::commandPrints("ifconfig", address ? "eth0:ha\n  inet 10.0.1.100\n" : "eth0\n  inet 10.0.1.1\n");
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", serviceCarrier ? "1\n" : "0\n");
	for (const std::string& silentAddress : silent)
	{
		fakeoutside::pingGives(silentAddress, 0);
	}
}

void TwoNodes::SetUp()
{
	DaemonTest::SetUp();
	sandbox::coverProc();
	std::filesystem::create_directory("/proc/7");
}

void TwoNodes::TearDown()
{
	sandbox::showRealProc();
	fakeoutside::reset();
	DaemonTest::TearDown();
}
