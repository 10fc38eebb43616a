/// Two whole nodes in one process with the loops of their receivers and senders
/// on real sockets, taking turns. The settings, the ask flag, /proc and the
/// outside are put in place for the node whose turn it is; commands take effect.
/// Needs FakeOutside and SocketCalls.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Configuraion.h"
#include "CooperativeThreads.h"
#include "Daemon.h"
#include "WorkerAccess.h"

class LoopNode
{
public:
	/// @param name           the label of the node's log lines
	/// @param configuredRole "AGENT.MODE"
	LoopNode(const std::string& name, const std::string& address, const std::string& partnerAddress,
	         const std::string& configuredRole);
	~LoopNode();
	LoopNode(const LoopNode&) = delete;
	LoopNode& operator=(const LoopNode&) = delete;

	/// One pass of the receiver. The partner calls when it polls.
	/// @param call what the partner does; none for silence
	/// @return whether the receiver polled, so that the call was made
	bool pass(std::function<void()> call = {});
	/// One attempt of the sender to send a heartbeat.
	void beat();

	/// Role, address and programs of a serving master.
	void serve();
	/// @return whether address and programs are both up
	bool serves() const { return address && programs; }
	std::int32_t status() { return WorkerAccess::myStatus(*m_receiver); }
	std::int32_t count() { return WorkerAccess::specialAskCount(*m_receiver); }
	/// @return how often the node has written the line, "LEVEL SOURCE:LINE"
	int lines(const std::string& key) const;

	const std::string address127; ///< where it listens, port 7001
	MODE role = MODE_SLAVE;
	std::int32_t asking = 0;
	bool programs = false;
	bool address = false; ///< holds the virtual IP
	bool eth0 = true;     ///< carrier
	bool eth1 = true;
	bool reachesGateway = true;
	bool reachesPartner = true;
	LoopNode* partner = nullptr;

	/// Whose turn it is; null for nobody's.
	static LoopNode* current();

private:
	friend class LoopPair;
	class Turn;

	void follow(const std::string& action);
	void showOutside() const;
	void onLine(const std::string& event);
	void onPoll();

	Configuraion* m_pConf;
	std::string m_name;
	bool m_running = false;
	std::vector<Poco::ProcessHandle*>* m_pHandles = nullptr;
	std::unique_ptr<CHeartReciver> m_receiver;
	std::unique_ptr<CHeartSender> m_sender;
	std::function<void()> m_call;
	bool m_called = false;
	std::map<std::string, int> m_lines;
	std::unique_ptr<CooperativeThread> m_receiverThread;
	std::unique_ptr<CooperativeThread> m_senderThread;
};

/// Fixture with node a, configured as master, and node b, configured as slave.
/// Both begin as slaves without programs.
class LoopPair : public DaemonTest
{
protected:
	static constexpr char kAddressA[] = "127.0.1.1";
	static constexpr char kAddressB[] = "127.0.1.2";

	void SetUp() override;
	void TearDown() override;

	std::unique_ptr<LoopNode> a;
	std::unique_ptr<LoopNode> b;
};
