#include "RealNode.h"

#include <cstdlib>
#include <filesystem>

#include "Sandbox.h"

namespace
{

const char kNotes[] = "/usr/velarix/log/notes";
const char kRunScript[] = "/usr/velarix/bin/ini/processList.sh";

} // namespace

RealNode::RealNode()
{
	mode = MODE_MASTER;
	settings.set("AGENT.GATEWAY_IP", kGateway)
	    .set("AGENT.PARTNER_IP", kPartner)
	    .set("AGENT.VIRTUAL_IP", kService)
	    .set("AGENT.VIRTUAL_IP_START_COMMAND", "ip addr add 10.99.2.100/24 dev eth0 label eth0:ha >/dev/null 2>&1")
	    .set("AGENT.VIRTUAL_IP_STOP_COMMAND", "ip addr del 10.99.2.100/24 dev eth0 >/dev/null 2>&1")
	    .set("ADVENCE.PROCESS_KILL_COMMAND", "echo >>/usr/velarix/log/notes killed")
	    .programs({"/usr/velarix/bin/dbServer"});
}

void RealNode::SetUp()
{
	DaemonTest::SetUp();
	std::filesystem::remove(kNotes);
	sandbox::writeFile(kRunScript, "#!/bin/sh\necho started >>/usr/velarix/log/notes\n");
	sandbox::addInterface("eth0", true);
	sandbox::addInterface("eth1", true);
	sandbox::shell("ip addr add 10.99.2.1/24 dev eth0 && ip addr add 10.99.1.1/24 dev eth1");
	receiver = std::make_unique<CHeartReciver>(&handles, &running, &mode, location);
}

void RealNode::TearDown()
{
	receiver.reset();
	sandbox::shell(
	    "for card in eth0 eth1; do ip link del $card 2>/dev/null; done; ip addr flush dev lo to 10.99.0.0/16");
	std::filesystem::remove(kRunScript);
	DaemonTest::TearDown();
}

void RealNode::addHost(const std::string& address)
{
	sandbox::shell("ip addr add " + address + "/32 dev lo");
}

void RealNode::raiseServiceAddress()
{
	sandbox::shell("ip addr add 10.99.2.100/24 dev eth0 label eth0:ha");
}

bool RealNode::holdsServiceAddress()
{
	return std::system("ip -4 -o addr show dev eth0 | grep -q 10.99.2.100/") == 0;
}

std::string RealNode::noted()
{
	return sandbox::readFile(kNotes);
}
