#include "lab/core/Tunnel.h"

#include "lab/core/Command.h"
#include "lab/core/Files.h"
#include "lab/core/Plan.h"

namespace velarix::lab
{

namespace
{

void init(const Node& node)
{
	const auto wire = [](HostId host) { return std::string(plan::addressOf(host, Network::communication)); };
	runOrThrow({{"velarixctl", "init", "--force", "--wireguard", std::string("--this=") + nameOf(node.id()),
	             "--output=/tmp/pair", "--address-a=" + wire(HostId::a), "--address-b=" + wire(HostId::b),
	             "--gateway=" + wire(HostId::gateway),
	             std::string("--virtual-ip=") + plan::virtualAddress + "/" + std::to_string(plan::prefixLength),
	             "--port=" + std::to_string(plan::heartbeatPort), std::string("--program=") + plan::serviceProgram},
	            {},
	            node.host().inside()});
}

void takePublicKey(const Node& node, const Node& partner)
{
	writeFile(node.file(plan::partnerKey), contentOf(partner.file(plan::tunnelPublicKey)));
}

} // namespace

void makeTunnel(const Node& a, const Node& b)
{
	init(a);
	init(b);
	takePublicKey(a, b);
	takePublicKey(b, a);
}

void startTunnel(const Node& node)
{
	const std::string program = plan::tunnelProgram;
	shell(node.host(), std::string("nft -f ") + plan::firewallFile + "; " + program + " start; " + program +
	                       " refresh </dev/null >/dev/null 2>&1 &");
}

void changeTunnelKeys(const Node& a, const Node& b)
{
	for (const Node* node : {&a, &b})
	{
		const Node& other = node == &a ? b : a;
		shell(node->host(), std::string("rm ") + plan::tunnelKey + "; " + plan::tunnelProgram + " reload");
		takePublicKey(other, *node);
		shell(other.host(), std::string(plan::tunnelProgram) + " reload");
	}
}

} // namespace velarix::lab
