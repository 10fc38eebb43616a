/// A node with real interfaces and addresses for the receiver's own checks: eth0 is
/// the service interface, eth1 the communication interface. Whatever answers pings is an
/// address of this machine's loopback; every other address of eth1's network is
/// silent. The node's commands are real; kills and starts are noted in a file.
#pragma once

#include <memory>
#include <string>

#include "WorkerTest.h"

class RealNode : public WorkerTest
{
protected:
	static constexpr char kGateway[] = "10.99.1.254";
	static constexpr char kPartner[] = "10.99.1.2";
	static constexpr char kService[] = "10.99.2.100";

	RealNode();
	void SetUp() override;
	void TearDown() override;

	/// Another host with this address is on the network from now on.
	static void addHost(const std::string& address);
	/// This node holds the service address, as after a start.
	static void raiseServiceAddress();
	/// @return whether this node holds the service address
	static bool holdsServiceAddress();
	/// @return what was killed and started, one line each
	static std::string noted();

	std::unique_ptr<CHeartReciver> receiver;
};
