#include "LoopPair.h"

#include <filesystem>

#include "FakeOutside.h"
#include "Sandbox.h"
#include "SocketCalls.h"
#include "velarix/paths.h"
#include "velarix/shared_value.h"

namespace
{

constexpr char kService[] = "10.0.1.100";
constexpr char kGateway[] = "10.0.0.254";
constexpr char kPassBegins[] = "log D CHeartReciver:94 Reciver while start";

LoopNode* g_pNode = nullptr;

} // namespace

/// Puts a node's world in place, and the former one back at its end.
class LoopNode::Turn
{
public:
	explicit Turn(LoopNode* pNode) : m_pFormer(g_pNode) { change(pNode); }
	~Turn() { change(m_pFormer); }
	Turn(const Turn&) = delete;
	Turn& operator=(const Turn&) = delete;

private:
	static void change(LoopNode* pNode)
	{
		if (g_pNode != nullptr)
		{
			g_pNode->asking = velarix::loadShared(g_specialAsking);
		}
		g_pNode = pNode;
		if (pNode != nullptr)
		{
			velarix::storeShared(g_specialAsking, pNode->asking);
			Configuraion::pConf = pNode->m_pConf;
			pNode->showOutside();
		}
	}

	LoopNode* m_pFormer;
};

LoopNode::LoopNode(const std::string& name, const std::string& ownAddress, const std::string& partnerAddress,
                   const std::string& configuredRole)
    : address127(ownAddress), m_name(name)
{
	Settings settings;
	settings.programs({"/opt/app/bin/dbServer"})
	    .set("AGENT.MODE", configuredRole)
	    .set("AGENT.THIS_SERVER_IP", ownAddress)
	    .set("AGENT.PARTNER_IP", partnerAddress)
	    .set("AGENT.PARTNER_HEART_BEAT_RECEIVE_PORT", "7001");
	Configuraion::pConf = nullptr; // the other node's stays
	settings.write();
	m_pConf = new Configuraion(velarix::kSettingsPath);
	const Turn turn(this);
	m_receiver = std::make_unique<CHeartReciver>(&m_pHandles, &m_running, &role, m_name);
	m_sender = std::make_unique<CHeartSender>(&m_pHandles, &m_running, &role, m_name);
	m_receiverThread = std::make_unique<CooperativeThread>([this] { m_receiver->run(); });
	m_senderThread = std::make_unique<CooperativeThread>([this] { m_sender->run(); });
	m_receiverThread->takeTurn(); // up to the beginning of its first pass
}

LoopNode::~LoopNode()
{
	m_receiverThread.reset();
	m_senderThread.reset();
	delete m_pConf;
}

bool LoopNode::pass(std::function<void()> call)
{
	m_call = std::move(call);
	m_called = false;
	const Turn turn(this);
	m_receiverThread->takeTurn();
	return m_called;
}

void LoopNode::beat()
{
	m_running = programs; // as the process checker leaves it
	const Turn turn(this);
	m_senderThread->takeTurn();
}

void LoopNode::serve()
{
	role = MODE_MASTER;
	address = true;
	programs = true;
}

int LoopNode::lines(const std::string& key) const
{
	const auto it = m_lines.find(key);
	return it == m_lines.end() ? 0 : it->second;
}

LoopNode* LoopNode::current()
{
	return g_pNode;
}

void LoopNode::follow(const std::string& action)
{
	if (action == "command vip-start" || action == "command vip-stop")
	{
		address = action == "command vip-start";
	}
	else if (action == "command kill-by-name dbServer" || action == "system /usr/velarix/bin/ini/processList.sh")
	{
		programs = action.rfind("system", 0) == 0;
	}
	else
	{
		return;
	}
	showOutside();
}

void LoopNode::showOutside() const
{
	const bool serviceAnswers = address || (partner != nullptr && partner->address && reachesPartner);
	sandbox::writeFile("/proc/7/status", programs ? "Name:\tdbServer\n" : "Name:\tbash\n");
	fakeoutside::commandPrints("ifconfig", address ? "eth0:ha\n  inet 10.0.1.100\n" : "eth0\n  inet 10.0.1.1\n");
	fakeoutside::commandPrints("cat /sys/class/net/eth0/carrier", eth0 ? "1\n" : "0\n");
	fakeoutside::commandPrints("cat /sys/class/net/eth1/carrier", eth1 ? "1\n" : "0\n");
	fakeoutside::pingGives(kService, serviceAnswers ? 10 : 0);
	fakeoutside::pingGives(kGateway, reachesGateway ? 10 : 0);
	if (partner != nullptr)
	{
		fakeoutside::pingGives(partner->address127, reachesPartner ? 10 : 0);
	}
}

void LoopNode::onLine(const std::string& event)
{
	++m_lines[event.substr(4, event.find(' ', 6) - 4)];
	if (event == kPassBegins)
	{
		CooperativeThread::pause();
	}
}

void LoopNode::onPoll()
{
	if (CooperativeThread::current() == m_receiverThread.get() && m_call)
	{
		m_called = true;
		const Turn nobodys(nullptr);
		m_call();
	}
}

void LoopPair::SetUp()
{
	DaemonTest::SetUp();
	sandbox::coverProc();
	std::filesystem::create_directory("/proc/7");
	fakeoutside::onAction([](const std::string& action) { LoopNode::current()->follow(action); });
	onLogLine([](const std::string& event) { LoopNode::current()->onLine(event); });
	socketcalls::before("poll", [] { LoopNode::current()->onPoll(); });
	socketcalls::pollWithoutWaiting(
	    []
	    {
		    return CooperativeThread::current() == LoopNode::current()->m_receiverThread.get() &&
		           !LoopNode::current()->m_called;
	    });
	events::onSleep(
	    [](long)
	    {
		    if (CooperativeThread::current() == LoopNode::current()->m_senderThread.get())
		    {
			    CooperativeThread::pause();
		    }
	    });
	delete Configuraion::pConf;
	Configuraion::pConf = nullptr;
	a = std::make_unique<LoopNode>("a", kAddressA, kAddressB, "1");
	b = std::make_unique<LoopNode>("b", kAddressB, kAddressA, "2");
	a->partner = b.get();
	b->partner = a.get();
}

void LoopPair::TearDown()
{
	a.reset();
	b.reset();
	Configuraion::pConf = nullptr;
	sandbox::showRealProc();
	DaemonTest::TearDown();
}
