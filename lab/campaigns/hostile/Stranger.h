/// An attack that goes on, from the lab's third host on the communication network.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "lab/campaigns/hostile/Attacks.h"
#include "lab/core/Lab.h"

namespace velarix::lab
{

struct StrangerPlan
{
	std::string attack;
	std::string detail{}; ///< of forged heartbeats: the fields; of "replay": whose heartbeat
	HostId target = HostId::a;
	std::uint64_t seed = 1;
	long count = 10000; ///< see AttackOrders
};

class Stranger
{
public:
	/// Begins. For a replay it first waits for the heartbeat that is overheard.
	/// `lab` must outlive the stranger.
	/// @throws LabError when there is no such attack, or nothing is overheard
	Stranger(Lab& lab, const StrangerPlan& plan);
	/// Ends it.
	~Stranger();
	Stranger(const Stranger&) = delete;
	Stranger& operator=(const Stranger&) = delete;

	/// Waits until he has got hold of the receiver, or at least begun.
	/// @param guarded  he cannot get hold of it
	/// @throws LabError when it does not come to that
	void awaitHold(bool guarded);
	/// Waits for an attack that ends by itself.
	void awaitEnd();
	/// Ends the attack and gives back what the stranger has borrowed.
	/// @throws LabError when the attack failed by itself
	void end();

	bool lasting() const { return m_attack.lasting; }
	/// The heartbeat that is forged or replayed; empty: the attack has none.
	const std::string& words() const { return m_orders.words; }
	const AttackTally& tally() const { return m_tally; }

private:
	Lab& m_lab;
	const AttackInfo& m_attack;
	std::atomic<bool> m_stop{false};
	std::atomic<bool> m_ended{false};
	AttackOrders m_orders;
	AttackTally m_tally;
	std::string m_problem;
	std::thread m_thread;

	void join();
};

} // namespace velarix::lab
