/// Two whole nodes in one process, taking turns: the process-wide ask flag, the
/// settings, /proc and the outside are put in place for the node whose turn it
/// is. Commands take effect: the virtual IP goes up and down, programs start and
/// die. The events are those of the last turn.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Daemon.h"
#include "WorkerAccess.h"

class Node
{
public:
	/// @param configuredRole "AGENT.MODE"
	/// @param role           the role now; a master serves: address and programs up
	Node(const std::string& configuredRole, MODE role);
	Node(const Node&) = delete;
	Node& operator=(const Node&) = delete;

	/// One pass of the receiver over its own network and programs.
	/// @return false when the pass ended there
	bool judges();
	void hears(const std::string& message);
	/// @return the heartbeat that the node's sender composes now
	std::string beat();

	/// @return whether address and programs are both up
	bool serves() const { return address && programs; }
	/// @return whether address and programs are both down
	bool rests() const { return !address && !programs; }
	std::int32_t& status() { return WorkerAccess::myStatus(*m_receiver); }
	std::int32_t& count() { return WorkerAccess::specialAskCount(*m_receiver); }

	MODE role;
	std::int32_t asking = 0;
	bool programs;
	bool address;
	bool serviceCarrier = true;
	std::vector<std::string> silent; ///< addresses that answer no ping

private:
	void takeTurn(const std::function<void()>& turn);
	void follow(const std::string& event);
	void showOutside() const;

	Settings m_settings;
	bool m_running = false;
	std::string m_location = "noName";
	std::vector<Poco::ProcessHandle*>* m_handles = nullptr;
	std::unique_ptr<CHeartReciver> m_receiver;
	std::unique_ptr<CHeartSender> m_sender;
};

/// Fixture with a hand-made /proc for the nodes.
class TwoNodes : public DaemonTest
{
protected:
	void SetUp() override;
	void TearDown() override;
};
